#pragma once

#include <QString>

#include <memory>

class OutputFolder;

// `deckwright convert --worker`: converts the packages the command that
// started it asks for, one at a time, and tells it each outcome (see
// WorkerChannel). Many of them give a batch its parallelism while each
// conversion stays in a single-threaded process of its own.
class ConvertWorker
{
public:
    struct Options
    {
        bool skipExisting = false; // Converter::setSkipExisting
        bool progress = false;     // tell the command how far each conversion is
    };

    // Serves requests on standard input and answers on standard output,
    // which it keeps for itself: anything else printed goes to standard error.
    // Its converters take their options from the settings, which the
    // command line given to it set, as in the command itself.
    static int run(const std::shared_ptr<const OutputFolder> &outputFolder, const Options &options);
    // Serves requests from one descriptor, answering on the other, until the
    // input ends. 0 then; 1 when the command is gone or speaks out of turn.
    static int serve(int inDescriptor, int outDescriptor, const std::shared_ptr<const OutputFolder> &outputFolder,
                     const Options &options);
};
