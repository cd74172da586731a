#include "gui/Preferences.h"

#include "core/Converter.h"
#include "core/Fatal.h"
#include "core/FileUrl.h"
#include "core/FileUtils.h"
#include "core/Logging.h"
#include "core/SettingsStore.h"
#include "gui/OutputFolderChooser.h"
#include "gui/UpdateChecks.h"
#include "platform/DesktopServices.h"
#include "ui_Preferences.h"

#include <QCheckBox>
#include <QComboBox>
#include <QEvent>
#include <QFormLayout>
#include <QPalette>
#include <QPushButton>
#include <QStyle>
#include <QVariant>
#include <QWidget>

#include <utility>

namespace {
constexpr int kRootLayoutEntry = 1; // after the layout Deckwright has always written
const QString kTrue = QStringLiteral("true");
const QString kFalse = QStringLiteral("false");

QString senderText(QObject *sender, const char *action)
{
    // An item's text may be the desktop's word for the value it stands for.
    if (auto *combo = qobject_cast<QComboBox *>(sender))
        return combo->currentData().isValid() ? combo->currentData().toString() : combo->currentText();
    const QVariant text = sender ? sender->property("text") : QVariant();
    if (!text.isValid())
        Fatal::fail(QStringLiteral("%1 was sent by a control without a text").arg(QLatin1String(action)));
    return text.toString();
}

// The check box states as the settings code counts them: 1 on, 0 off, -1 mixed.
int senderState(QObject *sender, const char *action)
{
    if (auto *box = qobject_cast<QCheckBox *>(sender)) {
        switch (box->checkState()) {
        case Qt::Checked:
            return 1;
        case Qt::PartiallyChecked:
            return -1;
        case Qt::Unchecked:
            return 0;
        }
    }
    if (auto *button = qobject_cast<QAbstractButton *>(sender))
        return button->isChecked() ? 1 : 0;
    Fatal::fail(QStringLiteral("%1 was sent by a control without a state").arg(QLatin1String(action)));
}
} // namespace

Preferences::Preferences(SoftwareUpdater *updater, QObject *parent)
    : QObject(parent)
    , m_updater(updater)
{
}

Preferences::~Preferences()
{
    // The window may still hold the view; it only borrows it.
    delete m_view.data();
}

QWidget *Preferences::preferenceView()
{
    if (!m_viewLoaded) {
        m_viewLoaded = true;
        loadView();
        viewDidLoad();
    }
    if (!m_view)
        Fatal::fail(QStringLiteral("the preferences pane has no view"));
    return m_view;
}

QString Preferences::preferenceIdentifier() const
{
    return QStringLiteral("GeneralPreferencesIdentifier");
}

QString Preferences::preferenceTitle() const
{
    return QStringLiteral("General");
}

// Kept as it has always been: the General pane shows the Bluetooth icon.
QIcon Preferences::preferenceIcon() const
{
    static const char *const names[]
        = {"bluetooth", "preferences-system-bluetooth", "bluetooth-active", "bluetooth-symbolic"};
    for (const char *name : names) {
        const QIcon icon = QIcon::fromTheme(QLatin1String(name));
        if (!icon.isNull())
            return icon;
    }
    return QIcon(QStringLiteral(":/bluetooth.png"));
}

void Preferences::loadView()
{
    auto *view = new QWidget;
    m_ui.reset(new Ui::Preferences);
    m_ui->setupUi(view);
    if (m_ui->outputPathChooserButton->icon().isNull())
        m_ui->outputPathChooserButton->setIcon(view->style()->standardIcon(QStyle::SP_DirIcon));
    m_folderIcon = m_ui->outputPathChooserButton->icon();
    m_chooseToolTip = m_ui->outputPathChooserButton->toolTip();
    // "Month", shown as the interval's placeholder, is a value, not a hint: it reads as the items do.
    QPalette palette = m_ui->intervalCombo->palette();
    for (const QPalette::ColorGroup group : {QPalette::Active, QPalette::Inactive})
        palette.setBrush(group, QPalette::PlaceholderText, palette.brush(group, QPalette::ButtonText));
    m_ui->intervalCombo->setPalette(palette);
    // The form lists the stored values; each item shows the desktop's words for its value.
    QComboBox *actions = m_ui->finishedActionCombo;
    for (int item = 0; item < actions->count(); ++item) {
        actions->setItemData(item, actions->itemText(item));
        actions->setItemText(item, DesktopServices::instance().actionTitle(actions->itemText(item)));
    }
    if (!m_updater)
        hideUpdateControls(view);
    // The folder may have gone since the pane was last looked at.
    view->installEventFilter(this);
    // The pane is the window's whole content and the window does not stretch it.
    view->setFixedSize(view->size().expandedTo(view->sizeHint()));
    m_view = view;
    connectActions();
}

