#include "core/Converter.h"

#include "core/ConversionEvents.h"
#include "core/DiskSpace.h"
#include "core/Fatal.h"
#include "core/FileTree.h"
#include "core/FileUtils.h"
#include "core/FolderBookmark.h"
#include "core/Logging.h"
#include "core/NotificationCenter.h"
#include "core/OutputFile.h"
#include "core/OutputFolder.h"
#include "core/PackageCopy.h"
#include "core/ScratchDir.h"
#include "core/ScratchRun.h"
#include "core/SettingsStore.h"
#include "core/StepProgress.h"
#include "core/StopRequest.h"
#include "core/SystemTools.h"
#include "system/SystemCalls.h"

#include <QFile>
#include <QFileInfo>
#include <QUrl>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
// The extension of the last path component, as a URL gives it: none for a
// name without a dot or one that only starts with a dot.
QString pathExtension(const QUrl &url)
{
    QString path = url.path(QUrl::FullyDecoded);
    while (path.endsWith(QLatin1Char('/')))
        path.chop(1);
    const QString name = path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    return dot > 0 ? name.mid(dot + 1) : QString();
}

QString errnoText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// The last thing a tool said, after its own name: "No space left on device".
QString lastComplaint(const QByteArray &standardError)
{
    const QStringList lines = QString::fromUtf8(standardError).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    if (lines.isEmpty())
        return QString();
    const QString line = lines.last().trimmed();
    const qsizetype colon = line.lastIndexOf(QLatin1String(": "));
    return colon >= 0 ? line.mid(colon + 2) : line;
}

// Whether anything, a dangling link included, has this name in the folder.
bool nameTaken(const OutputFolder &folder, const QString &name)
{
    struct stat st = {};
    return ::fstatat(folder.descriptor(), QFile::encodeName(name).constData(), &st, AT_SYMLINK_NOFOLLOW) == 0;
}

// Ends the conversion's window for deferred signals however doConvert returns.
struct ConversionScope
{
    ConversionScope() { StopRequest::beginConversion(); }
    ~ConversionScope() { StopRequest::endConversion(); }
};
} // namespace

Converter::Converter() = default;

Converter::Converter(const QString &prezOrigPath)
    : m_prezOrigPath(prezOrigPath)
{
}

Converter::~Converter() = default;

QString Converter::prezOrigPath() const
{
    return m_prezOrigPath;
}
void Converter::setPrezOrigPath(const QString &path)
{
    m_prezOrigPath = path;
}
QString Converter::outputPrezName() const
{
    return m_outputPrezName;
}
void Converter::setOutputPrezName(const QString &name)
{
    m_outputPrezName = name;
}
qint64 Converter::errorOccurred() const
{
    return m_errorOccurred;
}
void Converter::setErrorOccurred(qint64 code)
{
    m_errorOccurred = code;
}
QString Converter::errorReason() const
{
    return m_errorReason;
}
void Converter::setErrorReason(const QString &reason)
{
    m_errorReason = reason;
}

std::unique_ptr<FileUtils> Converter::createFileUtils(const QString &prezOrigPath)
{
    return std::make_unique<FileUtils>(prezOrigPath);
}

void Converter::post(const QString &eventName)
{
    NotificationCenter::defaultCenter().post(eventName, this);
}

Converter::ArchiveLayout Converter::archiveLayoutSetting()
{
    const QString name
        = SettingsStore::standard().string(SettingKey::archiveLayout, layoutName(ArchiveLayout::Reference));
    return name == layoutName(ArchiveLayout::PackageAtRoot) ? ArchiveLayout::PackageAtRoot : ArchiveLayout::Reference;
}

QString Converter::layoutName(ArchiveLayout layout)
{
    return layout == ArchiveLayout::PackageAtRoot ? QStringLiteral("root") : QStringLiteral("reference");
}

bool Converter::cannotRepresent(const QString &path)
{
    // Bytes that are not UTF-8 come back from the system as replacement
    // characters, and the name so made names nothing on disk.
    return !path.isValidUtf16() || (path.contains(QChar::ReplacementCharacter) && !FileTree::kindAt(path, nullptr));
}

