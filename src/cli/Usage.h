#pragma once

class QString;
class QTextStream;

// A mistake on the command line: "deckwright COMMAND: REASON" and where to
// find the help, on err. An empty command means the program itself.
// Returns 2, the exit status of every usage error.
int usageError(QTextStream &err, const QString &command, const QString &reason);
