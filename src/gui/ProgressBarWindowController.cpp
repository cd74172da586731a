#include "gui/ProgressBarWindowController.h"

#include "core/ConversionEvents.h"
#include "core/Converter.h"
#include "core/Fatal.h"
#include "core/FileUrl.h"
#include "core/FileUtils.h"
#include "core/FolderBookmark.h"
#include "core/Logging.h"
#include "core/NotificationCenter.h"
#include "core/SettingsStore.h"
#include "core/StopRequest.h"
#include "core/Waiting.h"
#include "gui/Alert.h"
#include "platform/DesktopServices.h"
#include "ui_ProgressBarView.h"
#include "widgets/ProgressIndicator.h"

#include <QDialog>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QTimer>
#include <QUrl>
#include <QWidget>
#include <QWindow>

#include <algorithm>

namespace {
const QString kProgressBarView = QStringLiteral("ProgressBarView");

// The steps between two events that only read or rename count alike, as
// this many bytes of zip's; a package smaller than that fills the bar in
// equal steps. zip deflates every byte, while the copy moves them inside the
// kernel: 300 MB took 7.6 s to zip and 0.1 s to copy here, so a byte copied
// counts as a tenth of a byte zipped, which leaves room for slower disks.
constexpr double kStepBytes = 512 * 1024;
constexpr double kCopyCost = 0.1;
// The pace of the last seconds: the copy runs far faster than zip, so the
// pace since the start would promise too little time.
constexpr qint64 kPaceMs = 5000;
constexpr qint64 kFirstEstimateMs = 1000;

double stepWeight(int step, qint64 packageBytes)
{
    const double bytes = double(std::max<qint64>(0, packageBytes));
    if (step == Converter::copyStep)
        return std::max(kStepBytes, kCopyCost * bytes);
    if (step == Converter::zipStep)
        return std::max(kStepBytes, bytes);
    return kStepBytes;
}

// "600 MB", "1.5 GB": in units of 1024, one decimal below ten.
QString sizeText(qint64 bytes)
{
    static const char *const units[] = {"bytes", "KB", "MB", "GB", "TB"};
    double value = double(bytes);
    int unit = 0;
    while (value >= 1000 && unit < 4) {
        value /= 1024;
        ++unit;
    }
    const QString number = unit > 0 && value < 9.95 ? QString::number(value, 'f', 1) : QString::number(qRound64(value));
    return number + QLatin1Char(' ') + QLatin1String(units[unit]);
}

QString timeLeftText(double seconds)
{
    if (seconds < 10)
        return QStringLiteral("a few seconds left");
    if (seconds < 57.5)
        return QStringLiteral("about %1 s left").arg(qRound(seconds / 5) * 5);
    const qint64 minutes = qRound64(seconds / 60);
    if (minutes < 60)
        return QStringLiteral("about %1 min left").arg(minutes);
    return QStringLiteral("about %1 h %2 min left").arg(minutes / 60).arg(minutes % 60);
}

QString requiredSetting(const QString &key)
{
    if (key == SettingKey::outputPath && !SettingsStore::standard().contains(key))
        Fatal::fail(QStringLiteral("no output folder was chosen (the setting outputPath is missing)"));
    return SettingsStore::standard().requiredString(key);
}
} // namespace

ProgressBarWindowController::ProgressBarWindowController(const QString &windowLayoutName, QObject *parent)
    : QObject(parent)
    , m_windowLayoutName(windowLayoutName)
    , m_converter(std::make_unique<Converter>())
{
}

ProgressBarWindowController::~ProgressBarWindowController()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    delete m_mainW;
}

QWidget *ProgressBarWindowController::window()
{
    if (!m_windowLoaded) {
        m_windowLoaded = true;
        windowWillLoad();
        loadWindow();
        // As with any window controller, only a window loaded from a layout reports it.
        if (!m_windowLayoutName.isEmpty())
            windowDidLoad();
    }
    return m_mainW;
}

void ProgressBarWindowController::windowWillLoad() {}