QString Converter::resolvedPackagePath(const QString &path)
{
    // The copy is of the real package, never of a link through which a tool
    // would write into the source.
    FileTree::Kind kind;
    if (!FileTree::kindAt(path, &kind) || kind != FileTree::Kind::Link)
        return path;
    const QString target = QFileInfo(path).canonicalFilePath();
    return target.isEmpty() ? path : target;
}

QString Converter::nameProblem(const QString &path, Outcome *outcome, const QString &givenPath)
{
    // A name that cannot be represented is refused as it is, never copied under a mangled one.
    if (cannotRepresent(path)) {
        if (outcome)
            *outcome = NotKeynoteFour;
        return QStringLiteral("its name is not valid UTF-8");
    }

    // Only packages named *.key are taken.
    const QByteArray escaped = QUrl::toPercentEncoding(path, "/");
    const QUrl url(QString::fromLatin1(escaped), QUrl::StrictMode);
    const QString extension = url.isValid() ? pathExtension(url) : QString();
    DW_LOG(QLatin1String("file extension : ") + extension);
    if (!url.isValid() || extension != QLatin1String("key")) {
        if (outcome)
            *outcome = NotKeynote;
        // Say what it is: a link named as a package, a name that is all extension.
        if (!givenPath.isEmpty() && givenPath != path)
            return QStringLiteral("it links to %1, whose name does not end in .key").arg(path);
        if (path.section(QLatin1Char('/'), -1, -1, QString::SectionSkipEmpty) == QLatin1String(".key"))
            return QStringLiteral("its name is only the extension .key");
        return QStringLiteral("its name does not end in .key");
    }
    return QString();
}

QString Converter::numberedName(qint64 n) const
{
    if (m_prezNameWithoutExt.isEmpty())
        return FileUtils(prezOrigPath()).getPrezNameWithoutExt() + QLatin1Char('.') + QString::number(n)
               + QLatin1String(".key");
    return m_prezNameWithoutExt + QLatin1Char('.') + QString::number(n) + QLatin1String(".key");
}

// What one conversion works with, from one stage to the next. Its FileUtils
// owns the scratch folder, which goes with it.
struct Converter::Job
{
    std::unique_ptr<FileUtils> fileUtils;
    QString tmpDir;
    QString prezName;
    QString prezNameWithoutExt;
    QString copyPath;
    std::shared_ptr<const OutputFolder> output; // none when no folder was chosen
    // Where the file goes: the output folder, or the subfolder asked for,
    // none until that is made; and its path, for messages.
    std::shared_ptr<const OutputFolder> target;
    QString targetPath;
    std::optional<QUrl> outUrl; // the bookmarked folder
    FileTree::Kind copyKind = FileTree::Kind::Other;
    PackageCopy::Result copy;
    ChildProcess::Result gunzip;
    std::unique_ptr<StepProgress> stages; // only while a window follows the stages

    QString indexPath() const { return copyPath + QLatin1String("/index.apxl"); }
};

void Converter::watchStage(Job &job, const std::function<double(const QByteArray &, qint64)> &share)
{
    m_stageShare = 0.0;
    if (!job.stages || !share) {
        job.fileUtils->setCommandWatcher(nullptr);
        return;
    }
    job.fileUtils->setCommandWatcher(
        [this, share](const QByteArray &output, qint64 processId) { advanceStage(share(output, processId)); });
}

void Converter::advanceStage(double share)
{
    // The bar only goes forward, and only when there is something new to show.
    if (share > m_stageShare + 0.001) {
        m_stageShare = share;
        post(ConversionEvents::stageProgress);
    }
}

void Converter::doConvert(const QString &outputPath)
{
    const ConversionScope scope;

    setErrorOccurred(NoError);
    setErrorReason(QString());
    m_packageBytes = -1;
    const QString given = prezOrigPath();
    setPrezOrigPath(resolvedPackagePath(given));
    Job job;
    job.fileUtils = createFileUtils(prezOrigPath());

    if (!checkPackageName(given))
        return;
    if (!checkDocumentSize(job))
        return;
    if (!openOutputFolder(job, outputPath))
        return;
    if (skipIfDone(job))
        return;
    if (!checkTools(job))
        return;
    if (!openScratch(job))
        return;
    if (!copyToScratch(job))
        return;
    if (!checkCopy(job))
        return;
    if (!unpackDocument(job))
        return;
    QString document;
    if (!readDocument(job, &document))
        return;
    if (!rewriteVersionTag(job, document))
        return;
    if (!writeDocumentBack(job, document))
        return;
    if (!packArchive(job))
        return;
    if (!chooseFreeName(job))
        return;
    if (!writeIntoOutputFolder(job))
        return;

    clearScratch(job);
    post(ConversionEvents::finished);
}

