#include "Alert.h"
#include "AppDelegate.h"
#include "FatalTrap.h"
#include "OpenPanel.h"
#include "Preferences.h"
#include "PreferencesWindow.h"
#include "PreferencesWindowController.h"
#include "SettingsBackend.h"
#include "SettingsStore.h"
#include "SoftwareUpdater.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QHostAddress>
#include <QLoggingCategory>
#include <QPushButton>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QtTest>

namespace {

// Keeps the values in memory and counts the synchronises, so a test can tell
// "synchronised" from "written".
class CountingBackend : public SettingsBackend
{
public:
    explicit CountingBackend(const QVariantMap &initial) : saved(initial) {}
    QVariantMap load() override { return saved; }
    bool save(const QVariantMap &values) override
    {
        saved = values;
        ++saves;
        return true;
    }
    QString location() const override { return QStringLiteral("(counting)"); }

    QVariantMap saved;
    int saves = 0;
};

// The debug log's messages (without unit, line and function) and the system log's info lines.
struct LogLine
{
    QString unit;
    QString function;
    QString message;
};
QList<LogLine> debugLines;
QStringList infoLines;

void captureMessages(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (context.category && QLatin1String(context.category) == QLatin1String("deckwright")) {
        // Logging::log writes "Unit:line function message".
        const QString function = QString::fromUtf8(context.function);
        const qsizetype at = text.indexOf(function);
        debugLines.append({text.left(text.indexOf(QLatin1Char(':'))), function,
                           at < 0 ? text : text.mid(at + function.size() + 1)});
    } else if (type == QtInfoMsg) {
        infoLines.append(text);
    }
}

QStringList messages()
{
    QStringList result;
    for (const LogLine &line : std::as_const(debugLines))
        result << line.message;
    return result;
}

// Picks an item the way a person does, with the arrow keys from its neighbour,
// so that activated fires as it does for a real pick.
void pick(QComboBox *combo, const QString &text)
{
    const int index = combo->findText(text);
    QVERIFY(index >= 0 && combo->count() > 1);
    combo->setCurrentIndex(index > 0 ? index - 1 : index + 1);
    QTest::keyClick(combo, index > 0 ? Qt::Key_Down : Qt::Key_Up);
    QCOMPARE(combo->currentText(), text);
}

QCheckBox *box(Preferences &pane, const QString &name)
{
    if (name == QLatin1String("sendSoundButton"))
        return pane.sendSoundButton();
    if (name == QLatin1String("stopForErrors"))
        return pane.stopForErrorsBox();
    return pane.checkForUpdatesBox();
}

} // namespace

class TestPreferences : public QObject
{
    Q_OBJECT

private:
    CountingBackend *m_store = nullptr;
    QTemporaryDir m_dir;

    void useStore(const QVariantMap &values = {})
    {
        auto backend = std::make_unique<CountingBackend>(values);
        m_store = backend.get();
        SettingsStore::standard().useBackend(std::move(backend));
    }

private Q_SLOTS:
    void initTestCase()
    {
        FatalTrap::install();
        QLoggingCategory::setFilterRules(QStringLiteral("deckwright.debug=true"));
        qInstallMessageHandler(captureMessages);
    }

    void cleanupTestCase()
    {
        qInstallMessageHandler(nullptr);
        OpenPanel::setResponder(nullptr);
        Alert::setResponder(nullptr);
        SettingsStore::standard().useMemory();
    }

    void init()
    {
        useStore();
        debugLines.clear();
        infoLines.clear();
    }

