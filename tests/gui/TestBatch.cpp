#include "core/FileUrl.h"
#include "core/FolderBookmark.h"
#include "core/SettingsStore.h"
#include "gui/AppDelegate.h"
#include "gui/BatchReport.h"
#include "gui/OutputFolderChooser.h"
#include "support/FatalTrap.h"
#include "support/gui/BatchFixture.h"
#include "ui_MainWindow.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTest>

// The batch from the open dialog to the summary, driven through the dialog and alert seams.
class TestBatch : public QObject
{
    Q_OBJECT

    BatchFixture f;

private Q_SLOTS:
    void init() { f.reset({{SettingKey::playSound, "false"}}); }

    void convertsEveryChosenPackage()
    {
        f.runBatch({"My Talk.key", "Plain.key", "Three.v2.key"});
        QCOMPARE(f.panels.size(), 1);
        QVERIFY(f.panels.first().allowsMultipleSelection());
        QCOMPARE(f.outputs(), QStringList({"My Talk.key", "Plain.key", "Three.v2.key"}));
        QVERIFY(f.alerts.isEmpty());
        QVERIFY(SettingsStore::standard().contains(SettingKey::errorPrezzes));
        QCOMPARE(f.rejected(), QStringList());
        // The last file's URL text stays behind.
        QCOMPARE(SettingsStore::standard().string(SettingKey::prezPath, {}),
                 FileUrl::absoluteString(f.in("Three.v2.key")));
        // Keynote presentations are offered first, and the next dialog opens where this batch came from.
        QCOMPARE(f.panels.first().nameFilters().value(0), QStringLiteral("Keynote Presentations (*.key)"));
        QVERIFY(f.panels.first().directory() != f.in(""));
        f.runBatch({"Plain.key"});
        QCOMPARE(QDir::cleanPath(f.panels.last().directory()), QDir::cleanPath(f.in("")));
    }

    void gathersRejectedFilesIntoOneSummary_data()
    {
        QTest::addColumn<QVariant>("stopForErrors");
        QTest::addColumn<int>("perFileAlerts");
        QTest::newRow("not stored: reported one by one") << QVariant() << 5;
        QTest::newRow("true: reported one by one") << QVariant("true") << 5;
        QTest::newRow("false: only summed up") << QVariant("false") << 0;
        QTest::newRow("TRUE: only summed up") << QVariant("TRUE") << 0;
    }

    void gathersRejectedFilesIntoOneSummary()
    {
        QFETCH(QVariant, stopForErrors);
        QFETCH(int, perFileAlerts);
        if (stopForErrors.isValid())
            SettingsStore::standard().setObject(SettingKey::stopForErrors, stopForErrors);
        // A document chosen inside a package is rejected under its own name.
        f.runBatch(
            {"Newer.key", "Plain.key", "notes.txt", "Not Keynote.key", "My Talk.key/index.apxl.gz", "Newer.key"});

        QCOMPARE(f.outputs(), QStringList{"Plain.key"});
        // Names as in the URL text, escapes kept.
        const QStringList rejected = {"Newer.key", "notes.txt", "Not%20Keynote.key", "index.apxl.gz", "Newer.key"};
        QCOMPARE(f.rejected(), rejected);
        QCOMPARE(f.alerts.size(), perFileAlerts + 1);
        QCOMPARE(f.alerts.last().informativeText(), AppDelegate::summaryText(rejected));
        if (perFileAlerts) {
            const Alert &hollow = f.alerts.at(2);
            QVERIFY2(hollow.informativeText().contains(QLatin1String("\"Not%20Keynote.key\" is not a Keynote 4 file")),
                     qPrintable(hollow.informativeText()));
            // The converter's reason, as a sentence.
            QCOMPARE(hollow.detailedText(), "Index.apxl.gz is missing.");
        }
    }

    void summaryListsAtMostFiveNames_data()
    {
        QTest::addColumn<int>("count");
        QTest::addColumn<QString>("list");
        const QString five = "• f1.key\n• f2.key\n• f3.key\n• f4.key\n• f5.key";
        QTest::newRow("one") << 1 << "• f1.key";
        QTest::newRow("five") << 5 << five;
        QTest::newRow("six") << 6 << five + QStringLiteral("\n• and 1 other.");
        QTest::newRow("twelve") << 12 << five + QStringLiteral("\n• and 7 others.");
    }

