#pragma once

#include <QStringList>

class QTextStream;

// `deckwright convert --output DIR PACKAGE…`: converts packages one after
// another with the same converter and events as the application, without a
// window and without touching the person's saved settings.
class ConvertCommand
{
public:
    enum Status { AllConverted = 0, SomeSkipped = 1, UsageError = 2 };

    // arguments: what follows "convert" on the command line.
    static int run(const QStringList &arguments, QTextStream &out, QTextStream &err);
    static QString usage();
};