bool Converter::checkPackageName(const QString &givenPath)
{
    Outcome outcome = NoError;
    const QString problem = nameProblem(prezOrigPath(), &outcome, givenPath);
    if (problem.isEmpty())
        return true;
    DW_LOG(QLatin1String("not a keynote file...!"));
    setErrorOccurred(outcome);
    setErrorReason(problem);
    post(outcome == NotKeynote ? ConversionEvents::finishedWithErrorNotKeynote
                               : ConversionEvents::finishedWithErrorNotKeynoteFour);
    return false;
}

bool Converter::checkDocumentSize(Job &job)
{
    const QString reason = KeynoteDocument::compressedSizeProblem(prezOrigPath());
    if (reason.isEmpty())
        return true;
    rejectPackage(job, QStringLiteral("error : index.apxl.gz is too large"), reason);
    return false;
}

bool Converter::openOutputFolder(Job &job, const QString &outputPath)
{
    // Opened once, now: whatever takes the folder's name later, a link
    // included, the file goes where the folder was when the conversion began.
    job.output = m_outputFolder;
    SettingsStore &settings = SettingsStore::standard();
    if (!job.output && settings.contains(SettingKey::bookmarkData)) {
        job.outUrl = FolderBookmark::platform().resolve(settings.requiredData(SettingKey::bookmarkData));
        if (job.outUrl)
            job.output = OutputFolder::open(job.outUrl->toLocalFile());
    }
    // The subfolder asked for, as far as it exists yet: a link or a file in
    // its way is refused now, before any work. It is made when the file is written.
    job.targetPath = m_subfolder.isEmpty() ? outputPath : outputPath + QLatin1Char('/') + m_subfolder;
    job.target = job.output;
    QString problem;
    if (job.output && job.output->isOpen() && !m_subfolder.isEmpty())
        job.target = job.output->subfolder(m_subfolder, false, &problem);
    if (!problem.isEmpty()) {
        failWith(job, OutputNotWritten,
                 QStringLiteral("could not write %1 (%2)")
                     .arg(job.targetPath + QLatin1Char('/') + job.fileUtils->getPrezName(), problem));
        return false;
    }
    // However it is reached, the package's own folders are never written into.
    const std::shared_ptr<const OutputFolder> &written = job.target ? job.target : job.output;
    if (!written || !written->isInside(prezOrigPath()))
        return true;
    setErrorOccurred(OutputNotWritten);
    setErrorReason(QStringLiteral("the output folder is inside the package, which is never changed"));
    post(ConversionEvents::finishedWithErrorNotKeynoteFour);
    return false;
}

bool Converter::skipIfDone(Job &job)
{
    // Nothing is copied for a package converted before: a second run over an archive costs next to nothing.
    const QString name = job.fileUtils->getPrezName();
    if (!m_skipExisting || !job.target || !job.target->isOpen() || !nameTaken(*job.target, name))
        return false;
    DW_LOG(QLatin1String("already converted : ") + name);
    setOutputPrezName(name);
    failWith(job, AlreadyDone, QStringLiteral("%1 exists").arg(job.targetPath + QLatin1Char('/') + name));
    return true;
}

bool Converter::checkTools(Job &job)
{
    // Said before anything is copied, rather than met on the way as a tool that would not start.
    const QString problem = SystemTools::conversionProblem();
    if (problem.isEmpty())
        return true;
    failWith(job, OutputNotWritten, problem);
    return false;
}

