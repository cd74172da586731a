#include "Converter.h"

#include "ConversionEvents.h"
#include "Fatal.h"
#include "FileUtils.h"
#include "KernelFileCopy.h"
#include "FolderBookmark.h"
#include "Logging.h"
#include "NotificationCenter.h"
#include "Regex.h"
#include "SettingsStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStringDecoder>
#include <QUrl>
#include <QUuid>

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

std::unique_ptr<FileUtils> Converter::createFileUtils(const QString &prezOrigPath)
{
    return std::make_unique<FileUtils>(prezOrigPath);
}

void Converter::post(const QString &eventName)
{
    NotificationCenter::defaultCenter().post(eventName, this);
}

void Converter::doConvert(const QString &outputPath)
{
    // 1
    setErrorOccurred(NoError);
    const std::unique_ptr<FileUtils> fileUtils = createFileUtils(prezOrigPath());

    // 2: only packages named *.key are taken. A path that cannot be escaped is
    // a damaged name, not a reason to end the program: the file is refused.
    if (!prezOrigPath().isValidUtf16()) {
        setErrorOccurred(NotKeynoteFour);
        post(ConversionEvents::finishedWithErrorNotKeynoteFour);
        return;
    }
    const QByteArray escaped = QUrl::toPercentEncoding(prezOrigPath(), "/");
    const QUrl url(QString::fromLatin1(escaped), QUrl::StrictMode);
    const QString extension = url.isValid() ? pathExtension(url) : QString();
    DW_LOG(QLatin1String("file extension : ") + extension);
    if (!url.isValid() || extension != QLatin1String("key")) {
        DW_LOG(QLatin1String("not a keynote file...!"));
        setErrorOccurred(NotKeynote);
        post(ConversionEvents::finishedWithErrorNotKeynote);
        return;
    }

    // 3-5
    DW_LOG(QLatin1String("indexFilePath ") + prezOrigPath() + QLatin1String("/index.apxl.gz"));
    const std::optional<QString> scratch = fileUtils->getTmpDir();
    if (!scratch)
        Fatal::fail(QStringLiteral("there is no scratch folder to convert in"));
    const QString tmpDir = *scratch;
    DW_LOG(QLatin1String("tmpDir : ") + tmpDir);
    const QString prezName = fileUtils->getPrezName();
    const QString prezNameWithoutExt = fileUtils->getPrezNameWithoutExt();
    DW_LOG(QLatin1String("name : ") + prezNameWithoutExt);

    auto cleanUp = [&] {
        fileUtils->rmFile(tmpDir + prezName);
        fileUtils->rmFile(tmpDir + prezNameWithoutExt);
    };
    auto reject = [&](const QString &reason) {
        DW_LOG(reason);
        setErrorOccurred(NotKeynoteFour);
        cleanUp();
        post(ConversionEvents::finishedWithErrorNotKeynoteFour);
    };

    // 6-7: a copy left over from an earlier run of the same package goes first.
    cleanUp();
    post(ConversionEvents::progress);

    // 8-9
    fileUtils->runCommand(QStringLiteral("/bin/cp"), {QStringLiteral("-r"), prezOrigPath(), tmpDir});
    DW_LOG(QLatin1String("prezName ") + prezName);
    post(ConversionEvents::progress);
    DW_LOG(QLatin1String("posted notif"));

    // 10-11: gunzip's complaint about a missing file is how a package without its document shows.
    const QString expOutput = fileUtils->runCommand(QStringLiteral("/usr/bin/gunzip"),
                                                    {QStringLiteral("-f"), tmpDir + prezName + QLatin1String("/index.apxl.gz")});
    DW_LOG(QLatin1String("expOutput ''") + expOutput + QLatin1String("''"));
    if (Regex(QStringLiteral("No such file")).hasMatch(expOutput)) {
        reject(QStringLiteral("error : could not find index.apxl.gz to unzip"));
        return;
    }

    // 12-13
    post(ConversionEvents::progress);
    const QString indexPath = tmpDir + prezName + QLatin1String("/index.apxl");
    QFile indexFile(indexPath);
    if (!indexFile.open(QIODevice::ReadOnly)) {
        reject(QStringLiteral("Error : could not find the index.apxl file. probably not a keynote 08 presentation"));
        return;
    }
    const QByteArray indexBytes = indexFile.readAll();
    indexFile.close();

    // 14: a document that is not UTF-8 is no Keynote '08 document; the batch goes on.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString document = decoder(indexBytes);
    if (decoder.hasError()) {
        reject(QStringLiteral("Error : index.apxl is not UTF-8 text"));
        return;
    }

    // 15
    if (!Regex(kKeynoteFourTag).hasMatch(document)) {
        reject(QStringLiteral("not a Numbers 4 file"));
        return;
    }

    // 16: every occurrence, in any letter case, over the whole text.
    const QRegularExpression tag(kKeynoteFourTag, QRegularExpression::CaseInsensitiveOption);
    if (!tag.isValid())
        Fatal::fail(QStringLiteral("the version pattern does not compile"));
    document.replace(tag, kKeynoteFiveTag);

    // 17-18: a failed write is not looked at; the pipeline goes on.
    post(ConversionEvents::progress);
    if (indexFile.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        indexFile.write(document.toUtf8());
        indexFile.close();
    }

    // 19-20
    post(ConversionEvents::progress);
    const QString nameWithoutExt = fileUtils->getPrezNameWithoutExt();
    DW_LOG(QLatin1String("prezNameWithoutExt ") + nameWithoutExt);
    const QString mvOutput = fileUtils->runCommand(QStringLiteral("/bin/mv"), {tmpDir + prezName, tmpDir + nameWithoutExt});
    DW_LOG(QLatin1String("mvOutput ") + mvOutput);
    post(ConversionEvents::progress);

    // 21: no working folder, so the entries keep the scratch folder's path.
    const QString zipName = fileUtils->getZipName();
    const QString zipOutput = fileUtils->runCommand(QStringLiteral("/usr/bin/zip"),
                                                    {QStringLiteral("-r"), tmpDir + zipName, tmpDir + nameWithoutExt});
    DW_LOG(QLatin1String("zipOutput ") + zipOutput);
    post(ConversionEvents::progress);

    // 22
    const QString renCmdOutput = fileUtils->runCommand(QStringLiteral("/bin/mv"),
                                                       {QStringLiteral("-f"), tmpDir + zipName, tmpDir + prezName});
    DW_LOG(QLatin1String("renCmdOutput ") + renCmdOutput);
    post(ConversionEvents::progress);

    // 23-24: a name already taken in the output folder is never overwritten.
    setOutputPrezName(prezName);
    DW_LOG(QLatin1String("checking : ") + outputPrezName());
    auto taken = [&] { return QFileInfo::exists(outputPath + QLatin1Char('/') + outputPrezName()); };
    if (taken()) {
        DW_LOG(QLatin1String("already saved it"));
        qint64 n = 1;
        setOutputPrezName(prezNameWithoutExt + QLatin1Char('.') + QString::number(n) + QLatin1String(".key"));
        while (taken()) {
            ++n;
            setOutputPrezName(prezNameWithoutExt + QLatin1Char('.') + QString::number(n) + QLatin1String(".key"));
            DW_LOG(QLatin1String("trying : ") + outputPrezName());
        }
    }

    // 25
    SettingsStore &settings = SettingsStore::standard();
    if (!settings.contains(SettingKey::bookmarkData))
        Fatal::fail(QStringLiteral("no output folder was chosen (the setting bookmarkData is missing)"));
    FolderBookmark &bookmarks = FolderBookmark::platform();
    const std::optional<QUrl> outUrl = bookmarks.resolve(settings.requiredData(SettingKey::bookmarkData));
    if (!outUrl)
        Fatal::fail(QStringLiteral("the output folder %1 no longer exists").arg(outputPath));
    DW_LOG(QLatin1String("outUrl : ") + outUrl->toString());

    // 26
    const QString destination = outUrl->toLocalFile() + outputPrezName();
    bookmarks.startAccessing(*outUrl);
    writeOutput(tmpDir + prezName, destination);
    bookmarks.stopAccessing(*outUrl);

    // 27-28
    cleanUp();
    post(ConversionEvents::finished);
}