void ProgressBarWindowController::loadWindow()
{
    // A dialog of the main window: above it, without a task bar entry of its
    // own, and while it shows the one window that takes input. What the person
    // does to the others meanwhile is dropped, not delivered after the batch.
    // A QDialog, so that a screen reader announces it as one, by its title.
    auto *window = new QDialog(m_parentWindow,
                               Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);
    window->setAttribute(Qt::WA_QuitOnClose, false);
    window->setWindowModality(Qt::ApplicationModal);
    window->installEventFilter(this);
    if (m_windowLayoutName == kProgressBarView) {
        Ui::ProgressBarView form;
        form.setupUi(window);
        m_progressIndy = form.progressIndy;
        m_exTextField = form.exTextField;
        m_detailLine = form.detailLine;
        connect(form.stopButton, &QPushButton::clicked, this, &ProgressBarWindowController::stop);
        window->setFixedSize(window->sizeHint());
    }
    m_mainW = window;
    awakeFromNib();
    DW_LOG(QLatin1String("load window"));
}

void ProgressBarWindowController::awakeFromNib()
{
    DW_LOG(QLatin1String("awake from nib"));
}

void ProgressBarWindowController::windowDidLoad()
{
    DW_LOG(QLatin1String("windowWillLoad"));
    const QString prezPath = SettingsStore::standard().requiredString(SettingKey::prezPath);
    requiredExTextField()->setText(displayName(prezPath));
}

void ProgressBarWindowController::close()
{
    if (m_batchSize > 0 && m_mainW && m_mainW->isVisible()) {
        // The next file of the batch usually follows at once and takes the
        // window over; only if it does not (an alert comes first, the batch
        // ends) does the window go, so it does not flash between files.
        m_closePending = true;
        QTimer::singleShot(0, this, [this] {
            if (m_closePending)
                closeNow();
        });
        return;
    }
    closeNow();
}

void ProgressBarWindowController::closeNow()
{
    m_closePending = false;
    if (!m_mainW)
        return;
    m_closingItself = true;
    m_mainW->close();
    m_closingItself = false;
}

void ProgressBarWindowController::beginBatch(int fileCount)
{
    m_batchSize = fileCount;
    m_batchPosition = 0;
}

void ProgressBarWindowController::endBatch()
{
    m_batchSize = 0;
    m_batchPosition = 0;
    closeNow();
}

void ProgressBarWindowController::stop()
{
    if (!m_converting)
        return;
    DW_LOG(QLatin1String("stop requested"));
    // The running tool dies at once; the converter undoes the file at its next stage.
    StopRequest::request();
}

bool ProgressBarWindowController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_mainW) {
        if (event->type() == QEvent::KeyPress && static_cast<QKeyEvent *>(event)->key() == Qt::Key_Escape) {
            stop();
            return true;
        }
        // The close button stops the file; the window goes when the file has been undone.
        if (event->type() == QEvent::Close && !m_closingItself && m_converting) {
            stop();
            event->ignore();
            return true;
        }
    }
    return QObject::eventFilter(watched, event);
}

void ProgressBarWindowController::waitUntilShown()
{
    // Painted before the first stage, so that the person sees at once what is going on.
    QWindow *handle = m_mainW->windowHandle();
    QElapsedTimer waited;
    waited.start();
    while (Waiting::keepsEventsTurning() && handle && !handle->isExposed() && waited.elapsed() < 500) {
        QEventLoop loop;
        QTimer::singleShot(10, &loop, &QEventLoop::quit);
        loop.exec();
    }
    m_mainW->repaint();
}

ProgressIndicator *ProgressBarWindowController::requiredProgressIndy() const
{
    return Fatal::requireOutlet(m_progressIndy.data(), QStringLiteral("progress window"), "progressIndy");
}

QLabel *ProgressBarWindowController::requiredExTextField() const
{
    return Fatal::requireOutlet(m_exTextField.data(), QStringLiteral("progress window"), "exTextField");
}

QString ProgressBarWindowController::convertFileUrlToPath(const QString &urlText)
{
    const std::optional<QString> path = FileUrl::toPath(urlText);
    if (!path)
        Fatal::fail(QStringLiteral("\"%1\" is not a URL with a path").arg(urlText));
    return *path;
}