bool Converter::openScratch(Job &job)
{
    // The scratch folder is this run's own.
    DW_LOG(QLatin1String("indexFilePath ") + prezOrigPath() + QLatin1String("/index.apxl.gz"));
    if (!placeScratch(job))
        return false;
    const std::optional<QString> scratch = job.fileUtils->getTmpDir();
    if (!scratch) {
        setErrorOccurred(NotKeynoteFour);
        setErrorReason(
            QStringLiteral("there is no private scratch folder to convert in (%1)").arg(job.fileUtils->tmpDirError()));
        post(ConversionEvents::finishedWithErrorNotKeynoteFour);
        return false;
    }
    job.tmpDir = *scratch;
    DW_LOG(QLatin1String("tmpDir : ") + job.tmpDir);
    job.prezName = job.fileUtils->getPrezName();
    job.prezNameWithoutExt = job.fileUtils->getPrezNameWithoutExt();
    m_prezNameWithoutExt = job.prezNameWithoutExt;
    DW_LOG(QLatin1String("name : ") + job.prezNameWithoutExt);
    job.copyPath = job.tmpDir + job.prezName;
    return true;
}

bool Converter::placeScratch(Job &job)
{
    // Run folders and hidden files a killed conversion left in the output folder go first.
    const bool output = job.output && job.output->isOpen();
    if (output)
        ScratchRun::sweepStaleInOutputFolder(job.output->descriptor());

    const qint64 bytes = FileTree::bytesOfFiles(prezOrigPath());
    m_packageBytes = bytes;
    const qint64 needed = DiskSpace::sum(DiskSpace::sum(bytes, bytes), DiskSpace::sum(bytes / 10, spareScratchBytes));
    const qint64 scratchFree = DiskSpace::available(ScratchDir::path());
    if (scratchFree < 0 || scratchFree >= needed)
        return true;
    const qint64 outputFree = output ? job.output->available() : -1;
    // Never where another user could rename the run folder while the tools use its path.
    const QString openToOthers = outputFree >= needed ? job.output->openToOthersAt() : QString();
    if (outputFree >= needed && openToOthers.isEmpty()) {
        DW_LOG(QLatin1String("working in the output folder : ") + job.output->path());
        job.fileUtils->runInFolder(job.output);
        return true;
    }
    setErrorOccurred(OutputNotWritten);
    if (!openToOthers.isEmpty()) {
        setErrorReason(QStringLiteral("there is not enough free space in the scratch folder to convert it (it needs "
                                      "about %1, and there are %2 free), and the output folder cannot serve instead: "
                                      "other users may rename what is in %3")
                           .arg(DiskSpace::describe(needed), DiskSpace::describe(scratchFree), openToOthers));
        post(ConversionEvents::finishedWithErrorNotKeynoteFour);
        return false;
    }
    setErrorReason(QStringLiteral("there is not enough free space to convert it: it needs about %1, and there are "
                                  "%2 free for the scratch folder and %3 for the output folder")
                       .arg(DiskSpace::describe(needed), DiskSpace::describe(scratchFree),
                            DiskSpace::describe(qMax<qint64>(0, outputFree))));
    post(ConversionEvents::finishedWithErrorNotKeynoteFour);
    return false;
}

bool Converter::copyToScratch(Job &job)
{
    // Nothing already at the copy's names may mix with the copy.
    clearScratch(job);
    post(ConversionEvents::progress);
    if (stopIfAsked(job))
        return false;

    if (NotificationCenter::defaultCenter().observerCount(ConversionEvents::stageProgress) > 0)
        job.stages = std::make_unique<StepProgress>(prezOrigPath());
    // By descriptor, never by name: nothing swapped in meanwhile can send it elsewhere.
    m_stageShare = 0.0;
    job.copy = PackageCopy::copy(prezOrigPath(), job.tmpDir, job.prezName, [&](qint64 bytes) {
        if (job.stages)
            advanceStage(job.stages->copyShare(bytes));
    });
    DW_LOG(QLatin1String("prezName ") + job.prezName);
    post(ConversionEvents::progress);
    DW_LOG(QLatin1String("posted notif"));
    return !stopIfAsked(job);
}

bool Converter::checkCopy(Job &job)
{
    // The copy is whole and holds only folders and regular files, or the walk said why not.
    if (!job.copy.problem.isEmpty()) {
        rejectPackage(job, QStringLiteral("error : the copy is not whole"), job.copy.problem);
        return false;
    }
    job.copyKind = job.copy.kind;
    return true;
}

