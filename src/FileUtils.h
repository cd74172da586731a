#pragma once

#include <QString>
#include <QStringList>

#include <optional>

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

    virtual QString getPrezName();            // last "/" piece: Talk.key
    virtual QString getPrezNameWithoutExt();  // first "." piece of that: Talk
    virtual QString getZipName();             // Talk.zip
    virtual void rmFile(const QString &path);
    // Standard output, one blank, standard error; " " when the command cannot start.
    virtual QString runCommand(const QString &launchPath, const QStringList &arguments);
    virtual std::optional<QString> getTmpDir();
    virtual QString getTmpDirFromEnv();

    // Cuts at every occurrence of the separator and drops empty pieces.
    static QStringList split(const QString &text, QChar separator);
    // The name FileUtils gives the last "/" piece of a path or URL text.
    static QString lastPathPiece(const QString &text);
    // The value of the last TMPDIR line of `env` output; empty without one.
    static QString tmpDirFromEnvText(const QString &envOutput);
    // Strict UTF-8; output that is not UTF-8 is fatal.
    static QString decodeOutput(const QByteArray &bytes, const QString &launchPath);

private:
    QString m_prezOrigPath;
};