QString ProgressBarWindowController::displayName(const QString &prezPath)
{
    const QString name = FileUtils::lastPathPiece(prezPath);
    const std::optional<QString> decoded = FileUrl::removingPercentEncoding(name);
    if (!decoded)
        Fatal::fail(QStringLiteral("the file name \"%1\" has broken percent escapes").arg(name));
    return *decoded;
}

std::unique_ptr<Converter> ProgressBarWindowController::makeConverter(const QString &prezOrigPath)
{
    return std::make_unique<Converter>(prezOrigPath);
}

void ProgressBarWindowController::showWindow(QObject *sender)
{
    Q_UNUSED(sender)
    // The window comes up, a second call with it showing included.
    QWidget *w = window();
    if (!w->isVisible() && !m_placed) {
        // Centred once; afterwards it comes back wherever the person moved it.
        m_placed = true;
        w->move(w->screen()->availableGeometry().center() - w->rect().center() - QPoint(0, w->height()));
    }
    m_closePending = false;
    if (m_batchSize > 0)
        ++m_batchPosition;
    w->setWindowTitle(m_batchSize > 0 ? QStringLiteral("Converting %1 of %2").arg(m_batchPosition).arg(m_batchSize)
                                      : QStringLiteral("Converting"));
    const bool wasVisible = w->isVisible();
    w->show();
    w->raise();
    w->activateWindow();
    if (!wasVisible)
        waitUntilShown();

    DW_LOG(QLatin1String("showWindow"));
    SettingsStore &settings = SettingsStore::standard();
    const QString prezPath = settings.requiredString(SettingKey::prezPath);
    DW_LOG(QLatin1String("prezPath : ") + prezPath);
    requiredExTextField()->setText(displayName(prezPath));
    requiredProgressIndy()->setDoubleValue(0);
    const QString outputPath = requiredSetting(SettingKey::outputPath);
    DW_LOG(QLatin1String("outputPath : ") + outputPath);
    DW_LOG(QLatin1String("preferences window loaded"));
    requiredProgressIndy()->setDoubleValue(0);
    m_events = 0;
    m_pace.clear();
    m_clock.start();
    if (m_detailLine)
        m_detailLine->clear();
    requiredProgressIndy()->setMaxValue(100.0);
    requiredProgressIndy()->displayIfNeeded();

    const QString prezPathUrl = convertFileUrlToPath(prezPath);
    DW_LOG(QLatin1String("prezPathUrl : ") + prezPathUrl);
    const QString outputUrlPath = convertFileUrlToPath(outputPath);
    DW_LOG(QLatin1String("outputUrlPath : ") + outputUrlPath);

    NotificationCenter &center = NotificationCenter::defaultCenter();
    center.addObserver(this, ConversionEvents::progress, [this](const Notification &) { moveProgressBar(); });
    center.addObserver(this, ConversionEvents::finished, [this](const Notification &) { finishedConversion(); });
    center.addObserver(this, ConversionEvents::finishedWithErrorNotKeynote,
                       [this](const Notification &) { finishedWithErrorNotKeynote(); });
    center.addObserver(this, ConversionEvents::finishedWithErrorNotKeynoteFour,
                       [this](const Notification &) { finishedWithErrorNotKeynoteFour(); });
    center.addObserver(this, ConversionEvents::stageProgress, [this](const Notification &) { moveWithinStage(); });

    m_converter = makeConverter(prezPathUrl);
    m_converter->setOutputSubfolder(m_subfolder);
    m_converter->setSkipExisting(m_skipExisting);
    m_converting = true;
    m_converter->doConvert(outputUrlPath);
    m_converting = false;

    center.removeObserver(this, ConversionEvents::progress);
    center.removeObserver(this, ConversionEvents::finished);
    center.removeObserver(this, ConversionEvents::finishedWithErrorNotKeynote);
    center.removeObserver(this, ConversionEvents::finishedWithErrorNotKeynoteFour);
    center.removeObserver(this, ConversionEvents::stageProgress);
}

