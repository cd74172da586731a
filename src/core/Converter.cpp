#include "core/Converter.h"

#include "core/ConversionEvents.h"
#include "core/Fatal.h"
#include "core/FileTree.h"
#include "core/FileUtils.h"
#include "core/FolderBookmark.h"
#include "core/Logging.h"
#include "core/NotificationCenter.h"
#include "core/OutputFile.h"
#include "core/PackageScan.h"
#include "core/Regex.h"
#include "core/SettingsStore.h"
#include "core/StopRequest.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStringDecoder>
#include <QUrl>

#include <cerrno>
#include <csignal>
#include <cstring>

namespace {
const QString kKeynoteFourTag = QStringLiteral("key:version=\"72007061400\"");
const QString kKeynoteFiveTag = QStringLiteral("key:version=\"92008102400\"");

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

// The package a path names: a link in its last place is followed once, here,
// so that the copy is of the real package and never of a link through which
// a tool would write into the source.
QString resolvedPackagePath(const QString &path)
{
    FileTree::Kind kind;
    if (!FileTree::kindAt(path, &kind) || kind != FileTree::Kind::Link)
        return path;
    const QString target = QFileInfo(path).canonicalFilePath();
    return target.isEmpty() ? path : target;
}

// Keynote '09 keeps a presentation in one zip archive: a single file that
// starts as one is a converted presentation, not a damaged package.
bool startsLikeAZipArchive(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && file.read(4) == QByteArray("PK\x03\x04", 4);
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

QString Converter::prezOrigPath() const { return m_prezOrigPath; }
void Converter::setPrezOrigPath(const QString &path) { m_prezOrigPath = path; }
QString Converter::outputPrezName() const { return m_outputPrezName; }
void Converter::setOutputPrezName(const QString &name) { m_outputPrezName = name; }
qint64 Converter::errorOccurred() const { return m_errorOccurred; }
void Converter::setErrorOccurred(qint64 code) { m_errorOccurred = code; }
QString Converter::errorReason() const { return m_errorReason; }
void Converter::setErrorReason(const QString &reason) { m_errorReason = reason; }

std::unique_ptr<FileUtils> Converter::createFileUtils(const QString &prezOrigPath)
{
    return std::make_unique<FileUtils>(prezOrigPath);
}

void Converter::post(const QString &eventName)
{
    NotificationCenter::defaultCenter().post(eventName, this);
}

bool Converter::cannotRepresent(const QString &path)
{
    // Bytes that are not UTF-8 come back from the system as replacement
    // characters, and the name so made names nothing on disk.
    return !path.isValidUtf16() || (path.contains(QChar::ReplacementCharacter) && !FileTree::kindAt(path, nullptr));
}

QString Converter::numberedName(qint64 n) const
{
    if (m_prezNameWithoutExt.isEmpty())
        return FileUtils(prezOrigPath()).getPrezNameWithoutExt() + QLatin1Char('.') + QString::number(n) + QLatin1String(".key");
    return m_prezNameWithoutExt + QLatin1Char('.') + QString::number(n) + QLatin1String(".key");
}

void Converter::doConvert(const QString &outputPath)
{
    const ConversionScope scope;

    // 1
    setErrorOccurred(NoError);
    setErrorReason(QString());
    setPrezOrigPath(resolvedPackagePath(prezOrigPath()));
    std::unique_ptr<FileUtils> fileUtils = createFileUtils(prezOrigPath());

    // A name that cannot be represented is refused as it is, never copied under a mangled one.
    if (cannotRepresent(prezOrigPath())) {
        setErrorOccurred(NotKeynoteFour);
        setErrorReason(QStringLiteral("its name is not valid UTF-8"));
        post(ConversionEvents::finishedWithErrorNotKeynoteFour);
        return;
    }

    // 2: only packages named *.key are taken.
    const QByteArray escaped = QUrl::toPercentEncoding(prezOrigPath(), "/");
    const QUrl url(QString::fromLatin1(escaped), QUrl::StrictMode);
    const QString extension = url.isValid() ? pathExtension(url) : QString();
    DW_LOG(QLatin1String("file extension : ") + extension);
    if (!url.isValid() || extension != QLatin1String("key")) {
        DW_LOG(QLatin1String("not a keynote file...!"));
        setErrorOccurred(NotKeynote);
        setErrorReason(QStringLiteral("its name does not end in .key"));
        post(ConversionEvents::finishedWithErrorNotKeynote);
        return;
    }

    // 3-5: the scratch folder is this run's own.
    DW_LOG(QLatin1String("indexFilePath ") + prezOrigPath() + QLatin1String("/index.apxl.gz"));
    const std::optional<QString> scratch = fileUtils->getTmpDir();
    if (!scratch) {
        setErrorOccurred(NotKeynoteFour);
        setErrorReason(QStringLiteral("there is no private scratch folder to convert in (%1)").arg(fileUtils->tmpDirError()));
        post(ConversionEvents::finishedWithErrorNotKeynoteFour);
        return;
    }
    const QString tmpDir = *scratch;
    DW_LOG(QLatin1String("tmpDir : ") + tmpDir);
    const QString prezName = fileUtils->getPrezName();
    const QString prezNameWithoutExt = fileUtils->getPrezNameWithoutExt();
    m_prezNameWithoutExt = prezNameWithoutExt;
    DW_LOG(QLatin1String("name : ") + prezNameWithoutExt);
    const QString copyPath = tmpDir + prezName;

    auto cleanUp = [&] {
        fileUtils->rmFile(tmpDir + prezName);
        fileUtils->rmFile(tmpDir + prezNameWithoutExt);
    };
    auto finishWith = [&](qint64 code, const QString &reason) {
        setErrorOccurred(code);
        setErrorReason(reason);
        cleanUp();
        post(ConversionEvents::finishedWithErrorNotKeynoteFour);
    };
    auto reject = [&](const QString &logText, const QString &reason) {
        DW_LOG(logText);
        finishWith(NotKeynoteFour, reason);
    };
    // A stop leaves nothing: the run's folder goes at once. A signal then
    // ends the process by that signal; the person's stop ends the file.
    auto stopped = [&] {
        if (!StopRequest::pending())
            return false;
        DW_LOG(QLatin1String("stopped"));
        setErrorOccurred(Stopped);
        setErrorReason(QStringLiteral("stopped"));
        fileUtils.reset();
        StopRequest::finishSignal();
        post(ConversionEvents::finishedWithErrorNotKeynoteFour);
        return true;
    };

    // 6-7
    cleanUp();
    post(ConversionEvents::progress);
    if (stopped())
        return;

    // 8-9
    fileUtils->runCommand(QStringLiteral("/bin/cp"), {QStringLiteral("-r"), prezOrigPath(), tmpDir});
    const ChildProcess::Result copy = fileUtils->lastCommand();
    DW_LOG(QLatin1String("prezName ") + prezName);
    post(ConversionEvents::progress);
    DW_LOG(QLatin1String("posted notif"));
    if (stopped())
        return;

    // The copy must be whole and hold only folders and regular files.
    if (!QFileInfo::exists(prezOrigPath())) {
        reject(QStringLiteral("error : could not find index.apxl.gz to unzip"), QStringLiteral("it was not found"));
        return;
    }
    if (!copy.succeeded()) {
        QString reason = PackageScan::whyNotCopied(prezOrigPath(), copyPath);
        if (reason.isEmpty()) {
            const QString complaint = lastComplaint(copy.standardError);
            reason = complaint.isEmpty() ? QStringLiteral("it could not be copied to the scratch folder")
                                         : QStringLiteral("it could not be copied to the scratch folder (%1)").arg(complaint);
        }
        reject(QStringLiteral("error : the copy is not whole"), reason);
        return;
    }
    FileTree::Kind copyKind = FileTree::Kind::Other;
    FileTree::kindAt(copyPath, &copyKind);
    if (copyKind == FileTree::Kind::Folder) {
        const PackageScan::Result scan = PackageScan::scanCopy(copyPath);
        if (!scan.problem.isEmpty()) {
            reject(QStringLiteral("error : the package holds more than folders and files"), scan.problem);
            return;
        }
    } else if (copyKind != FileTree::Kind::File) {
        reject(QStringLiteral("error : the package is a special file"), QStringLiteral("it is %1").arg(FileTree::kindName(copyKind)));
        return;
    }

    // 10-11: gunzip's complaint about a missing file is how a package without
    // its document shows. No file it writes may outgrow the document limit.
    fileUtils->setFileSizeLimit(documentSizeLimit + 1);
    const QString expOutput = fileUtils->runCommand(QStringLiteral("/usr/bin/gunzip"),
                                                    {QStringLiteral("-f"), copyPath + QLatin1String("/index.apxl.gz")});
    fileUtils->setFileSizeLimit(0);
    const ChildProcess::Result gunzip = fileUtils->lastCommand();
    DW_LOG(QLatin1String("expOutput ''") + expOutput + QLatin1String("''"));
    if (stopped())
        return;
    if (Regex(QStringLiteral("No such file")).hasMatch(expOutput)) {
        reject(QStringLiteral("error : could not find index.apxl.gz to unzip"), QStringLiteral("index.apxl.gz is missing"));
        return;
    }

    // 12-13
    post(ConversionEvents::progress);
    if (stopped())
        return;
    const QString indexPath = copyPath + QLatin1String("/index.apxl");
    QByteArray indexBytes;
    int readError = 0;
    bool tooLarge = false;
    const bool gunzipOutgrew = (gunzip.crashed && gunzip.exitCode == SIGXFSZ) || gunzip.standardError.contains("File too large");
    if (gunzipOutgrew || !FileTree::readFile(indexPath, documentSizeLimit, &indexBytes, &readError, &tooLarge)) {
        QString reason;
        if (gunzipOutgrew || tooLarge)
            reason = QStringLiteral("the document is larger than %1 MB").arg(documentSizeLimit / (1024 * 1024));
        else if (copyKind == FileTree::Kind::File)
            reason = startsLikeAZipArchive(copyPath) ? QStringLiteral("already in the Keynote '09 format")
                                                      : QStringLiteral("it is a single file, not a Keynote '08 package");
        else if (!gunzip.succeeded())
            reason = QStringLiteral("the document is damaged");
        else
            reason = QStringLiteral("index.apxl could not be read (%1)").arg(errnoText(readError));
        reject(QStringLiteral("Error : could not find the index.apxl file. probably not a keynote 08 presentation"), reason);
        return;
    }

    // 14: a document that is not UTF-8 is no Keynote '08 document; the batch goes on.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString document = decoder(indexBytes);
    indexBytes = QByteArray();
    if (decoder.hasError()) {
        reject(QStringLiteral("Error : index.apxl is not UTF-8 text"), QStringLiteral("the document is not UTF-8 text"));
        return;
    }

    // 15
    if (!Regex(kKeynoteFourTag).hasMatch(document)) {
        reject(QStringLiteral("not a Numbers 4 file"), Regex(kKeynoteFiveTag).hasMatch(document)
                                                         ? QStringLiteral("already in the Keynote '09 format")
                                                         : QStringLiteral("the document has no Keynote '08 version tag"));
        return;
    }

    // 16: every occurrence, in any letter case, over the whole text.
    const QRegularExpression tag(kKeynoteFourTag, QRegularExpression::CaseInsensitiveOption);
    if (!tag.isValid())
        Fatal::fail(QStringLiteral("the version pattern does not compile"));
    document.replace(tag, kKeynoteFiveTag);

    // 17-18: the document is written back in place, never through a link; a
    // document that cannot be written back would make a broken archive.
    post(ConversionEvents::progress);
    if (stopped())
        return;
    int writeError = 0;
    const bool rewritten = FileTree::rewriteFile(indexPath, document.toUtf8(), &writeError);
    document = QString();
    if (!rewritten) {
        finishWith(OutputNotWritten, QStringLiteral("could not write the document in the scratch folder (%1)").arg(errnoText(writeError)));
        return;
    }

    // 19-20
    post(ConversionEvents::progress);
    if (stopped())
        return;
    const QString nameWithoutExt = fileUtils->getPrezNameWithoutExt();
    DW_LOG(QLatin1String("prezNameWithoutExt ") + nameWithoutExt);
    const QString mvOutput = fileUtils->runCommand(QStringLiteral("/bin/mv"), {copyPath, tmpDir + nameWithoutExt});
    DW_LOG(QLatin1String("mvOutput ") + mvOutput);
    post(ConversionEvents::progress);
    if (stopped())
        return;

    // 21: no working folder, so the entries keep the scratch folder's path.
    const QString zipName = fileUtils->getZipName();
    const QString zipOutput = fileUtils->runCommand(QStringLiteral("/usr/bin/zip"),
                                                    {QStringLiteral("-r"), tmpDir + zipName, tmpDir + nameWithoutExt});
    const ChildProcess::Result zip = fileUtils->lastCommand();
    DW_LOG(QLatin1String("zipOutput ") + zipOutput);
    post(ConversionEvents::progress);
    if (stopped())
        return;
    if (!zip.succeeded()) {
        const QString complaint = lastComplaint(zip.standardError);
        finishWith(OutputNotWritten, complaint.isEmpty() ? QStringLiteral("could not make the archive (zip ended with status %1)").arg(zip.exitCode)
                                                         : QStringLiteral("could not make the archive (%1)").arg(complaint));
        return;
    }

    // 22
    const QString renCmdOutput = fileUtils->runCommand(QStringLiteral("/bin/mv"),
                                                       {QStringLiteral("-f"), tmpDir + zipName, copyPath});
    DW_LOG(QLatin1String("renCmdOutput ") + renCmdOutput);
    post(ConversionEvents::progress);
    if (stopped())
        return;

    // 23-24: anything at the name, a dangling link included, takes it.
    setOutputPrezName(prezName);
    m_number = 0;
    DW_LOG(QLatin1String("checking : ") + outputPrezName());
    auto taken = [&] { return FileTree::kindAt(outputPath + QLatin1Char('/') + outputPrezName(), nullptr); };
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

    // 25
    SettingsStore &settings = SettingsStore::standard();
    if (!settings.contains(SettingKey::bookmarkData))
        Fatal::fail(QStringLiteral("no output folder was chosen (the setting bookmarkData is missing)"));
    FolderBookmark &bookmarks = FolderBookmark::platform();
    const std::optional<QUrl> outUrl = bookmarks.resolve(settings.requiredData(SettingKey::bookmarkData));
    if (!outUrl) {
        finishWith(OutputNotWritten, QStringLiteral("could not write %1 (the output folder no longer exists)")
                                         .arg(outputPath + QLatin1Char('/') + outputPrezName()));
        return;
    }
    DW_LOG(QLatin1String("outUrl : ") + outUrl->toString());

    // 26
    bookmarks.startAccessing(*outUrl);
    const bool written = writeOutput(copyPath, outUrl->toLocalFile());
    bookmarks.stopAccessing(*outUrl);
    if (stopped())
        return;
    if (!written) {
        finishWith(OutputNotWritten, errorReason());
        return;
    }

    // 27-28
    cleanUp();
    post(ConversionEvents::finished);
}

bool Converter::writeOutput(const QString &archivePath, const QString &folder)
{
    QString folderPath = folder;
    while (folderPath.size() > 1 && folderPath.endsWith(QLatin1Char('/')))
        folderPath.chop(1);
    auto fail = [&](const QString &why) {
        setErrorReason(QStringLiteral("could not write %1 (%2)").arg(folderPath + QLatin1Char('/') + outputPrezName(), why));
        return false;
    };
    OutputFile output(folderPath);
    OutputFile::Result result = output.fill(archivePath);
    if (result == OutputFile::Stopped)
        return false;
    if (result != OutputFile::Ok)
        return fail(output.errorString());
    // Someone (another run) may have taken the name since it was found free.
    while ((result = output.publish(outputPrezName())) == OutputFile::Taken) {
        setOutputPrezName(numberedName(++m_number));
        DW_LOG(QLatin1String("trying : ") + outputPrezName());
    }
    if (result != OutputFile::Ok)
        return fail(output.errorString());
    return true;
}