    void summaryListsAtMostFiveNames()
    {
        QFETCH(int, count);
        QFETCH(QString, list);
        QStringList names;
        for (int i = 1; i <= count; ++i)
            names.append(QStringLiteral("f%1.key").arg(i));
        // The list stands between the two paragraphs.
        QCOMPARE(AppDelegate::summaryText(names).section("\n\n", 1, 1), list);
    }

    void theFirstBatchAsksForTheOutputFolderFirst()
    {
        SettingsStore::standard().useMemory({{SettingKey::playSound, "false"}});
        const QString folder = f.work("First Output");
        QDir().mkpath(folder);
        f.choose({folder});
        f.runBatch({"Plain.key"});
        QCOMPARE(f.panels.size(), 2);
        QVERIFY(f.panels.at(1).canChooseDirectories());
        QCOMPARE(QDir(folder).entryList(QDir::Files), QStringList{"Plain.key"});

        // Without a folder the batch is called off, and the program goes on.
        SettingsStore::standard().useMemory({});
        f.panels.clear();
        f.cancel();
        f.runBatch({"Plain.key"});
        QCOMPARE(f.panels.size(), 2);
        QVERIFY(f.alerts.isEmpty());
        QVERIFY(!SettingsStore::standard().contains(SettingKey::prezPath));
        QVERIFY(!SettingsStore::standard().contains(SettingKey::errorPrezzes));
    }

    void aGoneOutputFolderIsAskedForAgainFirst_data()
    {
        QTest::addColumn<bool>("fileInItsPlace");
        QTest::addColumn<bool>("chooseAnother");
        QTest::newRow("deleted, another chosen") << false << true;
        QTest::newRow("deleted, cancelled") << false << false;
        QTest::newRow("a file in its place, cancelled") << true << false;
    }

    void aGoneOutputFolderIsAskedForAgainFirst()
    {
        QFETCH(bool, fileInItsPlace);
        QFETCH(bool, chooseAnother);
        QVERIFY(QDir(f.out).removeRecursively());
        if (fileInItsPlace)
            QVERIFY(QFile(f.out).open(QIODevice::WriteOnly));
        const QString another = f.work("Another Output");
        QDir(another).removeRecursively();
        QDir().mkpath(another);
        if (chooseAnother)
            f.choose({another});
        else
            f.cancel();
        f.runBatch({"Plain.key"});

        QCOMPARE(f.alerts.size(), 1);
        QVERIFY(f.alerts.first().messageText().contains(QFileInfo(f.out).fileName()));
        QVERIFY2(f.alerts.first().informativeText().contains(f.out), qPrintable(f.alerts.first().informativeText()));
        QCOMPARE(f.panels.size(), 2);
        QVERIFY(f.panels.at(1).canChooseDirectories());
        SettingsStore &settings = SettingsStore::standard();
        if (chooseAnother) {
            QCOMPARE(QDir(another).entryList(QDir::Files), QStringList{"Plain.key"});
            QCOMPARE(settings.string(SettingKey::outputPath, {}), FileUrl::absoluteString(another));
        } else {
            QVERIFY(!settings.contains(SettingKey::prezPath));
            QVERIFY(!settings.contains(SettingKey::errorPrezzes));
            QCOMPARE(QFileInfo(f.out).exists(), fileInItsPlace);
        }
    }

    void aBatchEndsWithALineOfWhatItDid()
    {
        AppDelegate app;
        MainWindow *window = app.window();
        const auto batch = [&](const QStringList &names) {
            f.choose(names);
            app.openFileMenuItem();
        };
        const auto followLink = [&] {
            f.desktop.calls.clear();
            Q_EMIT window->ui().statusLine->linkActivated(QString());
            return f.desktop.calls;
        };
        const auto revealed = [&](const QString &name) {
            return QStringList{QStringLiteral("revealFile(\"%1/%2\", \"%1\")").arg(f.out, name)};
        };

        batch({"Plain.key", "Newer.key", "My Talk.key", "Three.v2.key"});
        QCOMPARE(window->statusText(), QStringLiteral("3 presentations converted, 1 skipped · Show in Files"));
        QCOMPARE(followLink(), revealed(QStringLiteral("Three.v2.key")));

        // The name really written, not the package's.
        batch({"Plain.key"});
        QCOMPARE(window->statusText(), QStringLiteral("1 presentation converted · Show in Files"));
        QCOMPARE(followLink(), revealed(QStringLiteral("Plain.1.key")));

        // Until a batch that converts nothing.
        batch({"Newer.key"});
        QCOMPARE(window->statusText(), QString());
        QVERIFY(window->ui().statusLine->isHidden());
    }

