#pragma once

#include <QByteArray>
#include <QString>

class OutputFolder;

// The private folder of one conversion, inside the scratch folder (ScratchDir):
// <scratch>/run-XXXXXX, mode 0700, made fresh for the run and removed with
// it, whatever the outcome. No two runs, in one process or in two, ever share
// one, so nothing left by an earlier run can reach an output.
//
// A run holds an flock on its folder while it lives. A run folder whose lock
// can be taken belongs to no live process (it was killed): every new run
// removes those first. A fatal ending removes the live ones.
//
// A package too large for the scratch folder's disk (usually a small tmpfs)
// runs in the output folder instead: <output>/.deckwright-run-XXXXXX, hidden,
// mode 0700, swept the same way, and only folders of that name that are ours,
// closed to others and held by no live run are ever removed there. Never
// where another user may rename it: the tools reach it by its path.
//
// A run is removed through the folder it made, held open from the start, and
// its name goes only while it still names that folder.
class ScratchRun
{
public:
    ScratchRun();
    // A run in the output folder; see above.
    explicit ScratchRun(const OutputFolder &outputFolder);
    ~ScratchRun();
    ScratchRun(const ScratchRun &) = delete;
    ScratchRun &operator=(const ScratchRun &) = delete;

    bool isValid() const { return m_runFd >= 0; }
    QString errorString() const { return m_error; }
    // The folder, ending in "/".
    QString path() const { return m_path; }
    // Removes the folder now (also done on destruction).
    void remove();
    // Removes the item of that name in the folder, never through a link.
    bool removeEntry(const QString &name);

    // Removes the folders of every live run of this process, for an ending
    // that will not unwind to their owners.
    static void removeAll();

    // Removes the run folders no live run holds, and the scratch copies
    // older versions left in the scratch folder; returns how many items.
    static int sweepStale(int scratchFolderDescriptor);
    // The same in an output folder: only stale run folders of ours, and the
    // hidden files of writes that were killed (OutputFile).
    static int sweepStaleInOutputFolder(int outputFolderDescriptor);
    // Both where a run for this output folder may lie, the scratch folder
    // and the output folder itself, for a process that saw a run of another
    // one end without cleaning up (it was killed).
    static int sweepStale(const OutputFolder &outputFolder);

    static constexpr const char *outputRunPrefix = ".deckwright-run-";

private:
    // Makes the run folder under the open root, named prefix + six letters.
    void makeRun(const QString &root, const QByteArray &prefix);
    static int sweep(int folderDescriptor, bool outputFolder);

    int m_rootFd = -1;
    int m_runFd = -1;
    QByteArray m_name;
    QString m_path;
    QString m_error;
};