    void emptyStoreShowsTheFallbacks()
    {
        Preferences pane;
        QCOMPARE(pane.preferenceIdentifier(), QStringLiteral("GeneralPreferencesIdentifier"));
        QCOMPARE(pane.preferenceTitle(), QStringLiteral("General"));
        QVERIFY(!pane.preferenceIcon().isNull());
        QVERIFY(!pane.isViewLoaded());
        QVERIFY(!pane.finishedActionCombo());

        QWidget *view = pane.preferenceView();
        QVERIFY(view);
        QCOMPARE(pane.preferenceView(), view);
        QCOMPARE(pane.finishedActionCombo()->currentText(), QStringLiteral("Do Nothing"));
        QVERIFY(pane.sendSoundButton()->isChecked());
        QVERIFY(pane.checkForUpdatesBox()->isChecked());
        QVERIFY(pane.stopForErrorsBox()->isChecked());
        QCOMPARE(pane.intervalCombo()->currentText(), QStringLiteral("Day"));
        QCOMPARE(pane.outputPathChooserButton()->text(), QStringLiteral("Not Set"));

        // Filled once, synchronised once, nothing written.
        QCOMPARE(m_store->saves, 1);
        QVERIFY(m_store->saved.isEmpty());
        QCOMPARE(messages(), QStringList({
                                 "viewdidload, start",
                                 "viewdidload : completedAction : Do Nothing",
                                 "viewdidload : playSound : true",
                                 "soundCheckBox : true",
                                 "updateInterval : 86400",
                                 "viewdidload : playSound : true",
                                 "soundCheckBox : true",
                                 "viewdidload : stopForErrors : true",
                                 "updatePathButton : outputPath : ",
                             }));
        for (const LogLine &line : std::as_const(debugLines))
            QCOMPARE(line.unit, QStringLiteral("Preferences"));
    }

    void storedValuesAreShown_data()
    {
        QTest::addColumn<QVariantMap>("values");
        QTest::addColumn<QString>("action");
        QTest::addColumn<bool>("sound");
        QTest::addColumn<bool>("updates");
        QTest::addColumn<bool>("stop");
        QTest::addColumn<int>("intervalIndex");

        QTest::newRow("all off, a week")
            << QVariantMap{{"completedAction", "Open in Keynote"}, {"playSound", "false"}, {"checkUpdates", "false"},
                           {"stopForErrors", "false"}, {"updateInterval", qint64(604800)}}
            << "Open in Keynote" << false << false << false << 1;
        QTest::newRow("capitalised or other words are off")
            << QVariantMap{{"completedAction", "Show in Finder"}, {"playSound", "True"}, {"checkUpdates", "yes"},
                           {"stopForErrors", "TRUE"}}
            << "Show in Finder" << false << false << false << 0;
        QTest::newRow("28 days shows as Month") << QVariantMap{{"updateInterval", qint64(2419200)}} << "Do Nothing"
                                                << true << true << true << 2;
        QTest::newRow("an hour selects nothing") << QVariantMap{{"updateInterval", qint64(3600)}} << "Do Nothing"
                                                 << true << true << true << -1;
        QTest::newRow("a year selects nothing") << QVariantMap{{"updateInterval", qint64(31536000)}} << "Do Nothing"
                                                << true << true << true << -1;
        QTest::newRow("an unknown action leaves the combo box")
            << QVariantMap{{"completedAction", "do nothing"}} << "Do Nothing" << true << true << true << 0;
    }

    void storedValuesAreShown()
    {
        QFETCH(QVariantMap, values);
        QFETCH(QString, action);
        QFETCH(bool, sound);
        QFETCH(bool, updates);
        QFETCH(bool, stop);
        QFETCH(int, intervalIndex);
        useStore(values);

        Preferences pane;
        pane.preferenceView();
        QCOMPARE(pane.finishedActionCombo()->currentText(), action);
        QCOMPARE(pane.sendSoundButton()->isChecked(), sound);
        QCOMPARE(pane.checkForUpdatesBox()->isChecked(), updates);
        QCOMPARE(pane.stopForErrorsBox()->isChecked(), stop);
        QCOMPARE(pane.intervalCombo()->currentIndex(), intervalIndex);
        QCOMPARE(m_store->saved, values);
    }

