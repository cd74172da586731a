#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

// Everything below a folder as lstat sees it, the folder itself as ".": no
// link followed, nothing opened but regular files, names as raw bytes, so
// that trees deeper than a path can name and names that are not UTF-8 show.
// Relative path -> kind and mode as ls shows them, then a file's SHA-1 or a
// link's target; WithTimes adds the size and the modification and change
// times, which anything written changes.
class Tree : public QMap<QByteArray, QByteArray>
{
public:
    enum Detail { Contents, WithTimes };
    static Tree of(const QString &root, Detail detail = Contents);

    // The regular files: relative path -> SHA-1.
    QMap<QByteArray, QByteArray> fileHashes() const;
    QString paths() const; // for a failure's message

    static QByteArray sha1(const QByteArray &bytes);
    // The sizes of the regular files below a folder, added up; a single file's size.
    static qint64 fileBytes(const QString &path);
};
