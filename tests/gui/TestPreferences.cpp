#include "core/FileUrl.h"
#include "core/FolderBookmark.h"
#include "core/SettingsBackend.h"
#include "core/SettingsStore.h"
#include "gui/Preferences.h"
#include "support/FatalTrap.h"
#include "support/gui/BatchFixture.h"
#include "ui_Preferences.h"

#include <QDir>
#include <QtTest>

namespace {

// Holds what the store last synchronised: exactly what the pane wrote.
struct MapBackend : SettingsBackend
{
    explicit MapBackend(const QVariantMap &values)
        : saved(values)
    {
    }
    QVariantMap load() override { return saved; }
    bool save(const QVariantMap &values) override
    {
        saved = values;
        return true;
    }
    QString location() const override { return "(test)"; }
    QVariantMap saved;
};

// What the loaded pane shows, control by control.
QString shown(Preferences &pane)
{
    pane.preferenceView();
    const Ui::Preferences &ui = *pane.ui();
    const auto state = [](const char *name, QCheckBox *box) {
        return QLatin1String(name) + (box->isChecked() ? QLatin1String(" on") : QLatin1String(" off"));
    };
    return QStringList{ui.finishedActionCombo->currentText(),
                       state("sound", ui.sendSoundButton),
                       state("updates", ui.checkForUpdates),
                       state("stop", ui.stopForErrors),
                       ui.intervalCombo->currentText() + (ui.intervalCombo->isEnabled() ? "" : " (disabled)"),
                       ui.outputPathChooserButton->text(),
                       ui.archiveLayoutCombo->currentText().section(QLatin1Char(' '), 1, 1) + " layout"}
        .join(", ");
}

} // namespace

class TestPreferences : public QObject
{
    Q_OBJECT

    BatchFixture f; // for its folders and the open dialog's answers
    MapBackend *m_store = nullptr;

    void useStore(const QVariantMap &values = {})
    {
        auto backend = std::make_unique<MapBackend>(values);
        m_store = backend.get();
        SettingsStore::standard().useBackend(std::move(backend));
    }

private Q_SLOTS:

    void init() { useStore(); }

    void storedValuesAreShownNotWritten_data()
    {
        QTest::addColumn<QVariantMap>("values");
        QTest::addColumn<QString>("controls");
        QTest::newRow("empty store") << QVariantMap()
                                     << "Do Nothing, sound on, updates on, stop on, Day, Not Set, Deckwright layout";
        QTest::newRow("off unless exactly \"true\", a week")
            << QVariantMap{{"completedAction", "Open in Keynote"},
                           {"playSound", "True"},
                           {"checkUpdates", "yes"},
                           {"stopForErrors", "false"},
                           {"updateInterval", qint64(604800)}}
            << "Open in Keynote, sound off, updates off, stop off, Week (disabled), Not Set, Deckwright layout";
        QTest::newRow("four weeks, as written for Year")
            << QVariantMap{{"updateInterval", qint64(2419200)}}
            << "Do Nothing, sound on, updates on, stop on, Month, Not Set, Deckwright layout";
        QTest::newRow("UTF-8 escapes")
            << QVariantMap{{"outputPath", "file:///Users/ann/%C3%9Cbersicht/"}}
            << "Do Nothing, sound on, updates on, stop on, Day, Übersicht (missing), Deckwright layout";
        QTest::newRow("Keynote '09's layout")
            << QVariantMap{{"archiveLayout", "root"}}
            << "Do Nothing, sound on, updates on, stop on, Day, Not Set, Keynote layout";
    }

    void storedValuesAreShownNotWritten()
    {
        QFETCH(QVariantMap, values);
        useStore(values);
        Preferences pane(nullptr);
        QTEST(shown(pane), "controls");
        QCOMPARE(m_store->saved, values);
    }

    void controlsWriteExactValues_data()
    {
        QTest::addColumn<QString>("control");
        QTest::addColumn<QString>("item"); // for a check box: "off" is one click, "on" a second one
        QTest::addColumn<QVariantMap>("written");
        QTest::newRow("completion") << QString("finishedActionCombo") << "Show in Finder"
                                    << QVariantMap{{"completedAction", "Show in Finder"}};
        QTest::newRow("Day") << QString("intervalCombo") << "Day" << QVariantMap{{"updateInterval", qint64(86400)}};
        QTest::newRow("Week") << QString("intervalCombo") << "Week" << QVariantMap{{"updateInterval", qint64(604800)}};
        QTest::newRow("Year, which shows as Month")
            << QString("intervalCombo") << "Year" << QVariantMap{{"updateInterval", qint64(2419200)}};
        QTest::newRow("Month writes nothing") << QString("intervalCombo") << "Month" << QVariantMap();
        QTest::newRow("Keynote '09's layout")
            << QString("archiveLayoutCombo") << "As Keynote '09 writes it (opens in LibreOffice)"
            << QVariantMap{{"archiveLayout", "root"}};
        QTest::newRow("Deckwright's layout") << QString("archiveLayoutCombo") << "As Deckwright has always written it"
                                             << QVariantMap{{"archiveLayout", "reference"}};
        QTest::newRow("sound off") << QString("sendSoundButton") << "off" << QVariantMap{{"playSound", "false"}};
        QTest::newRow("sound on") << QString("sendSoundButton") << "on" << QVariantMap{{"playSound", "true"}};
        QTest::newRow("updates off") << QString("checkForUpdates") << "off" << QVariantMap{{"checkUpdates", "false"}};
        QTest::newRow("stop off") << QString("stopForErrors") << "off" << QVariantMap{{"stopForErrors", "false"}};
    }

