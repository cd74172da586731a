#pragma once

class QString;
class QTextStream;

// A mistake on the command line: "deckwright COMMAND: REASON" and, on the
// next line, where to find the help, on err. An empty command means the
// program itself. Returns 2, the exit status of every usage error.
int usageError(QTextStream &err, const QString &command, const QString &reason);

// What `--version` prints, the program's or a command's: "Deckwright VERSION".
QString versionText();

// The result lines of a command go out one at a time, each at once. A line
// that cannot be written (a full disk, a closed descriptor, a pipe no one
// reads any more) is an error of the command, never a silent loss: false,
// then and for every line after.
bool printLine(QTextStream &out, const QString &line);
// "deckwright COMMAND: could not write to standard output (REASON)" on err,
// for out that failed. Returns 3, the exit status of that error.
int outputError(QTextStream &err, const QString &command, const QTextStream &out);

// Run first in a command, before anything is opened: a standard descriptor
// that was closed is held by /dev/null, so that no file the command opens
// takes its number and receives its lines (standard output read-only, so
// that writing there still fails), and writing into a pipe no one reads
// fails as any write does instead of ending the command unannounced.
void prepareStandardStreams();
