#include "support/Archive.h"

#include "support/Tree.h"

#include <QProcess>
#include <QTemporaryDir>

QByteArray Archive::unzip(const QStringList &arguments) const
{
    QProcess process;
    process.start(QStringLiteral("unzip"), arguments);
    process.waitForFinished(-1);
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0 ? process.readAllStandardOutput()
                                                                                   : QByteArray();
}

QStringList Archive::names() const
{
    return QString::fromUtf8(unzip({QStringLiteral("-Z1"), m_path})).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

bool Archive::isWhole() const
{
    QProcess process;
    process.start(QStringLiteral("unzip"), {QStringLiteral("-tqq"), m_path});
    return process.waitForFinished(-1) && process.exitCode() == 0;
}

bool Archive::isDeflated() const
{
    return unzip({QStringLiteral("-v"), m_path}).contains(" Defl:");
}

QMap<QByteArray, QByteArray> Archive::packageFiles(QByteArray *packageFolder) const
{
    QTemporaryDir into;
    unzip({QStringLiteral("-qq"), m_path, QStringLiteral("-d"), into.path()});
    const QMap<QByteArray, QByteArray> all = Tree::of(into.path()).fileHashes();
    // Names that are not UTF-8 defeat QTemporaryDir's own removal.
    into.setAutoRemove(false);
    QProcess::execute(QStringLiteral("rm"), {QStringLiteral("-rf"), into.path()});
    QByteArray top;
    for (auto it = all.begin(); it != all.end(); ++it) {
        if ((it.key() == "index.apxl" || it.key().endsWith("/index.apxl"))
            && (top.isEmpty() || it.key().size() < top.size()))
            top = it.key();
    }
    top.chop(qstrlen("index.apxl"));
    QMap<QByteArray, QByteArray> files;
    for (auto it = all.begin(); it != all.end(); ++it)
        files.insert(it.key().startsWith(top) ? it.key().mid(top.size()) : "../" + it.key(), it.value());
    if (packageFolder)
        *packageFolder = top;
    return files;
}
