#pragma once

#include <QStringList>

class QTextStream;

// `deckwright check PATH…`: tells, for each package, single .key file or
// package found in a folder, whether Deckwright can convert it, with its size
// and number of slides, and changes nothing.
class CheckCommand
{
public:
    enum Status { AllConvertible = 0, SomeNotConvertible = 1, UsageError = 2, OutputFailed = 3 };

    // arguments: what follows "check" on the command line.
    static int run(const QStringList &arguments, QTextStream &out, QTextStream &err);
    static QString usage();
};