bool Converter::writeOutput(const QString &archivePath, const QString &destinationPath)
{
    QFile in(archivePath);
    if (!in.open(QIODevice::ReadOnly))
        return false;

    // Written beside the destination under a hidden name, then renamed into
    // place, so that the output folder never shows half a presentation.
    const QFileInfo destination(destinationPath);
    const QString partialPath = destination.absolutePath() + QLatin1String("/.") + destination.fileName() + QLatin1Char('.')
                                + QUuid::createUuid().toString(QUuid::WithoutBraces).left(8) + QLatin1String(".part");
    QFile out(partialPath);
    if (!out.open(QIODevice::WriteOnly | QIODevice::NewOnly))
        return false;

    bool ok = true;
    const KernelFileCopy::Result kernelCopy = KernelFileCopy::copyRest(in.handle(), out.handle());
    // A kernel copy that stopped short is a failure, not a smaller file.
    if (kernelCopy == KernelFileCopy::Failed || (kernelCopy == KernelFileCopy::Done && out.size() != in.size()))
        ok = false;
    constexpr qint64 chunkSize = 4 * 1024 * 1024;
    QByteArray buffer(kernelCopy == KernelFileCopy::Unsupported ? chunkSize : 0, Qt::Uninitialized);
    while (kernelCopy == KernelFileCopy::Unsupported) {
        const qint64 got = in.read(buffer.data(), chunkSize);
        if (got < 0) {
            ok = false;
            break;
        }
        if (got == 0)
            break;
        if (out.write(buffer.constData(), got) != got) {
            ok = false;
            break;
        }
    }
    ok = out.flush() && ok;
    out.close();
    ok = ok && out.error() == QFileDevice::NoError;
    // rename refuses a destination that appeared in the meantime.
    if (!ok || !QFile::rename(partialPath, destinationPath)) {
        QFile::remove(partialPath);
        return false;
    }
    return true;
}