void ProgressBarWindowController::moveProgressBar()
{
    DW_LOG(QLatin1String("******* Atualizar **********"));
    // Where the events alone bring it, whatever a stage showed meanwhile.
    ++m_events;
    requiredProgressIndy()->setDoubleValue(100.0 * fileShare(m_events, 0, m_converter->packageBytes()));
    showProgress(fileShare(m_events, 0, m_converter->packageBytes()));
}

void ProgressBarWindowController::moveWithinStage()
{
    ProgressIndicator *bar = requiredProgressIndy();
    const double share = fileShare(m_events, m_converter->stageShare(), m_converter->packageBytes());
    if (100.0 * share > bar->doubleValue()) {
        bar->setDoubleValue(100.0 * share);
        showProgress(share);
    }
}

double ProgressBarWindowController::fileShare(int events, double stageShare, qint64 packageBytes)
{
    if (events >= Converter::progressSteps)
        return 1.0;
    double total = 0, done = 0;
    for (int step = 0; step < Converter::progressSteps; ++step) {
        const double weight = stepWeight(step, packageBytes);
        total += weight;
        if (step < events)
            done += weight;
        else if (step == events)
            done += weight * std::clamp(stageShare, 0.0, 1.0);
    }
    return done / total;
}

void ProgressBarWindowController::showProgress(double share)
{
    const qint64 bytes = m_converter->packageBytes();
    const double seconds = secondsLeft(share);
    if (m_detailLine && bytes >= 0)
        m_detailLine->setText(detailText(qint64(share * double(bytes)), bytes, seconds));
}

double ProgressBarWindowController::secondsLeft(double share)
{
    const qint64 now = m_clock.elapsed();
    m_pace.emplace_back(now, share);
    while (m_pace.size() > 2 && now - m_pace[1].first >= kPaceMs)
        m_pace.pop_front();
    const auto [then, was] = m_pace.front();
    if (now < kFirstEstimateMs || now == then || share <= was)
        return -1;
    return (1.0 - share) * double(now - then) / 1000.0 / (share - was);
}

QString ProgressBarWindowController::detailText(qint64 doneBytes, qint64 totalBytes, double secondsLeft)
{
    QString text = sizeText(doneBytes) + QStringLiteral(" of ") + sizeText(totalBytes);
    if (secondsLeft >= 0)
        text += QStringLiteral(" · ") + timeLeftText(secondsLeft);
    return text;
}

void ProgressBarWindowController::reportRejectedFile(const QString &name, qint64 code, const QString &reason)
{
    QString informative = QStringLiteral("The file \"") + name;
    if (code == Converter::OutputNotWritten)
        informative += QStringLiteral(
            "\" could not be converted and saved in the output folder.\n\n"
            "Check that the folder still exists, that you may write in it and that "
            "the disks have room. This file will be skipped.");
    else
        informative += QStringLiteral(
            "\" is not a Keynote 4 file.\n\nThis converter will only convert Keynote 4 "
            "(iWork '08) files to Keynote 5 (iWork '09) files. This file will be skipped.");
    // The converter's own words on this file, for whoever wants them.
    const QString detail = reason.isEmpty() ? QString() : reason.left(1).toUpper() + reason.mid(1) + QLatin1Char('.');
    Alert::show(Alert::Warning, QStringLiteral("A problem occurred."), informative, nullptr, detail);
}

void ProgressBarWindowController::finishedWithErrorNotKeynoteFour()
{
    rejectCurrentFile();
}

void ProgressBarWindowController::finishedWithErrorNotKeynote()
{
    rejectCurrentFile();
}

void ProgressBarWindowController::rejectCurrentFile()
{
    close();
    // A file the person stopped, or converted before, is no problem to report or to list.
    const qint64 code = m_converter->errorOccurred();
    if (code == Converter::Stopped || code == Converter::AlreadyDone)
        return;
    SettingsStore &settings = SettingsStore::standard();
    // The name as it stands in the URL text, escapes and all.
    const QString name = FileUtils::lastPathPiece(settings.requiredString(SettingKey::prezPath));
    if (settings.isOn(SettingKey::stopForErrors))
        reportRejectedFile(name, code, m_converter->errorReason());
    saveErrorPrez(name);
}

