#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

// Builds Keynote '08 packages in a folder for tests and benchmarks: a folder
// NAME.key with a gzip-compressed index.apxl carrying the version tag, and
// media files beside it.
class PackageFactory
{
public:
    explicit PackageFactory(QString folder);

    static QByteArray keynoteFourDocument(const QString &title = QStringLiteral("Talk"));
    static QByteArray keynoteFiveDocument();
    // A Keynote '08 document that a real reader (LibreOffice Impress, through
    // libetonyek) loads once converted: one page per slide, each slide showing
    // the title "Slide N".
    static QByteArray keynoteFourPresentation(int slides);

    // Returns the package's path. files: relative path -> content, besides index.apxl.gz.
    QString make(const QString &name, const QByteArray &document = keynoteFourDocument(),
                 const QMap<QString, QByteArray> &files = defaultMedia()) const;
    // A package without its document.
    QString makeWithoutIndex(const QString &name) const;
    // A package whose document is stored as given, not compressed.
    QString makeWithRawIndex(const QString &name, const QByteArray &gzBytes) const;

    static QMap<QString, QByteArray> defaultMedia();
    static QByteArray gzip(const QByteArray &data);
    static QByteArray pseudoRandom(qint64 size, quint32 seed);

    // Every file under a folder, relative path -> content.
    static QMap<QString, QByteArray> snapshot(const QString &folder);
    // Every item under a folder, the folder too, links not followed, path ->
    // what changes when anything is written: kind and mode, size, modification
    // and change times, a file's content hash.
    static QMap<QString, QByteArray> fingerprint(const QString &folder);
    // The sizes of the files in a package, added up; a single file's size.
    static qint64 filesSize(const QString &path);

private:
    QString m_folder;
};
