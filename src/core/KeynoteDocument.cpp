#include "core/KeynoteDocument.h"

#include "core/DiskSpace.h"
#include "core/Fatal.h"
#include "core/FileTree.h"
#include "core/FileUtils.h"
#include "core/Regex.h"
#include "core/StopRequest.h"
#include "core/SystemTools.h"
#include "core/Waiting.h"

#include <QFile>
#include <QRegularExpression>
#include <QStringDecoder>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

namespace {
const QString kKeynoteFourTag = QStringLiteral("key:version=\"72007061400\"");
const QString kKeynoteFiveTag = QStringLiteral("key:version=\"92008102400\"");
} // namespace

namespace {
// How many bytes gzip -d would write for the file at path, counted up to
// limit + 1 and no further; what zlib cannot read as gzip counts as far as it
// got, and gunzip then says what it is. In memory, a piece at a time: a few
// kilobytes of compressed zeros must not fill the scratch disk before their
// size is known.
qint64 decompressedSize(const QString &path, qint64 limit)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat st = {};
    if (fd < 0 || ::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        if (fd >= 0)
            ::close(fd);
        return 0;
    }
    z_stream stream = {};
    std::vector<unsigned char> in(64 * 1024), out(256 * 1024);
    qint64 total = 0;
    bool ended = inflateInit2(&stream, 16 + MAX_WBITS) != Z_OK; // gzip members only
    while (!ended && total <= limit && !StopRequest::pending()) {
        if (stream.avail_in == 0) {
            const ssize_t got = ::read(fd, in.data(), in.size());
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                break;
            stream.next_in = in.data();
            stream.avail_in = uInt(got);
        }
        stream.next_out = out.data();
        stream.avail_out = uInt(out.size());
        const int status = inflate(&stream, Z_NO_FLUSH);
        total += qint64(out.size() - stream.avail_out);
        // Members follow one another, as gzip -d reads them.
        if (status == Z_STREAM_END)
            ended = inflateReset(&stream) != Z_OK;
        else if (status != Z_OK && (status != Z_BUF_ERROR || stream.avail_in > 0))
            ended = true;
        Waiting::turnEvents();
    }
    inflateEnd(&stream);
    ::close(fd);
    return total;
}
} // namespace

ChildProcess::Result KeynoteDocument::unpack(FileUtils &tools, const QString &gzPath)
{
    const qint64 size = decompressedSize(gzPath, sizeLimit);
    if (StopRequest::pending())
        return ChildProcess::Result();
    if (size > sizeLimit) {
        ChildProcess::Result outgrown;
        outgrown.started = outgrown.crashed = true;
        outgrown.exitCode = SIGXFSZ;
        return outgrown;
    }
    // One byte over the limit is how an outgrown document shows, should the count have missed it.
    tools.setFileSizeLimit(sizeLimit + 1);
    tools.runCommand(SystemTools::gunzip(), {QStringLiteral("-f"), gzPath});
    tools.setFileSizeLimit(0);
    return tools.lastCommand();
}

bool KeynoteDocument::wasMissing(const ChildProcess::Result &gunzip)
{
    // gunzip's complaint about a missing file is how a package without its document shows.
    const QString said = FileUtils::decodeOutput(gunzip.standardOutput) + QLatin1Char(' ')
                         + FileUtils::decodeOutput(gunzip.standardError);
    return gunzip.started && Regex(QStringLiteral("No such file")).hasMatch(said);
}

QString KeynoteDocument::read(const ChildProcess::Result &gunzip, const QString &indexPath, QString *text)
{
    QByteArray bytes;
    int readError = 0;
    bool tooLarge = false;
    const bool outgrew
        = (gunzip.crashed && gunzip.exitCode == SIGXFSZ) || gunzip.standardError.contains("File too large");
    if (outgrew || !FileTree::readFile(indexPath, sizeLimit, &bytes, &readError, &tooLarge)) {
        if (outgrew || tooLarge)
            return tooLargeReason();
        // Whatever it wrote until then, the document did not fit on the disk.
        if (DiskSpace::saysFull(gunzip.standardError))
            return DiskSpace::fullReason();
        if (!gunzip.succeeded())
            return damagedReason();
        return QStringLiteral("index.apxl could not be read (%1)")
            .arg(QString::fromLocal8Bit(std::strerror(readError)));
    }
    // A document that is not UTF-8 is no Keynote '08 document.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    *text = decoder(bytes);
    if (decoder.hasError()) {
        *text = QString();
        return QStringLiteral("the document is not UTF-8 text");
    }
    return QString();
}