    void controlsWriteExactValues()
    {
        QFETCH(QString, control);
        QFETCH(QString, item);
        Preferences pane(nullptr);
        QWidget *widget = pane.preferenceView()->findChild<QWidget *>(control);
        QVERIFY(widget);
        if (auto *combo = qobject_cast<QComboBox *>(widget)) {
            if (combo->findText(item) < 0)
                combo->addItem(item); // a sender text the form does not offer
            // Arrow keys from a neighbour, so activated fires as for a real pick.
            const int index = combo->findText(item);
            combo->setCurrentIndex(index > 0 ? index - 1 : index + 1);
            QTest::keyClick(combo, index > 0 ? Qt::Key_Down : Qt::Key_Up);
        } else {
            if (item == QLatin1String("on"))
                QTest::keyClick(widget, Qt::Key_Space);
            QTest::keyClick(widget, Qt::Key_Space);
        }
        QTEST(m_store->saved, "written");
        // The interval matters only while automatic checks are on.
        QCOMPARE(pane.ui()->intervalCombo->isEnabled(), control != QLatin1String("checkForUpdates") || item == "on");
        // Year is shown as what it stores, 2419200, is read: Month.
        if (item == QLatin1String("Year"))
            QCOMPARE(pane.ui()->intervalCombo->currentText(), QStringLiteral("Month"));
    }

    void unusableValuesAreFatalOnLoad()
    {
        useStore({{"updateInterval", "86400"}});
        Preferences wrongKind(nullptr);
        QVERIFY_FATAL(wrongKind.preferenceView(), "updateInterval");
        useStore({{"outputPath", "file:///Users/ann/Out%FF/"}});
        Preferences badEscape(nullptr);
        QVERIFY_FATAL(badEscape.preferenceView(), "Out%FF");
    }

    void outputFolderButtonWritesAndRetitlesAtOnce()
    {
        const QString folder = f.work("Out Files");
        QVERIFY(QDir().mkpath(folder));
        f.choose({folder});
        Preferences pane(nullptr);
        pane.preferenceView();
        QTest::mouseClick(pane.ui()->outputPathChooserButton, Qt::LeftButton);
        QCOMPARE(pane.ui()->outputPathChooserButton->text(), QStringLiteral("Out Files"));
        QVERIFY(m_store->saved.value(SettingKey::outputPath).toString().endsWith(QLatin1String("/Out%20Files/")));
        QVERIFY(m_store->saved.contains(SettingKey::bookmarkData));
        // Asked again, it opens in that very folder, so that "Use" keeps it.
        QTest::mouseClick(pane.ui()->outputPathChooserButton, Qt::LeftButton);
        QCOMPARE(QDir::cleanPath(f.panels.last().directory()), folder);
    }

    void aGoneOutputFolderShowsAsMissingWhenThePaneComesBack()
    {
        const QString folder = f.work("Going Soon");
        QVERIFY(QDir().mkpath(folder));
        useStore({{SettingKey::outputPath, FileUrl::absoluteString(folder)},
                  {SettingKey::bookmarkData, *FolderBookmark::platform().create(QUrl::fromLocalFile(folder))}});
        Preferences pane(nullptr);
        QWidget *view = pane.preferenceView();
        QPushButton *button = pane.ui()->outputPathChooserButton;
        const auto showsWarning = [button] {
            const QIcon warning = button->style()->standardIcon(QStyle::SP_MessageBoxWarning);
            return button->icon().pixmap(16).toImage() == warning.pixmap(16).toImage();
        };
        view->show();
        QCOMPARE(button->text(), QStringLiteral("Going Soon"));
        QCOMPARE(button->toolTip(), folder);
        QVERIFY(!showsWarning());

        view->hide();
        QVERIFY(QDir(folder).removeRecursively());
        view->show();
        QCOMPARE(button->text(), QStringLiteral("Going Soon (missing)"));
        QVERIFY(button->toolTip().startsWith(folder));
        QVERIFY(showsWarning());
    }
};

QTEST_MAIN(TestPreferences)
#include "TestPreferences.moc"