void ProgressBarWindowController::saveErrorPrez(const QString &name)
{
    SettingsStore &settings = SettingsStore::standard();
    QStringList names = settings.stringList(SettingKey::errorPrezzes, {});
    names.append(name);
    settings.setObject(SettingKey::errorPrezzes, names);
    settings.synchronize();
}

void ProgressBarWindowController::finishedConversion()
{
    DW_LOG(QLatin1String("******* Finished **********"));
    const QString outputPrezName = m_converter->outputPrezName();
    DW_LOG(QLatin1String("output prezname : ") + outputPrezName);
    // The file's name below the output folder, in the subfolder it was kept in.
    const QString subfolder = m_converter->outputSubfolder();
    const QString written = subfolder.isEmpty() ? outputPrezName : subfolder + QLatin1Char('/') + outputPrezName;
    SettingsStore &settings = SettingsStore::standard();
    const QString completedAction = settings.string(SettingKey::completedAction, QStringLiteral("Do Nothing"));
    const QString playSound = settings.switchText(SettingKey::playSound);
    DW_LOG(QLatin1String("soundCheckBox : ") + playSound);
    if (playSound == QLatin1String("true"))
        DesktopServices::instance().playSound(QStringLiteral("Glass"));
    DW_LOG(QLatin1String("completedAction : ") + completedAction);

    FileUtils::lastPathPiece(
        settings.requiredString(SettingKey::prezPath)); // a prezPath without a name is fatal here too
    const QString outputPath = requiredSetting(SettingKey::outputPath);

    // Two paths, computed apart: the folder part of finalPath is escaped a
    // second time, so it serves only as the root of the reveal.
    const QString finalPathRaw = outputPath + written;
    DW_LOG(QLatin1String("finalPathRaw : ") + finalPathRaw);
    const QString finalPath = FileUrl::addingPercentEscapes(finalPathRaw);
    DW_LOG(QLatin1String("finalPath : ") + finalPath);
    const QString finalPathUrlPath = convertFileUrlToPath(finalPath);
    DW_LOG(QLatin1String("finalPathUrlPath : ") + finalPathUrlPath);

    if (!settings.contains(SettingKey::bookmarkData))
        Fatal::fail(QStringLiteral("no output folder was chosen (the setting bookmarkData is missing)"));
    FolderBookmark &bookmarks = FolderBookmark::platform();
    const std::optional<QUrl> outUrl = bookmarks.resolve(settings.requiredData(SettingKey::bookmarkData));
    if (!outUrl)
        Fatal::fail(QStringLiteral("the output folder %1 no longer exists").arg(convertFileUrlToPath(outputPath)));
    const QUrl outputFileUrl = QUrl::fromLocalFile(outUrl->toLocalFile() + written);
    Q_UNUSED(outputFileUrl)

    const QString pathToUse = outputPath + FileUrl::addingPercentEscapes(written);
    DW_LOG(QLatin1String("pathToUse : ") + pathToUse);
    const QString pathToUseBetter = convertFileUrlToPath(pathToUse);
    DW_LOG(QLatin1String("pathToUseBetter : ") + pathToUseBetter);

    if (completedAction == QLatin1String("Show in Finder")) {
        DW_LOG(QLatin1String("show in finder"));
        bookmarks.startAccessing(*outUrl);
        DesktopServices::instance().revealFile(pathToUseBetter, finalPathUrlPath);
        bookmarks.stopAccessing(*outUrl);
        DW_LOG(QLatin1String("opened url"));
    }
    if (completedAction == QLatin1String("Open in Keynote")) {
        DW_LOG(QLatin1String("opening in keynote"));
        bookmarks.startAccessing(*outUrl);
        DesktopServices::instance().openFile(pathToUseBetter, QStringLiteral("Keynote"));
        bookmarks.stopAccessing(*outUrl);
        DW_LOG(QLatin1String("opened url"));
    }
    close();
}
