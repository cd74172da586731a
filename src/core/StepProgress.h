#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

// How far the two long stages of a conversion are, as a share of the
// package's bytes: the copy by the bytes it has copied, zip by the bytes it
// has read where the system tells them, and otherwise by the names it prints
// as it adds them (each a file done) and, for the file it is working on, by
// the growth of the archive it writes. zip's output comes in blocks, long
// apart on a large file, so its lines alone would leave the bar standing.
class StepProgress
{
public:
    // Measures the package at packagePath: the size of each of its files.
    explicit StepProgress(const QString &packagePath);

    qint64 totalBytes() const { return m_total; }

    // The share of the copy done, with this many bytes copied.
    double copyShare(qint64 bytesCopied) const { return share(bytesCopied); }

    // The share of zip's work done, from its output so far. packedFolder is
    // the folder zipped (its entries are printed under that path, less the
    // leading "/", or relative to it when zip runs inside it); archiveFolder
    // holds the archive zip writes; bytesRead: what zip has read so far, -1
    // when unknown.
    double zipShare(const QByteArray &zipOutput, const QString &packedFolder, const QString &archiveFolder,
                    qint64 bytesRead = -1);

private:
    double share(qint64 bytes) const;
    static qint64 bytesOfFilesIn(const QString &folder);

    QHash<QByteArray, qint64> m_sizes; // by path inside the package
    qint64 m_total = 0;
    // zip's file in progress: its name, and the archive's size when it began.
    QByteArray m_current;
    qint64 m_archiveAtCurrent = 0;
};
