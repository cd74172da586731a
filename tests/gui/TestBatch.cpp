#include "gui/Alert.h"
#include "support/gui/AlertRecorder.h"
#include "gui/AppDelegate.h"
#include "support/FatalTrap.h"
#include "core/FileUrl.h"
#include "core/FolderBookmark.h"
#include "gui/OpenPanel.h"
#include "gui/OutputFolderChooser.h"
#include "support/PackageFactory.h"
#include "gui/ProgressBarWindowController.h"
#include "support/gui/RecordingDesktopServices.h"
#include "core/SettingsStore.h"
#include "support/EventRecorder.h"
#include "support/TestSettings.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <deque>

// The batch from the open dialog to the summary, driven through the dialog and alert seams.
class TestBatch : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_work;
    QString m_in;
    QString m_out;
    AlertRecorder m_recorder;
    QList<Alert> &m_alerts = m_recorder.alerts;
    QList<OpenPanel> m_panels;
    std::deque<std::function<OpenPanel::Response(OpenPanel &)>> m_answers;

    // The next panel answers OK with these paths.
    void choose(const QStringList &paths)
    {
        m_answers.push_back([paths](OpenPanel &panel) {
            QList<QUrl> urls;
            for (const QString &path : paths)
                urls.append(OpenPanel::urlForPath(path, true));
            panel.setUrls(urls);
            return OpenPanel::OKResponse;
        });
    }
    void cancel()
    {
        m_answers.push_back([](OpenPanel &) { return OpenPanel::CancelResponse; });
    }
    QStringList packages(const QStringList &names) const
    {
        QStringList paths;
        for (const QString &name : names)
            paths.append(m_in + QLatin1Char('/') + name);
        return paths;
    }
    QStringList outputs() const { return QDir(m_out).entryList(QDir::Files | QDir::Hidden); }

