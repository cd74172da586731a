#include "support/Tree.h"

#include <QtCore>

#include <fcntl.h>

namespace {
QByteArray hashOf(const QByteArray &path)
{
    QFile file;
    QCryptographicHash hash(QCryptographicHash::Sha1);
    const int fd = ::open(path.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0 || !file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle) || !hash.addData(&file))
        return "unreadable";
    return hash.result().toHex();
}
} // namespace

Tree Tree::of(const QString &root, Detail detail)
{
    QProcess find;
    find.start(QStringLiteral("find"),
               {QStringLiteral("-H"), root, QStringLiteral("-printf"), QStringLiteral("%P\\0%M\\0%l\\0%s %T@ %C@\\0")});
    find.waitForFinished(-1);
    const QList<QByteArray> fields = find.readAllStandardOutput().split('\0');
    const QByteArray base = QFile::encodeName(root) + '/';
    Tree tree;
    for (qsizetype i = 0; i + 3 < fields.size(); i += 4) {
        const QByteArray &path = fields[i], &mode = fields[i + 1];
        QByteArray item = mode;
        // A sparse giant planted by a test is told by its size; reading it would take minutes.
        const QByteArray size = fields[i + 3].split(' ').value(0);
        if (mode.startsWith('-'))
            item
                += ' '
                   + (size.toLongLong() > (1LL << 30) ? size
                                                      : hashOf(path.isEmpty() ? QFile::encodeName(root) : base + path));
        else if (mode.startsWith('l'))
            item += " -> " + fields[i + 2];
        if (detail == WithTimes)
            item += ' ' + fields[i + 3];
        tree.insert(path.isEmpty() ? QByteArray(".") : path, item);
    }
    return tree;
}

QMap<QByteArray, QByteArray> Tree::fileHashes() const
{
    QMap<QByteArray, QByteArray> files;
    for (auto it = begin(); it != end(); ++it) {
        if (it.value().startsWith('-'))
            files.insert(it.key(), it.value().split(' ').value(1));
    }
    return files;
}

QString Tree::paths() const
{
    return QString::fromUtf8(keys().join(", "));
}

QByteArray Tree::sha1(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha1).toHex();
}

qint64 Tree::fileBytes(const QString &path)
{
    if (QFileInfo(path).isFile())
        return QFileInfo(path).size();
    qint64 bytes = 0;
    const Tree tree = of(path, WithTimes);
    for (const QByteArray &item : tree) {
        if (item.startsWith('-'))
            bytes += item.split(' ').value(2).toLongLong();
    }
    return bytes;
}
