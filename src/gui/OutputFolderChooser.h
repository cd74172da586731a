#pragma once

class QWidget;

// Asks for the folder that receives converted presentations and keeps it as
// outputPath (its URL text) and bookmarkData (a lasting handle on it). The
// application and the preferences pane each run their own copy, which differ
// in how they read the dialog's answer and in what they log.
class OutputFolderChooser
{
public:
    enum Copy { ApplicationCopy, PreferencesCopy };

    // Returns whether a folder was stored.
    static bool run(Copy copy, QWidget *parent = nullptr);
};
