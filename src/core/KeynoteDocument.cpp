#include "core/KeynoteDocument.h"

#include "core/Fatal.h"
#include "core/FileTree.h"
#include "core/FileUtils.h"
#include "core/Regex.h"

#include <QFile>
#include <QRegularExpression>
#include <QStringDecoder>

#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
const QString kKeynoteFourTag = QStringLiteral("key:version=\"72007061400\"");
const QString kKeynoteFiveTag = QStringLiteral("key:version=\"92008102400\"");
} // namespace

ChildProcess::Result KeynoteDocument::unpack(FileUtils &tools, const QString &gzPath)
{
    // One byte over the limit is how an outgrown document shows.
    tools.setFileSizeLimit(sizeLimit + 1);
    tools.runCommand(QStringLiteral("/usr/bin/gunzip"), {QStringLiteral("-f"), gzPath});
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
            return QStringLiteral("the document is larger than %1 MB").arg(sizeLimit / (1024 * 1024));
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