KeynoteDocument::Version KeynoteDocument::version(const QString &text)
{
    // A document already converted is told apart from one that is no Keynote document.
    if (Regex(kKeynoteFourTag).hasMatch(text))
        return Version::KeynoteFour;
    return Regex(kKeynoteFiveTag).hasMatch(text) ? Version::KeynoteFive : Version::None;
}

QString KeynoteDocument::versionProblem(Version version)
{
    switch (version) {
    case Version::KeynoteFour:
        return QString();
    case Version::KeynoteFive:
        return QStringLiteral("already in the Keynote '09 format");
    case Version::None:
        break;
    }
    return QStringLiteral("the document has no Keynote '08 version tag");
}

void KeynoteDocument::rewriteVersionTag(QString &text)
{
    // Every occurrence, in any letter case, over the whole text.
    const QRegularExpression tag(kKeynoteFourTag, QRegularExpression::CaseInsensitiveOption);
    if (!tag.isValid())
        Fatal::fail(QStringLiteral("the version pattern does not compile"));
    text.replace(tag, kKeynoteFiveTag);
}

int KeynoteDocument::slideCount(const QString &text)
{
    // Keynote writes each slide as a key:slide element, in the key:slide-list
    // and, for a slide indented under another, inside that slide's own list;
    // master slides are key:master-slide elements. So every key:slide start
    // tag is a slide, and the character after the name keeps out the longer
    // names (key:slide-list, key:slide-number). Keynote always binds its
    // namespace to the prefix "key".
    static const QString start = QStringLiteral("<key:slide");
    int slides = 0;
    for (qsizetype at = text.indexOf(start); at >= 0; at = text.indexOf(start, at + start.size())) {
        const qsizetype after = at + start.size();
        const QChar next = after < text.size() ? text.at(after) : QChar();
        if (next == QLatin1Char('>') || next == QLatin1Char('/') || next.isSpace())
            ++slides;
    }
    return slides;
}

bool KeynoteDocument::isZipArchive(const QString &path, bool *readable)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (readable)
        *readable = fd >= 0;
    if (fd < 0)
        return false;
    struct stat st = {};
    char signature[4] = {};
    ssize_t got = -1;
    if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
        while ((got = ::read(fd, signature, sizeof signature)) < 0 && errno == EINTR) {}
    }
    ::close(fd);
    return got == sizeof signature && std::memcmp(signature, "PK\x03\x04", sizeof signature) == 0;
}

QString KeynoteDocument::singleFileProblem(const QString &path)
{
    // Keynote '09 keeps a presentation in one zip archive: a single file that
    // starts as one is a converted presentation, not a damaged package.
    return isZipArchive(path) ? versionProblem(Version::KeynoteFive)
                              : QStringLiteral("it is a single file, not a Keynote '08 package");
}

QString KeynoteDocument::missingReason()
{
    return QStringLiteral("index.apxl.gz is missing");
}

QString KeynoteDocument::damagedReason()
{
    return QStringLiteral("the document is damaged");
}

QString KeynoteDocument::compressedSizeProblem(const QString &packagePath)
{
    FileTree::Kind kind;
    qint64 bytes = 0;
    const bool tooLarge = FileTree::kindAt(packagePath + QLatin1String("/index.apxl.gz"), &kind, &bytes)
                          && kind == FileTree::Kind::File && compressedTooLarge(bytes);
    return tooLarge ? tooLargeReason() : QString();
}

QString KeynoteDocument::tooLargeReason()
{
    return QStringLiteral("the document is larger than %1 MB").arg(sizeLimit / (1024 * 1024));
}
