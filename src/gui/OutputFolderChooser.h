#pragma once

#include <QString>

class QWidget;

// Asks for the folder that receives converted presentations and keeps it as
// outputPath (its URL text) and bookmarkData (a lasting handle on it). Asked
// from two places, which differ in how they read the dialog's answer and in
// what they log: a batch that has no output folder yet, and the preferences pane.
class OutputFolderChooser
{
public:
    enum Origin {
        Batch,          // a batch is about to start and no folder was ever chosen
        PreferencesPane // the person asked for another folder in the preferences
    };

    // Returns whether a folder was stored.
    static bool run(Origin origin, QWidget *parent = nullptr);

    // Before a batch: whether there is a folder to write into. False when
    // none was chosen yet, or when the one chosen is gone (the person is told).
    static bool readyForBatch(QWidget *parent);

    // The output folder the settings hold, as far as they tell.
    struct Current
    {
        QString path;           // from outputPath; empty when there is none or it is no file URL
        bool stored = false;    // a bookmark was ever kept
        bool reachable = false; // and it still leads to a folder
    };
    static Current current();

    // Where the chooser opens: the current output folder; the nearest folder
    // still there on its path when it was lost; else the documents folder.
    static QString startingFolder();

private:
    static void alertGone(const QString &path, QWidget *parent);
};