void Preferences::connectActions()
{
    // Only what the person does writes: activated and clicked, never the
    // programmatic changes made while filling the controls.
    Ui::Preferences &ui = *m_ui;
    connect(ui.finishedActionCombo, &QComboBox::activated, this,
            [this] { pickedCompletionAction(m_ui->finishedActionCombo); });
    connect(ui.intervalCombo, &QComboBox::activated, this, [this] { pickedIntervalAction(m_ui->intervalCombo); });
    connect(ui.archiveLayoutCombo, &QComboBox::activated, this,
            [this] { pickedArchiveLayout(m_ui->archiveLayoutCombo); });
    connect(ui.sendSoundButton, &QCheckBox::clicked, this, [this] { soundCheckBox(m_ui->sendSoundButton); });
    connect(ui.stopForErrors, &QCheckBox::clicked, this, [this] { checkStopForErrorsAction(m_ui->stopForErrors); });
    connect(ui.keepFolders, &QCheckBox::clicked, this, [this] { checkKeepFoldersAction(m_ui->keepFolders); });
    connect(ui.skipExisting, &QCheckBox::clicked, this, [this] { checkSkipExistingAction(m_ui->skipExisting); });
    connect(ui.checkForUpdates, &QCheckBox::clicked, this, [this] { checkUpdatesAction(m_ui->checkForUpdates); });
    connect(ui.outputPathChooserButton, &QPushButton::clicked, this,
            [this] { showOutputPathDialog(m_ui->outputPathChooserButton); });
    connect(ui.checkNowButton, &QPushButton::clicked, this, [this] { checkForUpdates(m_ui->checkNowButton); });
}

void Preferences::viewDidLoad()
{
    DW_LOG(QLatin1String("viewdidload, start"));
    SettingsStore &settings = SettingsStore::standard();

    const QString completedAction = settings.string(SettingKey::completedAction, QStringLiteral("Do Nothing"));
    DW_LOG(QLatin1String("viewdidload : completedAction : ") + completedAction);
    // A value that names no item leaves the combo box as it is.
    if (const int item = m_ui->finishedActionCombo->findData(completedAction); item >= 0)
        m_ui->finishedActionCombo->setCurrentIndex(item);

    const QString playSound = settings.switchText(SettingKey::playSound);
    DW_LOG(QLatin1String("viewdidload : playSound : ") + playSound);
    DW_LOG(QLatin1String("soundCheckBox : ") + playSound);
    m_ui->sendSoundButton->setChecked(playSound == kTrue);

    showInterval();

    // Logged under the sound's labels; the log has always read this way.
    const QString checkUpdates = settings.switchText(SettingKey::checkUpdates);
    DW_LOG(QLatin1String("viewdidload : playSound : ") + checkUpdates);
    DW_LOG(QLatin1String("soundCheckBox : ") + checkUpdates);
    m_ui->checkForUpdates->setChecked(checkUpdates == kTrue);
    m_ui->intervalCombo->setEnabled(checkUpdates == kTrue);

    const QString stopForErrors = settings.switchText(SettingKey::stopForErrors);
    DW_LOG(QLatin1String("viewdidload : stopForErrors : ") + stopForErrors);
    m_ui->stopForErrors->setChecked(stopForErrors == kTrue);

    // Unlike the older switches these are off until turned on: a batch fills
    // the output folder as it always has.
    for (const auto &[key, box] : {std::pair(SettingKey::keepFolders, m_ui->keepFolders),
                                   std::pair(SettingKey::skipExisting, m_ui->skipExisting)}) {
        const QString value = settings.switchText(key, kFalse);
        DW_LOG(QLatin1String("viewdidload : ") + key + QLatin1String(" : ") + value);
        box->setChecked(value == kTrue);
    }

    m_ui->archiveLayoutCombo->setCurrentIndex(
        Converter::archiveLayoutSetting() == Converter::ArchiveLayout::PackageAtRoot ? kRootLayoutEntry : 0);

    settings.synchronize();
    updatePathButton();
}