bool Converter::unpackDocument(Job &job)
{
    const QString gzPath = job.copyPath + QLatin1String("/index.apxl.gz");
    // gunzip's complaint names the path, and a long name of wide characters
    // can push it past what the version test's measure searches: the copy
    // itself says whether the document was there.
    const bool absent = job.copyKind == FileTree::Kind::Folder && !FileTree::kindAt(gzPath, nullptr);
    job.gunzip = KeynoteDocument::unpack(*job.fileUtils, gzPath);
    // What the command printed, as runCommand returns it: standard output, a blank, standard error.
    DW_LOG(QLatin1String("expOutput ''") + FileUtils::decodeOutput(job.gunzip.standardOutput) + QLatin1Char(' ')
           + FileUtils::decodeOutput(job.gunzip.standardError) + QLatin1String("''"));
    if (stopIfAsked(job))
        return false;
    if (absent || KeynoteDocument::wasMissing(job.gunzip)) {
        rejectPackage(job, QStringLiteral("error : could not find index.apxl.gz to unzip"),
                      KeynoteDocument::missingReason());
        return false;
    }
    return true;
}

bool Converter::readDocument(Job &job, QString *document)
{
    post(ConversionEvents::progress);
    if (stopIfAsked(job))
        return false;
    // A single file holds no document to read: it is a Keynote '09 archive or no Keynote file.
    const QString reason = job.copyKind == FileTree::Kind::File
                               ? KeynoteDocument::singleFileProblem(job.copyPath)
                               : KeynoteDocument::read(job.gunzip, job.indexPath(), document);
    if (!reason.isEmpty()) {
        rejectPackage(
            job, QStringLiteral("Error : could not find the index.apxl file. probably not a keynote 08 presentation"),
            reason);
        return false;
    }
    return true;
}

bool Converter::rewriteVersionTag(Job &job, QString &document)
{
    const QString reason = KeynoteDocument::versionProblem(KeynoteDocument::version(document));
    if (!reason.isEmpty()) {
        // Kept as it has always been written: this log line says Numbers.
        rejectPackage(job, QStringLiteral("not a Numbers 4 file"), reason);
        return false;
    }
    KeynoteDocument::rewriteVersionTag(document);
    return true;
}

bool Converter::writeDocumentBack(Job &job, QString &document)
{
    // The document is written back in place, never through a link; a document
    // that cannot be written back would make a broken archive.
    post(ConversionEvents::progress);
    if (stopIfAsked(job))
        return false;
    int writeError = 0;
    const bool rewritten = FileTree::rewriteFile(job.indexPath(), document.toUtf8(), &writeError);
    document = QString();
    if (!rewritten) {
        failWith(
            job, OutputNotWritten,
            DiskSpace::isFull(writeError)
                ? DiskSpace::fullReason()
                : QStringLiteral("could not write the document in the scratch folder (%1)").arg(errnoText(writeError)));
        return false;
    }
    return true;
}

