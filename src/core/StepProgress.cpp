#include "core/StepProgress.h"

#include "core/DiskSpace.h"
#include "core/FileTree.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

StepProgress::StepProgress(const QString &packagePath)
{
    FileTree::walk(packagePath, [this](const FileTree::Entry &entry) {
        if (entry.kind == FileTree::Kind::File) {
            m_sizes.insert(entry.relativePath, entry.size);
            m_total = DiskSpace::sum(m_total, entry.size);
        }
        return true;
    });
}

double StepProgress::share(qint64 bytes) const
{
    if (m_total <= 0)
        return 0.0;
    return std::clamp(double(bytes) / double(m_total), 0.0, 1.0);
}

qint64 StepProgress::bytesOfFilesIn(const QString &folder)
{
    // Our own run folder: only the archive zip is writing stands there beside the copy.
    qint64 bytes = 0;
    const QFileInfoList files = QDir(folder).entryInfoList(QDir::Files | QDir::Hidden | QDir::NoSymLinks);
    for (const QFileInfo &file : files)
        bytes = DiskSpace::sum(bytes, file.size());
    return bytes;
}

double StepProgress::zipShare(const QByteArray &zipOutput, const QString &packedFolder, const QString &archiveFolder,
                              qint64 bytesRead)
{
    // zip reads each file once, through read calls: beside the few bytes its
    // loader reads, what it has read is what it has packed.
    if (bytesRead >= 0)
        return share(bytesRead);
    // zip prints "  adding: NAME" when it starts on a file and " (deflated 12%)"
    // when it is done with it, so every name but the last is a file done.
    QByteArray prefix = QFile::encodeName(packedFolder);
    while (prefix.startsWith('/'))
        prefix.remove(0, 1);
    prefix += '/';
    static const QByteArray marker("adding: ");
    qint64 done = 0;
    QByteArray current;
    for (qsizetype at = zipOutput.indexOf(marker); at >= 0; at = zipOutput.indexOf(marker, at)) {
        at += marker.size();
        qsizetype end = zipOutput.indexOf('\n', at);
        QByteArray line = zipOutput.mid(at, end < 0 ? -1 : end - at);
        const qsizetype note = line.lastIndexOf(" (");
        if (note >= 0)
            line.truncate(note);
        const QByteArray name = line.startsWith(prefix) ? line.mid(prefix.size()) : line;
        if (!current.isEmpty())
            done += m_sizes.value(current);
        current = name;
        if (end < 0)
            break;
        // A finished line is a finished file.
        if (note >= 0) {
            done += m_sizes.value(current);
            current.clear();
        }
    }
    // The file zip is on: as far as the archive has grown since it began.
    const qint64 archive = bytesOfFilesIn(archiveFolder);
    if (current != m_current) {
        m_current = current;
        m_archiveAtCurrent = archive;
    }
    if (!current.isEmpty())
        done += std::min(m_sizes.value(current), std::max<qint64>(0, archive - m_archiveAtCurrent));
    return share(done);
}
