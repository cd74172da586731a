#pragma once

#include "core/ChildProcess.h"

#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

class OutputFolder;
class ScratchRun;

// Names derived from a package path, child processes, scratch files.
// Every operation is virtual; derived names are built through the earlier
// operations, so replacing getPrezName changes the names built from it.
class FileUtils
{
public:
    explicit FileUtils(const QString &prezOrigPath);
    virtual ~FileUtils();

    virtual QString prezOrigPath() const;
    virtual void setPrezOrigPath(const QString &path);

    virtual QString getPrezName();           // last "/" piece: Talk.key
    virtual QString getPrezNameWithoutExt(); // first "." piece of that: Talk
    virtual QString getZipName();            // Talk.zip
    // Never follows a link: a link is removed, not what it points to. An
    // item of the run folder is removed through the folder made for the run.
    virtual void rmFile(const QString &path);
    // Standard output, one blank, standard error; " " when the command cannot start.
    // Output that is not UTF-8 is decoded with replacement characters.
    virtual QString runCommand(const QString &launchPath, const QStringList &arguments);
    // This conversion's own private scratch folder (a ScratchRun), made on
    // first use and removed with this object; none when it cannot be made.
    // It lies in the scratch folder, or in the folder given to runInFolder.
    virtual std::optional<QString> getTmpDir();
    virtual QString getTmpDirFromEnv();

    // How the last runCommand ended, beyond the text it returned.
    const ChildProcess::Result &lastCommand() const { return m_lastCommand; }
    // Follows the next commands as they run (none: nullptr).
    void setCommandWatcher(ChildProcess::Watcher watcher) { m_commandWatcher = std::move(watcher); }
    // A cap on the size of any file the next commands write (0: none).
    void setFileSizeLimit(qint64 bytes) { m_fileSizeLimit = bytes; }
    // Makes getTmpDir's run folder in this folder (the output folder) instead
    // of the scratch folder; before the first getTmpDir.
    void runInFolder(std::shared_ptr<const OutputFolder> folder) { m_runFolder = std::move(folder); }
    // The folder the next commands start in (empty: ours).
    void setWorkingDirectory(const QString &folder) { m_workingDirectory = folder; }
    // Why getTmpDir gave none.
    QString tmpDirError() const { return m_tmpDirError; }

    // Cuts at every occurrence of the separator and drops empty pieces.
    static QStringList split(const QString &text, QChar separator);
    // The name FileUtils gives the last "/" piece of a path or URL text.
    static QString lastPathPiece(const QString &text);
    // The value of the last TMPDIR line of `env` output; empty without one.
    static QString tmpDirFromEnvText(const QString &envOutput);
    // UTF-8, with replacement characters for what is not.
    static QString decodeOutput(const QByteArray &bytes);

private:
    QString m_prezOrigPath;
    ChildProcess::Result m_lastCommand;
    qint64 m_fileSizeLimit = 0;
    QString m_workingDirectory;
    std::shared_ptr<const OutputFolder> m_runFolder;
    ChildProcess::Watcher m_commandWatcher;
    std::unique_ptr<ScratchRun> m_run;
    QString m_tmpDirError;
};
