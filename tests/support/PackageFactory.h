#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

// Builds Keynote '08 packages in a folder for tests: a folder NAME.key with a
// gzip-compressed index.apxl carrying the version tag, and media beside it.
class PackageFactory
{
public:
    explicit PackageFactory(QString folder);

    // A Keynote '08 document that a real reader (LibreOffice Impress, through
    // libetonyek) loads once converted: one page per slide, each showing
    // "Slide N", and the title kept in its attributes.
    static QByteArray keynoteFourDocument(const QString &title = QStringLiteral("Talk"), int slides = 1);
    static QByteArray keynoteFiveDocument();

    // Returns the package's path. files: relative path -> content, besides index.apxl.gz.
    QString make(const QString &name, const QByteArray &document = keynoteFourDocument(),
                 const QMap<QString, QByteArray> &files = defaultMedia()) const;
    QString makeWithoutIndex(const QString &name) const;
    // A package whose document is stored as given, not compressed.
    QString makeWithRawIndex(const QString &name, const QByteArray &gzBytes) const;
    // A package with Data/media.bin of incompressible bytes, written in chunks.
    QString makeLarge(const QString &name, qint64 mediaBytes, quint32 seed,
                      const QByteArray &document = keynoteFourDocument()) const;

    static QMap<QString, QByteArray> defaultMedia();
    static QByteArray gzip(const QByteArray &data);
    // Bytes that deflate cannot shrink, like photos and movies; the same for the same seed.
    static QByteArray noise(qint64 size, quint32 seed);

private:
    QString m_folder;
};