void Preferences::updatePathButton()
{
    const QString outputPath = SettingsStore::standard().string(SettingKey::outputPath, QString());
    DW_LOG(QLatin1String("updatePathButton : outputPath : ") + outputPath);
    QString title;
    if (outputPath.isEmpty()) {
        title = QStringLiteral("Not Set");
    } else {
        const QString piece = FileUtils::lastPathPiece(outputPath);
        const std::optional<QString> name = FileUrl::removingPercentEncoding(piece);
        if (!name)
            Fatal::fail(QStringLiteral("the output folder name \"%1\" is not valid percent-encoded UTF-8").arg(piece));
        title = *name;
    }
    QPushButton *button = m_ui->outputPathChooserButton;
    const OutputFolderChooser::Current folder = OutputFolderChooser::current();
    const bool missing = !outputPath.isEmpty() && !folder.reachable;
    button->setText(missing ? title + QStringLiteral(" (missing)") : title);
    button->setIcon(missing ? button->style()->standardIcon(QStyle::SP_MessageBoxWarning) : m_folderIcon);
    if (folder.path.isEmpty())
        button->setToolTip(m_chooseToolTip);
    else if (missing)
        button->setToolTip(folder.path + QStringLiteral("\nThis folder is no longer there; choose another."));
    else
        button->setToolTip(folder.path);
}

bool Preferences::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_view && event->type() == QEvent::Show)
        updatePathButton();
    return QObject::eventFilter(watched, event);
}

void Preferences::pickedCompletionAction(QObject *sender)
{
    const QString text = senderText(sender, "pickedCompletionAction");
    DW_LOG(QLatin1String("pickedCompletionAction : ") + text);
    SettingsStore &settings = SettingsStore::standard();
    // Stored as it stands; the readers know the three actions.
    settings.setObject(SettingKey::completedAction, text);
    settings.synchronize();
}

void Preferences::showInterval()
{
    const qint64 updateInterval = SettingsStore::standard().integer(SettingKey::updateInterval, 86400);
    DW_LOG(QLatin1String("updateInterval : ") + QString::number(updateInterval));
    // "Year" writes 2419200 and 2419200 reads as "Month". Any other number shows nothing.
    QComboBox *interval = m_ui->intervalCombo;
    QString intervalName;
    if (updateInterval == 86400)
        intervalName = QStringLiteral("Day");
    else if (updateInterval == 604800)
        intervalName = QStringLiteral("Week");
    else if (updateInterval == 2419200)
        intervalName = QStringLiteral("Month");
    // "Month" is no item: it stands in the box as its placeholder, so that the
    // items stay "Day", "Week", "Year" and "Year" can be picked again.
    interval->setCurrentIndex(interval->findText(intervalName));
    interval->setPlaceholderText(interval->currentIndex() < 0 ? intervalName : QString());
}

void Preferences::pickedIntervalAction(QObject *sender)
{
    const QString text = senderText(sender, "pickedIntervalAction");
    DW_LOG(QLatin1String("pickedIntervalAction : ") + text);
    SettingsStore &settings = SettingsStore::standard();
    // "Year" stores 28 days, which viewDidLoad shows as "Month"; "Month" itself stores nothing.
    if (text == QLatin1String("Day"))
        settings.setInteger(SettingKey::updateInterval, 86400);
    else if (text == QLatin1String("Week"))
        settings.setInteger(SettingKey::updateInterval, 604800);
    else if (text == QLatin1String("Year"))
        settings.setInteger(SettingKey::updateInterval, 2419200);
    settings.synchronize();
}

