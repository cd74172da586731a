#pragma once

#include <QByteArray>
#include <QMap>
#include <QStringList>

// Reads a converted file with the system's unzip.
class Archive
{
public:
    explicit Archive(QString path)
        : m_path(std::move(path))
    {
    }

    QStringList names() const; // the entries as stored, folders too
    bool isWhole() const;      // every entry's checksum holds
    bool isDeflated() const;   // some entry is compressed
    // The package's files, unpacked: path below the package's own folder (the
    // one holding index.apxl) -> SHA-1, and that folder's path in the archive,
    // empty when the package is the archive's root.
    QMap<QByteArray, QByteArray> packageFiles(QByteArray *packageFolder = nullptr) const;

private:
    bool unzip(const QStringList &arguments, QByteArray *out = nullptr) const;
    QString m_path;
};