    void wrongKindsAreFatal_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("value");
        QTest::newRow("a string for the interval") << "updateInterval" << QVariant(QStringLiteral("86400"));
        QTest::newRow("a number for the sound") << "playSound" << QVariant(qint64(1));
        QTest::newRow("bytes for the output folder") << "outputPath" << QVariant(QByteArray("file:///tmp/"));
    }

    void wrongKindsAreFatal()
    {
        QFETCH(QString, key);
        QFETCH(QVariant, value);
        useStore({{key, value}});
        Preferences pane;
        try {
            pane.preferenceView();
            QFAIL("a setting of the wrong kind was shown");
        } catch (const FatalError &error) {
            QVERIFY2(error.reason.contains(key), qPrintable(error.reason));
        }
    }

    void combosWriteThePickedItem()
    {
        Preferences pane;
        pane.preferenceView();
        const int saves = m_store->saves;
        pick(pane.finishedActionCombo(), QStringLiteral("Show in Finder"));
        QCOMPARE(m_store->saved.value("completedAction"), QVariant(QStringLiteral("Show in Finder")));
        QCOMPARE(m_store->saves, saves + 1);
        pick(pane.finishedActionCombo(), QStringLiteral("Open in Keynote"));
        QCOMPARE(m_store->saved.value("completedAction"), QVariant(QStringLiteral("Open in Keynote")));

        pick(pane.intervalCombo(), QStringLiteral("Week"));
        QCOMPARE(m_store->saved.value("updateInterval"), QVariant(qint64(604800)));
        pick(pane.intervalCombo(), QStringLiteral("Day"));
        QCOMPARE(m_store->saved.value("updateInterval"), QVariant(qint64(86400)));
        QCOMPARE(m_store->saves, saves + 4);

        // "Month" is not a text the interval action knows: nothing is written, the store is still synchronised.
        const QVariantMap before = m_store->saved;
        pick(pane.intervalCombo(), QStringLiteral("Month"));
        QCOMPARE(m_store->saves, saves + 5);
        QCOMPARE(m_store->saved, before);

        // Filling the controls never counts as a pick.
        useStore({{"completedAction", "Open in Keynote"}, {"updateInterval", qint64(604800)}});
        Preferences another;
        another.preferenceView();
        QCOMPARE(m_store->saved.value("completedAction"), QVariant(QStringLiteral("Open in Keynote")));
        QCOMPARE(m_store->saves, 1);
    }

    void yearIsStoredAndShownAsMonth()
    {
        QComboBox other;
        other.addItems({QStringLiteral("Hour"), QStringLiteral("Year")});
        Preferences pane;
        pane.preferenceView();

        other.setCurrentText(QStringLiteral("Year"));
        pane.pickedIntervalAction(&other);
        QCOMPARE(m_store->saved.value("updateInterval"), QVariant(qint64(2419200)));

        other.setCurrentText(QStringLiteral("Hour"));
        const int saves = m_store->saves;
        pane.pickedIntervalAction(&other);
        QCOMPARE(m_store->saves, saves + 1);
        QCOMPARE(m_store->saved.value("updateInterval"), QVariant(qint64(2419200)));

        Preferences reopened;
        reopened.preferenceView();
        QCOMPARE(reopened.intervalCombo()->currentText(), QStringLiteral("Month"));

        // The completion text is stored as it stands, known or not.
        QPushButton sender(QStringLiteral("Email Me"));
        pane.pickedCompletionAction(&sender);
        QCOMPARE(m_store->saved.value("completedAction"), QVariant(QStringLiteral("Email Me")));
    }

    void checkBoxesWriteAndLog_data()
    {
        QTest::addColumn<QString>("control");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("function");
        QTest::addColumn<QStringList>("offLines");
        QTest::addColumn<QStringList>("onLines");
        QTest::newRow("stop for errors") << "stopForErrors" << "stopForErrors" << "checkStopForErrorsAction"
                                         << QStringList{"checkUpdatesAction : 0", "stopForErrors : off"}
                                         << QStringList{"checkUpdatesAction : 1", "stopForErrors : on"};
        QTest::newRow("sound") << "sendSoundButton" << "playSound" << "soundCheckBox"
                               << QStringList{"soundCheckBox : 0", "soundCheckBox : off"}
                               << QStringList{"soundCheckBox : 1", "soundCheckBox : on"};
        QTest::newRow("updates") << "checkForUpdates" << "checkUpdates" << "checkUpdatesAction"
                                 << QStringList{"checkUpdatesAction : 0", "checkUpdates : off"}
                                 << QStringList{"checkUpdatesAction : 1", "checkUpdates : on"};
    }

    void checkBoxesWriteAndLog()
    {
        QFETCH(QString, control);
        QFETCH(QString, key);
        QFETCH(QString, function);
        QFETCH(QStringList, offLines);
        QFETCH(QStringList, onLines);
        Preferences pane;
        pane.preferenceView();
        QCheckBox *checkBox = box(pane, control);
        QVERIFY(checkBox->isChecked());
        const int saves = m_store->saves;

        debugLines.clear();
        QTest::keyClick(checkBox, Qt::Key_Space);
        QVERIFY(!checkBox->isChecked());
        QCOMPARE(m_store->saved.value(key), QVariant(QStringLiteral("false")));
        QCOMPARE(m_store->saves, saves + 1);
        QCOMPARE(messages(), offLines);
        for (const LogLine &line : std::as_const(debugLines)) {
            QCOMPARE(line.unit, QStringLiteral("Preferences"));
            QVERIFY2(line.function.contains(QStringLiteral("Preferences::") + function), qPrintable(line.function));
        }

        debugLines.clear();
        QTest::keyClick(checkBox, Qt::Key_Space);
        QCOMPARE(m_store->saved.value(key), QVariant(QStringLiteral("true")));
        QCOMPARE(m_store->saves, saves + 2);
        QCOMPARE(messages(), onLines);

        // Only the box's own key is touched.
        QCOMPARE(m_store->saved.size(), 1);
    }

    void pathButtonTitle_data()
    {
        QTest::addColumn<QString>("outputPath");
        QTest::addColumn<QString>("title");
        QTest::newRow("blank in the disk name") << "file:///Volumes/My%20Disk/Converted/" << "Converted";
        QTest::newRow("blank in the folder name") << "file:///Users/ann/Out%20Files/" << "Out Files";
        QTest::newRow("UTF-8 escapes") << "file:///Users/ann/%C3%9Cbersicht/" << "Übersicht";
        QTest::newRow("no trailing slash") << "file:///Users/ann/Talks" << "Talks";
        QTest::newRow("empty") << "" << "Not Set";
    }

    void pathButtonTitle()
    {
        QFETCH(QString, outputPath);
        QFETCH(QString, title);
        useStore({{"outputPath", outputPath}});
        Preferences pane;
        pane.preferenceView();
        QCOMPARE(pane.outputPathChooserButton()->text(), title);
        QVERIFY(messages().contains(QStringLiteral("updatePathButton : outputPath : ") + outputPath));
    }

    void unusablePathsAreFatal_data()
    {
        QTest::addColumn<QString>("outputPath");
        QTest::newRow("only slashes") << "///";
        QTest::newRow("a single slash") << "/";
        QTest::newRow("broken escape") << "file:///Users/ann/Out%2/";
        QTest::newRow("escape that is not UTF-8") << "file:///Users/ann/Out%FF/";
    }

    void unusablePathsAreFatal()
    {
        QFETCH(QString, outputPath);
        useStore({{"outputPath", outputPath}});
        Preferences pane;
        QVERIFY_FATAL(pane.preferenceView(), "");
    }

    void outputFolderButtonRunsTheChooser()
    {
        QVERIFY(m_dir.isValid());
        const QString folder = m_dir.filePath(QStringLiteral("Out Files"));
        QVERIFY(QDir().mkpath(folder));
        useStore({{"outputPath", "file:///Volumes/My%20Disk/Converted/"}});
        Preferences pane;
        pane.preferenceView();
        QCOMPARE(pane.outputPathChooserButton()->text(), QStringLiteral("Converted"));

        QString shownTitle;
        OpenPanel::setResponder([&](OpenPanel &panel) {
            shownTitle = panel.title();
            return OpenPanel::CancelResponse;
        });
        const QVariantMap before = m_store->saved;
        QTest::mouseClick(pane.outputPathChooserButton(), Qt::LeftButton);
        QCOMPARE(shownTitle, QStringLiteral("Choose Folder To Save To"));
        QCOMPARE(m_store->saved, before);
        QCOMPARE(pane.outputPathChooserButton()->text(), QStringLiteral("Converted"));
        QVERIFY(infoLines.isEmpty());

        OpenPanel::setResponder([&](OpenPanel &panel) {
            panel.setUrls({OpenPanel::urlForPath(folder, true)});
            return OpenPanel::OKResponse;
        });
        QTest::mouseClick(pane.outputPathChooserButton(), Qt::LeftButton);
        OpenPanel::setResponder(nullptr);
        QVERIFY2(m_store->saved.value("outputPath").toString().endsWith(QStringLiteral("/Out%20Files/")),
                 qPrintable(m_store->saved.value("outputPath").toString()));
        QVERIFY(m_store->saved.contains("bookmarkData"));
        QCOMPARE(pane.outputPathChooserButton()->text(), QStringLiteral("Out Files"));
        QCOMPARE(infoLines, QStringList{QStringLiteral("OK selected")});
    }

    void checkNowAsksTheUpdater()
    {
        Preferences pane;
        pane.preferenceView();
        QPushButton *checkNow = pane.checkNowButton();
        QVERIFY(!AppDelegate::shared());
        QVERIFY_FATAL(pane.checkForUpdates(checkNow), "delegate");

        // A port that was just given up: the check fails fast with a network error.
        QTcpServer closed;
        QVERIFY(closed.listen(QHostAddress::LocalHost, 0));
        const quint16 port = closed.serverPort();
        closed.close();
        qputenv("DECKWRIGHT_APPCAST_URL", QStringLiteral("http://127.0.0.1:%1/appcast.xml").arg(port).toUtf8());

        QStringList alerts;
        Alert::setResponder([&](const Alert &alert) {
            alerts << alert.messageText();
            return Alert::firstButtonReturn;
        });
        AppDelegate delegate;
        QSignalSpy finished(delegate.updater(), &SoftwareUpdater::checkFinished);
        debugLines.clear();
        QTest::mouseClick(checkNow, Qt::LeftButton);
        QVERIFY(messages().contains(QStringLiteral("check for updates")));
        QVERIFY(finished.count() > 0 || finished.wait(20000));
        Alert::setResponder(nullptr);
        qunsetenv("DECKWRIGHT_APPCAST_URL");

        QCOMPARE(finished.first().first().value<SoftwareUpdater::Result>(), SoftwareUpdater::NetworkError);
        QCOMPARE(alerts.size(), 1);
        QVERIFY(!m_store->saved.contains("checkUpdates"));
        QVERIFY(!m_store->saved.contains("updateInterval"));
    }

    void showsInThePreferencesWindow()
    {
        useStore({{"outputPath", "file:///Users/ann/Out%20Files/"}, {"updateInterval", qint64(604800)}});
        auto pane = std::make_shared<Preferences>();
        PreferencesWindowController controller;
        controller.setShowToolbarWithSingleViewController(false);
        controller.setPreferencesViewControllers({pane});
        controller.showPreferencesWindow();
        controller.finishAnimation();
        PreferencesWindow *window = controller.window();
        QVERIFY(window->isVisible());
        QCOMPARE(window->windowTitle(), QStringLiteral("General"));
        QCOMPARE(window->contentView(), pane->preferenceView());
        QCOMPARE(controller.activeViewController(), PreferencesPane(pane));
        // Every control fits inside the window.
        const QRect content = pane->preferenceView()->rect();
        for (QWidget *control : {static_cast<QWidget *>(pane->finishedActionCombo()),
                                 static_cast<QWidget *>(pane->checkNowButton()),
                                 static_cast<QWidget *>(pane->intervalCombo()),
                                 static_cast<QWidget *>(pane->stopForErrorsBox())}) {
            const QRect area(control->mapTo(pane->preferenceView(), QPoint(0, 0)), control->size());
            QVERIFY2(content.contains(area), qPrintable(control->objectName()));
        }

        const QString shot = qEnvironmentVariable("DECKWRIGHT_SCREENSHOT");
        if (!shot.isEmpty())
            QVERIFY(window->grab().save(shot));
        controller.dismissPreferencesWindow();
    }
};

QTEST_MAIN(TestPreferences)
#include "TestPreferences.moc"