private Q_SLOTS:
    void initTestCase()
    {
        FatalTrap::install();
        TestSettings::isolateScratch(m_work.path());
        OpenPanel::setResponder([this](OpenPanel &panel) {
            m_panels.append(panel);
            if (m_answers.empty())
                return OpenPanel::CancelResponse;
            auto answer = m_answers.front();
            m_answers.pop_front();
            return answer(panel);
        });
        m_in = m_work.filePath(QStringLiteral("in"));
        const PackageFactory factory(m_in);
        factory.make(QStringLiteral("One.key"));
        factory.make(QStringLiteral("Two Words.key"));
        factory.make(QStringLiteral("Three.v2.key"));
        factory.make(QStringLiteral("Newer.key"), PackageFactory::keynoteFiveDocument());
        factory.makeWithoutIndex(QStringLiteral("Hollow.key"));
        QFile note(m_in + QStringLiteral("/notes.txt"));
        QVERIFY(note.open(QIODevice::WriteOnly));
    }

    void init()
    {
        m_alerts.clear();
        m_panels.clear();
        m_answers.clear();
        m_out = m_work.filePath(QStringLiteral("out %1 %2").arg(QTest::currentTestFunction(), QTest::currentDataTag()));
        QDir().mkpath(m_out);
        TestSettings::useOutputFolder(m_out, {{SettingKey::playSound, QStringLiteral("false")}});
    }

    void convertsEveryChosenPackage()
    {
        RecordingDesktopServices desktop;
        AppDelegate delegate;
        choose(packages({QStringLiteral("One.key"), QStringLiteral("Two Words.key"), QStringLiteral("Three.v2.key")}));
        EventRecorder events;
        delegate.showOpenDialog();

        QCOMPARE(m_panels.size(), 1);
        const OpenPanel &panel = m_panels.first();
        QCOMPARE(panel.prompt(), QStringLiteral("Convert"));
        QCOMPARE(panel.title(), QStringLiteral("Choose File To Convert"));
        QCOMPARE(panel.message(), QStringLiteral("Locate file"));
        QVERIFY(panel.allowsMultipleSelection());
        QVERIFY(!panel.canChooseDirectories());
        QVERIFY(panel.canChooseFiles());
        QVERIFY(panel.resolvesAliases());

        QCOMPARE(outputs(), QStringList({QStringLiteral("One.key"), QStringLiteral("Three.v2.key"), QStringLiteral("Two Words.key")}));
        QCOMPARE(events.names.count(QStringLiteral("progress")), 24);
        QCOMPARE(events.names.count(QStringLiteral("finished")), 3);
        QCOMPARE(delegate.testWindow()->progressIndy()->doubleValue(), 100.0);
        QVERIFY(m_alerts.isEmpty());
        QCOMPARE(SettingsStore::standard().stringList(SettingKey::errorPrezzes, {QStringLiteral("x")}), QStringList());
        // The last file's URL text stays behind.
        QCOMPARE(SettingsStore::standard().string(SettingKey::prezPath, {}), FileUrl::absoluteString(m_in + QStringLiteral("/Three.v2.key")));
        QVERIFY(SettingsStore::standard().string(SettingKey::prezPath, {}).endsWith(QLatin1String("/Three.v2.key/")));
    }

    void gathersRejectedFilesIntoOneSummary_data()
    {
        QTest::addColumn<QString>("stopForErrors");
        QTest::addColumn<int>("perFileAlerts");
        QTest::newRow("reported one by one") << "true" << 4;
        QTest::newRow("only summed up") << "false" << 0;
        QTest::newRow("only summed up, capitals") << "True" << 0;
    }

    void gathersRejectedFilesIntoOneSummary()
    {
        QFETCH(QString, stopForErrors);
        QFETCH(int, perFileAlerts);
        SettingsStore::standard().setObject(SettingKey::stopForErrors, stopForErrors);
        RecordingDesktopServices desktop;
        AppDelegate delegate;
        choose(packages({QStringLiteral("Newer.key"), QStringLiteral("One.key"), QStringLiteral("notes.txt"),
                         QStringLiteral("Hollow.key"), QStringLiteral("Newer.key")}));
        delegate.openFileMenuItem();

        QCOMPARE(outputs(), QStringList{QStringLiteral("One.key")});
        const QStringList rejected = {QStringLiteral("Newer.key"), QStringLiteral("notes.txt"), QStringLiteral("Hollow.key"), QStringLiteral("Newer.key")};
        QCOMPARE(SettingsStore::standard().stringList(SettingKey::errorPrezzes, {}), rejected);
        QCOMPARE(m_alerts.size(), perFileAlerts + 1);
        const Alert &summary = m_alerts.last();
        QCOMPARE(summary.buttons(), QStringList{QStringLiteral("OK")});
        QCOMPARE(summary.messageText(), QStringLiteral("Some problems occurred."));
        QCOMPARE(summary.informativeText(), AppDelegate::summaryText(rejected));
    }

    void summaryListsAtMostFiveNames()
    {
        const QString tail = QStringLiteral("\nThis converter will only convert Keynote 4 (iWork '08) files to Keynote 5 (iWork '09) "
                                            "files. Please check the files listed and try again.");
        const QString head = QStringLiteral("The following files were not Keynote files.\n\n");
        auto names = [](int n) {
            QStringList list;
            for (int i = 1; i <= n; ++i)
                list.append(QStringLiteral("f%1.key").arg(i));
            return list;
        };
        const QString five = QStringLiteral("• f1.key\n• f2.key\n• f3.key\n• f4.key\n• f5.key\n");
        QCOMPARE(AppDelegate::summaryText({QStringLiteral("My%20Talk.key")}), head + QStringLiteral("• My%20Talk.key\n") + tail);
        QCOMPARE(AppDelegate::summaryText(names(5)), head + five + tail);
        QCOMPARE(AppDelegate::summaryText(names(6)), head + five + QStringLiteral("• and 1 other.\n") + tail);
        QCOMPARE(AppDelegate::summaryText(names(7)), head + five + QStringLiteral("• and 2 others.\n") + tail);
        QCOMPARE(AppDelegate::summaryText(names(12)), head + five + QStringLiteral("• and 7 others.\n") + tail);
    }

    void cancellingTheOpenDialogWritesNothing()
    {
        SettingsStore::standard().useMemory({});
        AppDelegate delegate;
        cancel();
        delegate.doOpenDialog();
        QVERIFY(!SettingsStore::standard().contains(SettingKey::errorPrezzes));
        QVERIFY(!SettingsStore::standard().contains(SettingKey::prezPath));
        QCOMPARE(m_panels.size(), 1); // no folder chooser either
        QVERIFY(m_alerts.isEmpty());
    }

    void theFirstBatchAsksForTheOutputFolderFirst()
    {
        SettingsStore::standard().useMemory({{SettingKey::playSound, QStringLiteral("false")}});
        RecordingDesktopServices desktop;
        AppDelegate delegate;
        const QString folder = m_work.filePath(QStringLiteral("First Output"));
        QDir().mkpath(folder);
        choose(packages({QStringLiteral("One.key")}));
        choose({folder});
        delegate.doOpenDialog();
        QCOMPARE(m_panels.size(), 2);
        QCOMPARE(m_panels.at(1).title(), QStringLiteral("Choose Folder To Save To"));
        QCOMPARE(QDir(folder).entryList(QDir::Files), QStringList{QStringLiteral("One.key")});
        QCOMPARE(SettingsStore::standard().string(SettingKey::outputPath, {}), FileUrl::absoluteString(folder));
    }

    void aCancelledFirstFolderChoiceEndsTheBatch()
    {
        SettingsStore::standard().useMemory({});
        AppDelegate delegate;
        choose(packages({QStringLiteral("One.key")}));
        cancel();
        QVERIFY_FATAL(delegate.doOpenDialog(), "no output folder was chosen");
        QCOMPARE(m_panels.size(), 2);
    }

    void theChooserKeepsTheFolderInTwoForms()
    {
        SettingsStore &settings = SettingsStore::standard();
        settings.useMemory({});
        const QString folder = m_work.filePath(QStringLiteral("Out Files"));
        QDir().mkpath(folder);

        choose({folder});
        QVERIFY(OutputFolderChooser::run(OutputFolderChooser::Batch));
        const OpenPanel &panel = m_panels.last();
        QCOMPARE(panel.prompt(), QStringLiteral("Use"));
        QCOMPARE(panel.title(), QStringLiteral("Choose Folder To Save To"));
        QCOMPARE(panel.message(), QStringLiteral("Locate Folder"));
        QVERIFY(panel.canChooseDirectories());
        QVERIFY(!panel.canChooseFiles());
        QVERIFY(!panel.allowsMultipleSelection());
        const QString outputPath = settings.string(SettingKey::outputPath, {});
        QVERIFY2(outputPath.startsWith(QLatin1String("file:///")) && outputPath.endsWith(QLatin1String("/Out%20Files/")), qPrintable(outputPath));
        const QByteArray bookmark = settings.requiredData(SettingKey::bookmarkData);
        QCOMPARE(FolderBookmark::platform().resolve(bookmark)->toLocalFile(), folder + QLatin1Char('/'));

        // The same folder again: equal values. A cancel leaves both keys as they were.
        choose({folder});
        QVERIFY(OutputFolderChooser::run(OutputFolderChooser::PreferencesPane));
        QCOMPARE(settings.string(SettingKey::outputPath, {}), outputPath);
        QCOMPARE(settings.requiredData(SettingKey::bookmarkData), bookmark);
        cancel();
        QVERIFY(!OutputFolderChooser::run(OutputFolderChooser::Batch));
        cancel();
        QVERIFY(!OutputFolderChooser::run(OutputFolderChooser::PreferencesPane));
        QCOMPARE(settings.string(SettingKey::outputPath, {}), outputPath);
        QCOMPARE(settings.requiredData(SettingKey::bookmarkData), bookmark);
    }

    void theTwoCopiesReadTheDialogDifferently()
    {
        SettingsStore &settings = SettingsStore::standard();
        const QString folder = m_work.filePath(QStringLiteral("Elsewhere"));
        QDir().mkpath(folder);
        // A folder in hand with a cancel answer: the application's copy goes by the folder.
        auto folderButCancel = [folder](OpenPanel &panel) {
            panel.setUrls({OpenPanel::urlForPath(folder, true)});
            return OpenPanel::CancelResponse;
        };
        settings.useMemory({});
        m_answers.push_back(folderButCancel);
        QVERIFY(!OutputFolderChooser::run(OutputFolderChooser::PreferencesPane));
        QVERIFY(!settings.contains(SettingKey::outputPath));
        m_answers.push_back(folderButCancel);
        QVERIFY(OutputFolderChooser::run(OutputFolderChooser::Batch));
        QCOMPARE(settings.string(SettingKey::outputPath, {}), FileUrl::absoluteString(folder));
    }
};

QTEST_MAIN(TestBatch)
#include "TestBatch.moc"
