#include "core/FileUtils.h"

#include "core/Fatal.h"
#include "core/FileTree.h"
#include "core/Logging.h"
#include "core/ScratchRun.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStringDecoder>

#include <cerrno>
#include <cstring>

FileUtils::FileUtils(const QString &prezOrigPath)
    : m_prezOrigPath(prezOrigPath)
{
}

FileUtils::~FileUtils() = default; // the scratch run goes with it

QString FileUtils::prezOrigPath() const
{
    return m_prezOrigPath;
}

void FileUtils::setPrezOrigPath(const QString &path)
{
    m_prezOrigPath = path;
}

QStringList FileUtils::split(const QString &text, QChar separator)
{
    return text.split(separator, Qt::SkipEmptyParts);
}

QString FileUtils::lastPathPiece(const QString &text)
{
    const QStringList pieces = split(text, QLatin1Char('/'));
    if (pieces.isEmpty())
        Fatal::fail(QStringLiteral("the path \"%1\" has no file name").arg(text));
    return pieces.last();
}

QString FileUtils::getPrezName()
{
    return lastPathPiece(prezOrigPath());
}

QString FileUtils::getPrezNameWithoutExt()
{
    const QString name = getPrezName();
    const QStringList pieces = split(name, QLatin1Char('.'));
    if (pieces.isEmpty())
        Fatal::fail(QStringLiteral("the file name \"%1\" has nothing but dots").arg(name));
    return pieces.first();
}

QString FileUtils::getZipName()
{
    return getPrezNameWithoutExt() + QLatin1String(".zip");
}

void FileUtils::rmFile(const QString &path)
{
    DW_LOG(QLatin1String("removing : ") + path);
    FileTree::Kind kind;
    if (!FileTree::kindAt(path, &kind)) {
        DW_LOG(QLatin1String("Remove failed: ")
               + QStringLiteral("“%1” couldn’t be removed because it doesn’t exist.").arg(path));
        return;
    }
    QString failure;
    // The run's own items are named from the folder made for it, whatever became of its path.
    const QString run = m_run && m_run->isValid() ? m_run->path() : QString();
    const QString name = path.mid(run.size());
    const bool removed = !run.isEmpty() && path.startsWith(run) && !name.isEmpty() && !name.contains(QLatin1Char('/'))
                             ? m_run->removeEntry(name)
                             : FileTree::remove(path, &failure);
    if (removed)
        DW_LOG(QLatin1String("Remove successful"));
    else
        DW_LOG(QLatin1String("Remove failed: ")
               + QStringLiteral("“%1” could not be removed completely: %2").arg(path, failure));
}

QString FileUtils::decodeOutput(const QByteArray &bytes)
{
    // Only logged and searched for "No such file": a name that is not UTF-8
    // in zip's list must not end the program.
    return QString::fromUtf8(bytes);
}

QString FileUtils::runCommand(const QString &launchPath, const QStringList &arguments)
{
    m_lastCommand = ChildProcess::run(launchPath, arguments, m_fileSizeLimit, m_commandWatcher, m_workingDirectory);
    if (!m_lastCommand.started)
        return QStringLiteral(" ");
    return decodeOutput(m_lastCommand.standardOutput) + QLatin1Char(' ') + decodeOutput(m_lastCommand.standardError);
}

std::optional<QString> FileUtils::getTmpDir()
{
    if (!m_run) {
        m_run = m_runFolder ? std::make_unique<ScratchRun>(*m_runFolder) : std::make_unique<ScratchRun>();
        m_tmpDirError = m_run->errorString();
    }
    if (!m_run->isValid())
        return std::nullopt;
    return m_run->path();
}

QString FileUtils::tmpDirFromEnvText(const QString &envOutput)
{
    QString result;
    const QStringList lines = split(envOutput, QLatin1Char('\n'));
    for (const QString &line : lines) {
        const QStringList pieces = split(line, QLatin1Char('='));
        if (pieces.isEmpty() || pieces.first() != QLatin1String("TMPDIR"))
            continue;
        if (pieces.size() < 2)
            Fatal::fail(QStringLiteral("the environment holds TMPDIR without a value"));
        result = pieces.at(1);
    }
    return result;
}

QString FileUtils::getTmpDirFromEnv()
{
    QProcess process;
    process.setProgram(QStringLiteral("/usr/bin/env"));
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(QIODevice::ReadOnly);
    if (!process.waitForStarted(-1))
        return QString();
    process.waitForFinished(-1);
    return tmpDirFromEnvText(decodeOutput(process.readAllStandardOutput()));
}