void Preferences::pickedArchiveLayout(QObject *sender)
{
    auto *combo = qobject_cast<QComboBox *>(sender);
    if (!combo)
        Fatal::fail(QStringLiteral("pickedArchiveLayout was sent by something other than a combo box"));
    const Converter::ArchiveLayout layout = combo->currentIndex() == kRootLayoutEntry
                                                ? Converter::ArchiveLayout::PackageAtRoot
                                                : Converter::ArchiveLayout::Reference;
    DW_LOG(QLatin1String("pickedArchiveLayout : ") + Converter::layoutName(layout));
    SettingsStore &settings = SettingsStore::standard();
    settings.setObject(SettingKey::archiveLayout, Converter::layoutName(layout));
    settings.synchronize();
}

void Preferences::storeCheckBox(QObject *sender, const char *action, const QString &key, const QString &firstLine,
                                const QString &onLine, const QString &offLine)
{
    const int state = senderState(sender, action);
    DW_LOG(firstLine + QString::number(state));
    SettingsStore &settings = SettingsStore::standard();
    DW_LOG(state == 1 ? onLine : offLine);
    settings.setObject(key, state == 1 ? kTrue : kFalse);
    settings.synchronize();
}

void Preferences::soundCheckBox(QObject *sender)
{
    storeCheckBox(sender, "soundCheckBox", SettingKey::playSound, QStringLiteral("soundCheckBox : "),
                  QStringLiteral("soundCheckBox : on"), QStringLiteral("soundCheckBox : off"));
}

void Preferences::checkStopForErrorsAction(QObject *sender)
{
    // The first line carries the update action's label; the log has always read this way.
    storeCheckBox(sender, "checkStopForErrorsAction", SettingKey::stopForErrors,
                  QStringLiteral("checkUpdatesAction : "), QStringLiteral("stopForErrors : on"),
                  QStringLiteral("stopForErrors : off"));
}

void Preferences::checkKeepFoldersAction(QObject *sender)
{
    storeCheckBox(sender, "checkKeepFoldersAction", SettingKey::keepFolders,
                  QStringLiteral("checkKeepFoldersAction : "), QStringLiteral("keepFolders : on"),
                  QStringLiteral("keepFolders : off"));
}

void Preferences::checkSkipExistingAction(QObject *sender)
{
    storeCheckBox(sender, "checkSkipExistingAction", SettingKey::skipExisting,
                  QStringLiteral("checkSkipExistingAction : "), QStringLiteral("skipExisting : on"),
                  QStringLiteral("skipExisting : off"));
}

void Preferences::checkUpdatesAction(QObject *sender)
{
    // Only stored: the updater picks it up at the next start.
    storeCheckBox(sender, "checkUpdatesAction", SettingKey::checkUpdates, QStringLiteral("checkUpdatesAction : "),
                  QStringLiteral("checkUpdates : on"), QStringLiteral("checkUpdates : off"));
    // How often matters only while the checks are on.
    m_ui->intervalCombo->setEnabled(SettingsStore::standard().isOn(SettingKey::checkUpdates));
}

void Preferences::checkForUpdates(QObject *sender)
{
    DW_LOG(QLatin1String("check for updates"));
    if (!m_updater)
        Fatal::fail(QStringLiteral("the application has no software updater"));
    UpdateChecks::checkNow(m_updater, sender);
}

void Preferences::hideUpdateControls(QWidget *view)
{
    // The pane loses the rows' height and keeps its width.
    const int before = view->sizeHint().height();
    QFormLayout *form = m_ui->formLayout;
    int spacerRow = -1;
    QFormLayout::ItemRole role;
    form->getItemPosition(form->indexOf(m_ui->updatesSpacer), &spacerRow, &role);
    form->setRowVisible(spacerRow, false);
    form->setRowVisible(m_ui->updatesLabel, false);
    form->setRowVisible(m_ui->checkNowButton, false);
    view->resize(view->width(), view->height() - (before - view->sizeHint().height()));
}

void Preferences::showOutputPathDialog(QObject *)
{
    QWidget *parent = m_view ? m_view->window() : nullptr;
    if (OutputFolderChooser::run(OutputFolderChooser::PreferencesPane, parent))
        updatePathButton();
}