bool Converter::packArchive(Job &job)
{
    post(ConversionEvents::progress);
    if (stopIfAsked(job))
        return false;
    const QString nameWithoutExt = job.fileUtils->getPrezNameWithoutExt();
    DW_LOG(QLatin1String("prezNameWithoutExt ") + nameWithoutExt);
    const QString mvOutput = job.fileUtils->runCommand(SystemTools::mv(), {job.copyPath, job.tmpDir + nameWithoutExt});
    DW_LOG(QLatin1String("mvOutput ") + mvOutput);
    post(ConversionEvents::progress);
    if (stopIfAsked(job))
        return false;

    // The reference layout sets no working folder, so the entries keep the
    // scratch folder's path; the root one zips from inside the package, with
    // no extra attributes (owner ids) of this machine.
    const QString zipName = job.fileUtils->getZipName();
    const QString packedFolder = job.tmpDir + nameWithoutExt;
    QStringList zipArguments{QStringLiteral("-r"), job.tmpDir + zipName, packedFolder};
    if (archiveLayoutSetting() == ArchiveLayout::PackageAtRoot) {
        zipArguments = {QStringLiteral("-r"), QStringLiteral("-X"), job.tmpDir + zipName, QStringLiteral(".")};
        job.fileUtils->setWorkingDirectory(packedFolder);
    }
    watchStage(job, [&](const QByteArray &output, qint64 zip) {
        return job.stages->zipShare(output, packedFolder, job.tmpDir, SystemCalls::bytesReadBy(pid_t(zip)));
    });
    const QString zipOutput = job.fileUtils->runCommand(SystemTools::zip(), zipArguments);
    watchStage(job, nullptr);
    job.fileUtils->setWorkingDirectory(QString());
    const ChildProcess::Result zip = job.fileUtils->lastCommand();
    DW_LOG(QLatin1String("zipOutput ") + zipOutput);
    post(ConversionEvents::progress);
    if (stopIfAsked(job))
        return false;
    if (!zip.succeeded()) {
        const QString complaint = lastComplaint(zip.standardError);
        // zip tells of a full disk on its standard output.
        const QString reason
            = DiskSpace::saysFull(zip.standardOutput + zip.standardError) ? DiskSpace::fullReason()
              : complaint.isEmpty()
                  ? QStringLiteral("could not make the archive (zip ended with status %1)").arg(zip.exitCode)
                  : QStringLiteral("could not make the archive (%1)").arg(complaint);
        failWith(job, OutputNotWritten, reason);
        return false;
    }

    // The archive takes the package's place, and so its name.
    const QString renCmdOutput
        = job.fileUtils->runCommand(SystemTools::mv(), {QStringLiteral("-f"), job.tmpDir + zipName, job.copyPath});
    DW_LOG(QLatin1String("renCmdOutput ") + renCmdOutput);
    post(ConversionEvents::progress);
    return !stopIfAsked(job);
}

bool Converter::chooseFreeName(Job &job)
{
    // Taken since the start, skipping existing files: the same package given
    // twice, and the first of them converted under that name.
    if (skipIfDone(job))
        return false;
    // Anything at the name, a dangling link included, takes it. Looked up in
    // the folder as opened; only one that could not be opened is looked up by path.
    setOutputPrezName(job.prezName);
    m_number = 0;
    DW_LOG(QLatin1String("checking : ") + outputPrezName());
    auto taken = [&] {
        if (job.target && job.target->isOpen())
            return nameTaken(*job.target, outputPrezName());
        // A subfolder not made yet holds nothing.
        if (job.output && job.output->isOpen())
            return false;
        return FileTree::kindAt(job.targetPath + QLatin1Char('/') + outputPrezName(), nullptr);
    };
    if (taken()) {
        DW_LOG(QLatin1String("already saved it"));
        m_number = 1;
        setOutputPrezName(numberedName(m_number));
        while (taken()) {
            ++m_number;
            setOutputPrezName(numberedName(m_number));
            DW_LOG(QLatin1String("trying : ") + outputPrezName());
        }
    }
    return true;
}

bool Converter::writeIntoOutputFolder(Job &job)
{
    // The folder is the one the person granted through the bookmark (or the
    // batch opened), as opened at the start; the plain path only names the
    // file in a message when there is no such folder.
    if (!m_outputFolder && !SettingsStore::standard().contains(SettingKey::bookmarkData))
        Fatal::fail(QStringLiteral("no output folder was chosen (the setting bookmarkData is missing)"));
    if (!job.output || !job.output->exists()) {
        const int error = job.output ? job.output->error() : 0;
        failWith(job, OutputNotWritten,
                 QStringLiteral("could not write %1 (%2)")
                     .arg(job.targetPath + QLatin1Char('/') + outputPrezName(),
                          error && error != ENOENT ? errnoText(error)
                                                   : QStringLiteral("the output folder no longer exists")));
        return false;
    }
    // The subfolder is made now, once there is a file to put in it; what a
    // killed write left there goes first, as in the output folder itself.
    QString problem;
    if (!job.target)
        job.target = job.output->subfolder(m_subfolder, true, &problem);
    if (!job.target) {
        failWith(job, OutputNotWritten,
                 QStringLiteral("could not write %1 (%2)")
                     .arg(job.targetPath + QLatin1Char('/') + outputPrezName(), problem));
        return false;
    }
    if (job.target != job.output)
        ScratchRun::sweepStaleInOutputFolder(job.target->descriptor());
    FolderBookmark &bookmarks = FolderBookmark::platform();
    if (job.outUrl) {
        DW_LOG(QLatin1String("outUrl : ") + job.outUrl->toString());
        bookmarks.startAccessing(*job.outUrl);
    }
    const bool written = writeOutput(job.copyPath, *job.target);
    if (job.outUrl)
        bookmarks.stopAccessing(*job.outUrl);
    if (stopIfAsked(job))
        return false;
    if (!written) {
        failWith(job, errorOccurred() == AlreadyDone ? AlreadyDone : OutputNotWritten, errorReason());
        return false;
    }
    return true;
}

