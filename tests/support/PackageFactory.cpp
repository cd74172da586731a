#include "support/PackageFactory.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>

#include <sys/stat.h>

PackageFactory::PackageFactory(QString folder)
    : m_folder(std::move(folder))
{
}

QByteArray PackageFactory::keynoteFourDocument(const QString &title)
{
    return QByteArrayLiteral(
               "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<key:presentation xmlns:key=\"http://developer.apple.com/namespaces/keynote2\" "
               "key:version=\"72007061400\" key:play-mode=\"interactive\">\n"
               "  <key:size sfa:w=\"1024\" sfa:h=\"768\"/>\n"
               "  <key:title>")
           + title.toUtf8()
           + QByteArrayLiteral(
               "</key:title>\n"
               "  <key:slide-list><key:slide key:id=\"1\">Caf\xc3\xa9 \xe2\x80\x94 slide "
               "one</key:slide></key:slide-list>\n"
               "</key:presentation>\n");
}

QByteArray PackageFactory::keynoteFiveDocument()
{
    return keynoteFourDocument().replace("key:version=\"72007061400\"", "key:version=\"92008102400\"");
}

QByteArray PackageFactory::keynoteFourPresentation(int slides)
{
    // What the reader needs, found by trying it: the sf and sfa namespaces
    // declared (without them the slide size is lost and nothing can be
    // exported), the slide size, and the slide list. A title is a shape in the
    // slide's layer: the reader draws a shape only with a path, and a Keynote
    // '08 slide names it sf:shape. Masters and themes it does without.
    QByteArray slideList;
    for (int n = 1; n <= slides; ++n)
        slideList += QByteArrayLiteral(
                         "    <key:slide><key:page><sf:layers><sf:layer><sf:drawables><sf:shape>\n"
                         "      <sf:geometry><sf:naturalSize sfa:w=\"900\" sfa:h=\"120\"/>"
                         "<sf:position sfa:x=\"62\" sfa:y=\"40\"/></sf:geometry>\n"
                         "      <sf:path><sf:bezier-path><sf:bezier sfa:path=\"M 0 0 L 900 0 L 900 120 L 0 120 Z\"/>"
                         "</sf:bezier-path></sf:path>\n"
                         "      <sf:text><sf:text-storage><sf:text-body><sf:p>Slide ")
                     + QByteArray::number(n)
                     + QByteArrayLiteral(
                         "</sf:p></sf:text-body></sf:text-storage></sf:text>\n"
                         "    </sf:shape></sf:drawables></sf:layer></sf:layers></key:page></key:slide>\n");
    return QByteArrayLiteral(
               "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<key:presentation xmlns:key=\"http://developer.apple.com/namespaces/keynote2\" "
               "xmlns:sf=\"http://developer.apple.com/namespaces/sf\" "
               "xmlns:sfa=\"http://developer.apple.com/namespaces/sfa\" key:version=\"72007061400\">\n"
               "  <key:size sfa:w=\"1024\" sfa:h=\"768\"/>\n"
               "  <key:slide-list>\n")
           + slideList + QByteArrayLiteral("  </key:slide-list>\n</key:presentation>\n");
}

QMap<QString, QByteArray> PackageFactory::defaultMedia()
{
    return {
        {QStringLiteral("Data/photo one.jpg"), pseudoRandom(40000, 1)},
        {QStringLiteral("Data/movie.v2.mov"), pseudoRandom(90000, 2)},
        {QStringLiteral("QuickLook/Thumbnail.jpg"), pseudoRandom(3000, 3)},
        {QStringLiteral("Contents/PkgInfo"), QByteArrayLiteral("????????")},
    };
}

QByteArray PackageFactory::pseudoRandom(qint64 size, quint32 seed)
{
    QRandomGenerator generator(seed);
    QByteArray bytes(size, Qt::Uninitialized);
    for (qint64 i = 0; i < size; ++i)
        bytes[i] = char(generator.generate() & 0xff);
    return bytes;
}

QByteArray PackageFactory::gzip(const QByteArray &data)
{
    QProcess process;
    process.start(QStringLiteral("gzip"), {QStringLiteral("-c"), QStringLiteral("-n")});
    process.waitForStarted();
    process.write(data);
    process.closeWriteChannel();
    process.waitForFinished(-1);
    return process.readAllStandardOutput();
}

static void writeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        qFatal("cannot write %s", qPrintable(path));
    file.write(content);
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
    QDir().mkpath(package);
    writeFile(package + QLatin1String("/index.apxl.gz"), gzBytes);
    return package;
}

QMap<QString, QByteArray> PackageFactory::snapshot(const QString &folder)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    const QDir base(folder);
    while (it.hasNext()) {
        const QString path = it.next();
        QFile file(path);
        file.open(QIODevice::ReadOnly);
        files.insert(base.relativeFilePath(path), file.readAll());
    }
    return files;
}

QMap<QString, QByteArray> PackageFactory::fingerprint(const QString &folder)
{
    QMap<QString, QByteArray> items;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    for (QString path = folder; !path.isEmpty(); path = it.hasNext() ? it.next() : QString()) {
        struct stat st = {};
        if (::lstat(QFile::encodeName(path).constData(), &st) != 0)
            continue;
        QByteArray item = QByteArray::number(st.st_mode, 8) + ' ' + QByteArray::number(qint64(st.st_size));
        for (const timespec &time : {st.st_mtim, st.st_ctim})
            item += ' ' + QByteArray::number(qint64(time.tv_sec)) + '.' + QByteArray::number(qint64(time.tv_nsec));
        QFile file(path);
        if (S_ISREG(st.st_mode) && file.open(QIODevice::ReadOnly)) // never a FIFO's
            item += ' ' + QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256).toHex();
        items.insert(path, item);
    }
    return items;
}

qint64 PackageFactory::filesSize(const QString &path)
{
    if (QFileInfo(path).isFile())
        return QFileInfo(path).size();
    qint64 bytes = 0;
    QDirIterator it(path, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext())
        bytes += QFileInfo(it.next()).size();
    return bytes;
}
