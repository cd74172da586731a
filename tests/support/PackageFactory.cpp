#include "support/PackageFactory.h"

#include <QtCore>

#include <cstring>

namespace {
bool writeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}
} // namespace

PackageFactory::PackageFactory(QString folder)
    : m_folder(std::move(folder))
{
}

QByteArray PackageFactory::keynoteFourDocument(const QString &title, int slides)
{
    // What the reader needs, found by trying it: the sf and sfa namespaces
    // declared (without them the slide size is lost and nothing can be
    // exported), the slide size, and the slide list. A title is a shape in the
    // slide's layer, which the reader draws only with a path.
    QByteArray slideList;
    for (int n = 1; n <= slides; ++n)
        slideList += "<key:slide><key:page><sf:layers><sf:layer><sf:drawables><sf:shape><sf:geometry>"
                     "<sf:naturalSize sfa:w=\"900\" sfa:h=\"120\"/><sf:position sfa:x=\"62\" sfa:y=\"40\"/>"
                     "</sf:geometry><sf:path><sf:bezier-path><sf:bezier sfa:path=\"M 0 0 L 900 0 L 900 120 L 0 120 Z\"/>"
                     "</sf:bezier-path></sf:path><sf:text><sf:text-storage><sf:text-body><sf:p>Slide "
                     + QByteArray::number(n)
                     + " \xe2\x80\x94 caf\xc3\xa9</sf:p></sf:text-body></sf:text-storage></sf:text></sf:shape>"
                       "</sf:drawables></sf:layer></sf:layers></key:page></key:slide>\n";
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<key:presentation "
           "xmlns:key=\"http://developer.apple.com/namespaces/keynote2\" "
           "xmlns:sf=\"http://developer.apple.com/namespaces/sf\" "
           "xmlns:sfa=\"http://developer.apple.com/namespaces/sfa\" "
           "key:version=\"72007061400\" key:title=\""
           + title.toUtf8() + "\">\n<key:size sfa:w=\"1024\" sfa:h=\"768\"/>\n<key:slide-list>\n" + slideList
           + "</key:slide-list>\n</key:presentation>\n";
}

QByteArray PackageFactory::keynoteFiveDocument()
{
    return keynoteFourDocument().replace("key:version=\"72007061400\"", "key:version=\"92008102400\"");
}

QMap<QString, QByteArray> PackageFactory::defaultMedia()
{
    return {{QStringLiteral("Data/photo one.jpg"), noise(40000, 1)},
            {QStringLiteral("Data/movie.v2.mov"), noise(90000, 2)},
            {QStringLiteral("QuickLook/Thumbnail.jpg"), noise(3000, 3)},
            {QStringLiteral("Contents/PkgInfo"), QByteArrayLiteral("????????")}};
}

QByteArray PackageFactory::noise(qint64 size, quint32 seed)
{
    // splitmix64: tiny and fast, and deflate finds nothing in what it gives.
    QByteArray bytes(size, Qt::Uninitialized);
    quint64 state = seed;
    for (qint64 i = 0; i < size; i += 8) {
        quint64 z = (state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        z ^= z >> 31;
        std::memcpy(bytes.data() + i, &z, size_t(qMin<qint64>(8, size - i)));
    }
    return bytes;
}

QByteArray PackageFactory::gzip(const QByteArray &data)
{
    QProcess process;
    process.start(QStringLiteral("gzip"), {QStringLiteral("-c"), QStringLiteral("-n")});
    process.write(data);
    process.closeWriteChannel();
    process.waitForFinished(-1);
    return process.readAllStandardOutput();
}

QString PackageFactory::make(const QString &name, const QByteArray &document,
                             const QMap<QString, QByteArray> &files) const
{
    const QString package = makeWithRawIndex(name, gzip(document));
    for (auto it = files.begin(); it != files.end(); ++it)
        writeFile(package + QLatin1Char('/') + it.key(), it.value());
    return package;
}

QString PackageFactory::makeWithoutIndex(const QString &name) const
{
    const QString package = make(name);
    QFile::remove(package + QLatin1String("/index.apxl.gz"));
    return package;
}

QString PackageFactory::makeWithRawIndex(const QString &name, const QByteArray &gzBytes) const
{
    const QString package = m_folder + QLatin1Char('/') + name;
    if (!writeFile(package + QLatin1String("/index.apxl.gz"), gzBytes))
        qFatal("cannot write %s", qPrintable(package));
    return package;
}

QString PackageFactory::makeLarge(const QString &name, qint64 mediaBytes, quint32 seed,
                                  const QByteArray &document) const
{
    const QString package = make(name, document, {});
    QFile media(package + QLatin1String("/Data/media.bin"));
    QDir().mkpath(package + QLatin1String("/Data"));
    bool written = media.open(QIODevice::WriteOnly);
    for (qint64 left = mediaBytes, chunk = 1 << 20; written && left > 0; left -= chunk)
        written = media.write(noise(qMin(left, chunk), seed++)) == qMin(left, chunk);
    if (!written)
        qFatal("cannot write %s", qPrintable(package));
    return package;
}