void Converter::clearScratch(Job &job)
{
    // Before the scratch folder is known there is nothing of ours to remove,
    // and the names alone would be relative to wherever we are.
    if (job.tmpDir.isEmpty())
        return;
    job.fileUtils->rmFile(job.tmpDir + job.prezName);
    job.fileUtils->rmFile(job.tmpDir + job.prezNameWithoutExt);
}

void Converter::failWith(Job &job, qint64 code, const QString &reason)
{
    // A disk that filled up is no fault of the package. It is the scratch
    // folder's, or the output folder's when the run was placed there.
    const bool full = reason == DiskSpace::fullReason();
    setErrorOccurred(full ? OutputNotWritten : code);
    setErrorReason(full ? DiskSpace::fullReason(!job.tmpDir.startsWith(ScratchDir::path())) : reason);
    clearScratch(job);
    post(ConversionEvents::finishedWithErrorNotKeynoteFour);
}

void Converter::rejectPackage(Job &job, const QString &logText, const QString &reason)
{
    DW_LOG(logText);
    DW_LOG(reason); // the particulars, on a line of their own after the log's own words
    failWith(job, NotKeynoteFour, reason);
}

bool Converter::stopIfAsked(Job &job)
{
    // A stop leaves nothing: the run's folder goes at once. A signal then
    // ends the process by that signal; the person's stop ends the file.
    if (!StopRequest::pending())
        return false;
    DW_LOG(QLatin1String("stopped"));
    setErrorOccurred(Stopped);
    setErrorReason(QStringLiteral("stopped"));
    job.fileUtils.reset();
    StopRequest::finishSignal();
    post(ConversionEvents::finishedWithErrorNotKeynoteFour);
    return true;
}

void Converter::waitForTurnToName() {}

bool Converter::writeOutput(const QString &archivePath, const OutputFolder &folder)
{
    auto fail = [&](const QString &why) {
        setErrorReason(
            QStringLiteral("could not write %1 (%2)").arg(folder.path() + QLatin1Char('/') + outputPrezName(), why));
        return false;
    };
    // On the folder's own disk the archive is moved in, not copied: no time,
    // and no second copy of a large deck on a disk that may be short of room.
    // Another disk, or two mounts of one that refuse the move: then it is copied.
    bool move = true;
    bool turnTaken = false;
    for (;;) {
        OutputFile output(folder.descriptor());
        OutputFile::Result result = move ? output.adopt(archivePath) : output.fill(archivePath);
        if (result == OutputFile::Stopped)
            return false;
        if (result == OutputFile::Ok && !turnTaken) {
            turnTaken = true;
            waitForTurnToName();
            if (StopRequest::pending())
                return false;
        }
        // Someone (another run) may have taken the name since it was found free.
        while (result == OutputFile::Ok && (result = output.publish(outputPrezName())) == OutputFile::Taken) {
            // Skipping existing files, a name taken meanwhile was taken by the
            // same package given twice: the first of them has converted it.
            if (m_skipExisting) {
                setErrorOccurred(AlreadyDone);
                setErrorReason(QStringLiteral("%1 exists").arg(folder.path() + QLatin1Char('/') + outputPrezName()));
                return false;
            }
            setOutputPrezName(numberedName(++m_number));
            DW_LOG(QLatin1String("trying : ") + outputPrezName());
            result = OutputFile::Ok;
        }
        if (result == OutputFile::Ok)
            return true;
        if (!move || output.errorNumber() != EXDEV)
            return fail(output.errorString());
        move = false;
    }
}
