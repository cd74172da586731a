#pragma once

#include <QStringList>

class QTextStream;

// `deckwright convert --output DIR PACKAGE_OR_FOLDER…`: converts packages,
// and those found in folders, with the same converter and events as the
// application, without a window and without touching the person's saved
// settings; several at once in worker processes (ConvertJobs) or one after
// another here.
class ConvertCommand
{
public:
    // AllDone: every item converted, or nothing to do for it.
    enum Status { AllDone = 0, NotAllDone = 1, UsageError = 2, OutputFailed = 3 };

    // arguments: what follows "convert" on the command line.
    static int run(const QStringList &arguments, QTextStream &out, QTextStream &err);
    static QString usage();
};
