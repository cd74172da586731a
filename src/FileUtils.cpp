#include "FileUtils.h"

#include "Fatal.h"
#include "Logging.h"
#include "ScratchDir.h"

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

FileUtils::~FileUtils() = default;

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
    const QFileInfo info(path);
    bool removed = false;
    QString failure;
    if (info.isDir() && !info.isSymLink()) {
        removed = QDir(path).removeRecursively();
        if (!removed)
            failure = QStringLiteral("“%1” could not be removed completely.").arg(path);
    } else {
        QFile file(path);
        removed = file.remove();
        if (!removed)
            failure = info.exists() || info.isSymLink() ? file.errorString()
                                                        : QStringLiteral("“%1” couldn’t be removed because it doesn’t exist.").arg(path);
    }
    if (removed)
        DW_LOG(QLatin1String("Remove successful"));
    else
        DW_LOG(QLatin1String("Remove failed: ") + failure);
}

QString FileUtils::decodeOutput(const QByteArray &bytes, const QString &launchPath)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(bytes);
    if (decoder.hasError())
        Fatal::fail(QStringLiteral("%1 printed text that is not UTF-8").arg(launchPath));
    return text;
}

QString FileUtils::runCommand(const QString &launchPath, const QStringList &arguments)
{
    QProcess process;
    process.setProgram(launchPath);
    process.setArguments(arguments);
    process.setInputChannelMode(QProcess::ForwardedInputChannel);
    process.start(QIODevice::ReadOnly);
    if (!process.waitForStarted(-1))
        return QStringLiteral(" ");
    // Both streams are drained while waiting, so a chatty standard error cannot stall the child.
    process.waitForFinished(-1);
    const QString out = decodeOutput(process.readAllStandardOutput(), launchPath);
    const QString err = decodeOutput(process.readAllStandardError(), launchPath);
    return out + QLatin1Char(' ') + err;
}

std::optional<QString> FileUtils::getTmpDir()
{
    return ScratchDir::path();
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
    process.start(QIODevice::ReadOnly);
    if (!process.waitForStarted(-1))
        return QString();
    process.waitForFinished(-1);
    return tmpDirFromEnvText(decodeOutput(process.readAllStandardOutput(), process.program()));
}