    void aNotificationTellsOnlyWhoIsAwayFromTheWindow()
    {
        AppDelegate app;
        const auto notifications
            = [&] { return f.desktop.calls.filter(QRegularExpression(QStringLiteral("^notify"))); };
        // The main window was never shown.
        f.choose({"Plain.key", "notes.txt"});
        app.openFileMenuItem();
        QTRY_COMPARE(notifications(),
                     QStringList{QStringLiteral(
                         "notify(\"Deckwright\", \"1 presentation converted, 1 skipped\", \"Show in Files\")")});
        f.desktop.calls.clear();
        f.desktop.notificationAction();
        QCOMPARE(f.desktop.calls, QStringList{QStringLiteral("revealFile(\"%1/Plain.key\", \"%1\")").arg(f.out)});

        app.showMainWindow();
        f.desktop.calls.clear();
        f.choose({"Plain.key"});
        app.openFileMenuItem();
        // The desktop hands the focus back once the progress window is gone.
        app.window()->activateWindow();
        QTest::qWait(BatchReport::notificationDelay * 3 / 2);
        QVERIFY(app.window()->isActiveWindow());
        QCOMPARE(notifications(), QStringList());
        QCOMPARE(f.outputs().size(), 2);
    }

    void theChooserKeepsTheFolderInTwoForms_data()
    {
        QTest::addColumn<int>("origin");
        QTest::addColumn<int>("response");
        QTest::addColumn<bool>("withFolder");
        QTest::addColumn<bool>("kept");
        QTest::newRow("batch, OK") << int(OutputFolderChooser::Batch) << int(OpenPanel::OKResponse) << true << true;
        QTest::newRow("pane, OK") << int(OutputFolderChooser::PreferencesPane) << int(OpenPanel::OKResponse) << true
                                  << true;
        // The batch goes by the folder in hand, the preferences pane by the answer.
        QTest::newRow("batch, cancel with a folder")
            << int(OutputFolderChooser::Batch) << int(OpenPanel::CancelResponse) << true << true;
        QTest::newRow("pane, cancel with a folder")
            << int(OutputFolderChooser::PreferencesPane) << int(OpenPanel::CancelResponse) << true << false;
        QTest::newRow("batch, cancel") << int(OutputFolderChooser::Batch) << int(OpenPanel::CancelResponse) << false
                                       << false;
    }

    void theChooserKeepsTheFolderInTwoForms()
    {
        QFETCH(int, origin);
        QFETCH(int, response);
        QFETCH(bool, withFolder);
        QFETCH(bool, kept);
        SettingsStore &settings = SettingsStore::standard();
        settings.useMemory({});
        const QString folder = f.work("Out Files");
        QDir().mkpath(folder);
        f.answers.push_back([&](OpenPanel &panel) {
            if (withFolder)
                panel.setUrls({OpenPanel::urlForPath(folder, true)});
            return OpenPanel::Response(response);
        });
        QCOMPARE(OutputFolderChooser::run(OutputFolderChooser::Origin(origin)), kept);
        QCOMPARE(settings.contains(SettingKey::bookmarkData), kept);
        if (kept) {
            QCOMPARE(settings.string(SettingKey::outputPath, {}), FileUrl::absoluteString(folder));
            QCOMPARE(FolderBookmark::platform().resolve(settings.requiredData(SettingKey::bookmarkData))->toLocalFile(),
                     folder + QLatin1Char('/'));
        } else {
            QVERIFY(!settings.contains(SettingKey::outputPath));
        }
    }
};

QTEST_MAIN(TestBatch)
#include "TestBatch.moc"
