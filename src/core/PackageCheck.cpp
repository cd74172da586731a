#include "core/PackageCheck.h"

#include "core/Converter.h"
#include "core/DiskSpace.h"
#include "core/FileTree.h"
#include "core/FileUtils.h"
#include "core/KernelFileCopy.h"
#include "core/KeynoteDocument.h"
#include "core/PackageCopy.h"
#include "core/StopRequest.h"
#include "core/SystemTools.h"

#include <QFile>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
using Verdict = PackageCheck::Verdict;
using Kind = PackageCheck::Kind;

// A signal that comes during a check takes effect at its end, once the
// scratch run is gone, as during a conversion.
struct CheckScope
{
    CheckScope() { StopRequest::beginConversion(); }
    ~CheckScope() { StopRequest::endConversion(); }
};

QString errnoText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

Verdict refused(const QString &reason, qint64 bytes = -1)
{
    Verdict verdict;
    verdict.reason = reason;
    verdict.bytes = bytes;
    return verdict;
}

// Copies the package's compressed document into the scratch run, to be
// decompressed there. It is opened without following a link, so what is read
// is what the scan saw, even if the package changed since.
QString copyDocument(const QString &from, const QString &to)
{
    const int in = ::open(QFile::encodeName(from).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (in < 0)
        return errno == ENOENT ? KeynoteDocument::missingReason()
                               : QStringLiteral("index.apxl.gz could not be read (%1)").arg(errnoText(errno));
    struct stat st = {};
    if (::fstat(in, &st) != 0 || !S_ISREG(st.st_mode) || KeynoteDocument::compressedTooLarge(st.st_size)) {
        // gunzip passes over a folder of that name and leaves nothing to read.
        ::close(in);
        return S_ISREG(st.st_mode) ? KeynoteDocument::tooLargeReason() : KeynoteDocument::damagedReason();
    }
    const int out
        = ::open(QFile::encodeName(to).constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    int error = out < 0 ? errno : 0;
    const KernelFileCopy::Result copied = out < 0 ? KernelFileCopy::Failed : KernelFileCopy::copyRest(in, out, &error);
    ::close(in);
    if (out >= 0 && ::close(out) != 0 && copied == KernelFileCopy::Done)
        error = errno;
    if (copied == KernelFileCopy::Stopped)
        return QStringLiteral("stopped");
    if ((copied != KernelFileCopy::Done || error) && DiskSpace::isFull(error))
        return DiskSpace::fullReason();
    if (copied != KernelFileCopy::Done || error)
        return QStringLiteral("it could not be copied to the scratch folder (%1)").arg(errnoText(error));
    return QString();
}

Verdict checkSingleFile(const QString &path, qint64 bytes)
{
    bool readable = false;
    if (KeynoteDocument::isZipArchive(path, &readable)) {
        Verdict verdict = refused(KeynoteDocument::versionProblem(KeynoteDocument::Version::KeynoteFive), bytes);
        verdict.kind = Kind::KeynoteFiveDocument;
        return verdict;
    }
    // The converter's copy of it would fail, and it would say this.
    if (!readable)
        return refused(QStringLiteral("it could not be read"));
    return refused(KeynoteDocument::singleFileProblem(path), bytes);
}

Verdict checkFolder(const QString &package)
{
    // The run goes, with the document decompressed in it, when tools does.
    FileUtils tools(package);
    const std::optional<QString> scratch = tools.getTmpDir();
    if (!scratch)
        return refused(QStringLiteral("there is no private scratch folder to check in (%1)").arg(tools.tmpDirError()));
    // The converter's own tests, in its order: the document's size, then its
    // copy's walk, for a copy at the same depth in a run of its own.
    QString reason = KeynoteDocument::compressedSizeProblem(package);
    if (!reason.isEmpty())
        return refused(reason);
    const PackageCopy::Result scan = PackageCopy::scan(package, *scratch + tools.getPrezName());
    if (!scan.problem.isEmpty())
        return refused(scan.problem);

    // Without gunzip the document cannot be judged, and without the rest it cannot be converted.
    reason = SystemTools::problem(SystemTools::gunzip());
    if (!reason.isEmpty())
        return refused(reason, scan.bytes);
    const QString gzPath = *scratch + QLatin1String("index.apxl.gz");
    reason = copyDocument(package + QLatin1String("/index.apxl.gz"), gzPath);
    if (!reason.isEmpty())
        return refused(reason, scan.bytes);
    const ChildProcess::Result gunzip = KeynoteDocument::unpack(tools, gzPath);
    QString text;
    reason = KeynoteDocument::read(gunzip, *scratch + QLatin1String("index.apxl"), &text);
    if (!reason.isEmpty())
        return refused(reason, scan.bytes);

    const KeynoteDocument::Version version = KeynoteDocument::version(text);
    Verdict verdict = refused(KeynoteDocument::versionProblem(version), scan.bytes);
    if (version == KeynoteDocument::Version::None)
        return verdict;
    reason = version == KeynoteDocument::Version::KeynoteFour ? SystemTools::conversionProblem() : QString();
    if (!reason.isEmpty())
        return refused(reason, scan.bytes);
    verdict.kind
        = version == KeynoteDocument::Version::KeynoteFour ? Kind::KeynoteFourPackage : Kind::KeynoteFivePackage;
    verdict.slides = KeynoteDocument::slideCount(text);
    return verdict;
}
} // namespace

PackageCheck::Verdict PackageCheck::check(const QString &path)
{
    const CheckScope scope;
    // Taken as the converter takes it: a link in the last place names the package.
    const QString package = Converter::resolvedPackagePath(path);
    const QString nameProblem = Converter::nameProblem(package, nullptr, path);
    if (!nameProblem.isEmpty())
        return refused(nameProblem);
    FileTree::Kind kind;
    qint64 size = 0;
    if (!FileTree::kindAt(package, &kind, &size))
        return refused(PackageCopy::openProblem(errno));
    Verdict verdict;
    if (kind == FileTree::Kind::Folder)
        verdict = checkFolder(package);
    else if (kind == FileTree::Kind::File)
        verdict = checkSingleFile(package, size);
    else
        verdict = refused(QStringLiteral("it is %1").arg(FileTree::kindName(kind)));
    // A stop may have cut a tool short: what it left says nothing about the package.
    return StopRequest::pending() ? refused(QStringLiteral("stopped")) : verdict;
}
