#include "support/Archive.h"

#include "support/Tree.h"

#include <QtCore>

bool Archive::unzip(const QStringList &arguments, QByteArray *out) const
{
    QProcess process;
    process.start(QStringLiteral("unzip"), arguments);
    const bool done = process.waitForFinished(-1) && process.exitStatus() == QProcess::NormalExit;
    if (out)
        *out = process.readAllStandardOutput();
    return done && process.exitCode() == 0;
}

QStringList Archive::names() const
{
    QByteArray out;
    unzip({QStringLiteral("-Z1"), m_path}, &out);
    return QString::fromUtf8(out).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

bool Archive::isWhole() const
{
    return unzip({QStringLiteral("-tqq"), m_path});
}

bool Archive::isDeflated() const
{
    QByteArray out;
    return unzip({QStringLiteral("-v"), m_path}, &out) && out.contains(" Defl:");
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
