#include "core/FileUrl.h"
#include "core/FolderBookmark.h"
#include "core/JsonSettingsBackend.h"
#include "gui/Preferences.h"
#include "support/FatalTrap.h"
#include "support/gui/BatchFixture.h"

#include <QtTest>
#include <QtWidgets>

using namespace Qt::StringLiterals;

// The General pane: what it shows of the store, and what each control writes.
class TestPreferences : public QObject
{
    Q_OBJECT

    BatchFixture f; // for its folders and the open dialog's answers
    const QString m_settings = f.work(u"settings.json"_s);
    std::unique_ptr<Preferences> m_pane;

    // A pane, not loaded yet, on a store holding the values.
    void useStore(const QVariantMap &values = {})
    {
        QVERIFY(JsonSettingsBackend(m_settings).save(values));
        SettingsStore::standard().useFile(m_settings);
        m_pane = std::make_unique<Preferences>(nullptr);
    }
    // What the store last synchronised: exactly what the pane wrote.
    QVariantMap saved() const { return JsonSettingsBackend(m_settings).load(); }
    template <typename Control>
    Control *control(const QString &name)
    {
        return m_pane->preferenceView()->findChild<Control *>(name);
    }
    // What the loaded pane shows, control by control; the two boxes that are
    // off unless stored only when on, and the interval's items only when "Year" is not the third.
    QString shown()
    {
        const auto on = [this](const QString &box) { return control<QCheckBox>(box)->isChecked() ? " on" : " off"; };
        QComboBox *interval = control<QComboBox>(u"intervalCombo"_s);
        return control<QComboBox>(u"finishedActionCombo"_s)->currentText() + ", sound" + on(u"sendSoundButton"_s)
               + ", updates" + on(u"checkForUpdates"_s) + ", stop" + on(u"stopForErrors"_s) + ", "
               + (interval->currentIndex() < 0 ? interval->placeholderText() : interval->currentText())
               + (interval->isEnabled() ? "" : " (disabled)")
               + (interval->findText(u"Year"_s) == 2 ? ", " : " (no Year), ")
               + control<QPushButton>(u"outputPathChooserButton"_s)->text() + ", "
               + control<QComboBox>(u"archiveLayoutCombo"_s)->currentText().section(u' ', 1, 1) + " layout"
               + (control<QCheckBox>(u"keepFolders"_s)->isChecked() ? ", folders kept" : "")
               + (control<QCheckBox>(u"skipExisting"_s)->isChecked() ? ", skip" : "");
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
            << QVariantMap{{"completedAction", "Show in Finder"},
                           {"playSound", "True"},
                           {"checkUpdates", "yes"},
                           {"stopForErrors", "false"},
                           {"updateInterval", qint64(604800)}}
            << "Show in Files, sound off, updates off, stop off, Week (disabled), Not Set, Deckwright layout";
        QTest::newRow("numbers are off")
            << QVariantMap{{"playSound", 1LL}, {"checkUpdates", 1LL}, {"stopForErrors", 0LL}, {"keepFolders", 1LL}}
            << "Do Nothing, sound off, updates off, stop off, Day (disabled), Not Set, Deckwright layout";
        QTest::newRow("four weeks, as written for Year; no Keynote")
            << QVariantMap{{"updateInterval", qint64(2419200)}, {"completedAction", "Open in Keynote"}}
            << "Open with the Default Application, sound on, updates on, stop on, Month, Not Set, Deckwright layout";
        QTest::newRow("UTF-8 escapes")
            << QVariantMap{{"outputPath", "file:///Users/ann/%C3%9Cbersicht/"}}
            << "Do Nothing, sound on, updates on, stop on, Day, Übersicht (missing), Deckwright layout";
        QTest::newRow("Keynote '09's layout")
            << QVariantMap{{"archiveLayout", "root"}}
            << "Do Nothing, sound on, updates on, stop on, Day, Not Set, Keynote layout";
        QTest::newRow("folders kept, converted files skipped")
            << QVariantMap{{"keepFolders", "true"}, {"skipExisting", "true"}}
            << "Do Nothing, sound on, updates on, stop on, Day, Not Set, Deckwright layout, folders kept, skip";
    }

    void storedValuesAreShownNotWritten()
    {
        QFETCH(QVariantMap, values);
        useStore(values);
        QTEST(shown(), "controls");
        QCOMPARE(saved(), values);
    }

    void controlsWriteExactValues_data()
    {
        QTest::addColumn<QString>("control");
        QTest::addColumn<QString>("item"); // for a check box: one click, or a second one to be back so
        QTest::addColumn<QVariantMap>("written");
        const QString interval = u"intervalCombo"_s, layout = u"archiveLayoutCombo"_s;
        const QString finished = u"finishedActionCombo"_s; // its items in a Linux desktop's words
        QTest::newRow("Files") << finished << "Show in Files" << QVariantMap{{"completedAction", "Show in Finder"}};
        QTest::newRow("no Keynote") << finished << "Open with the Default Application"
                                    << QVariantMap{{"completedAction", "Open in Keynote"}};
        QTest::newRow("Day") << interval << "Day" << QVariantMap{{"updateInterval", qint64(86400)}};
        QTest::newRow("Week") << interval << "Week" << QVariantMap{{"updateInterval", qint64(604800)}};
        QTest::newRow("Year, which reads back as Month")
            << interval << "Year" << QVariantMap{{"updateInterval", qint64(2419200)}};
        QTest::newRow("Month writes nothing") << interval << "Month" << QVariantMap();
        QTest::newRow("Keynote '09's layout")
            << layout << "As Keynote '09 writes it (opens in LibreOffice)" << QVariantMap{{"archiveLayout", "root"}};
        QTest::newRow("Deckwright's layout")
            << layout << "As Deckwright has always written it" << QVariantMap{{"archiveLayout", "reference"}};
        QTest::newRow("sound off") << u"sendSoundButton"_s << "off" << QVariantMap{{"playSound", "false"}};
        QTest::newRow("sound on") << u"sendSoundButton"_s << "on" << QVariantMap{{"playSound", "true"}};
        QTest::newRow("updates off") << u"checkForUpdates"_s << "off" << QVariantMap{{"checkUpdates", "false"}};
        QTest::newRow("stop off") << u"stopForErrors"_s << "off" << QVariantMap{{"stopForErrors", "false"}};
        QTest::newRow("folders kept") << u"keepFolders"_s << "on" << QVariantMap{{"keepFolders", "true"}};
        QTest::newRow("skip on") << u"skipExisting"_s << "on" << QVariantMap{{"skipExisting", "true"}};
    }

    void controlsWriteExactValues()
    {
        QFETCH(QString, control);
        QFETCH(QString, item);
        QWidget *widget = this->control<QWidget>(control);
        if (auto *combo = qobject_cast<QComboBox *>(widget)) {
            if (combo->findText(item) < 0)
                combo->addItem(item); // a sender text the form does not offer
            // Arrow keys from a neighbour, so activated fires as for a real pick.
            const int index = combo->findText(item);
            combo->setCurrentIndex(index > 0 ? index - 1 : index + 1);
            QTest::keyClick(combo, index > 0 ? Qt::Key_Down : Qt::Key_Up);
        } else {
            QTest::keyClicks(widget,
                             qobject_cast<QCheckBox *>(widget)->isChecked() == (item == u"on"_s) ? u"  "_s : u" "_s);
        }
        QTEST(saved(), "written");
        // The interval matters only while automatic checks are on.
        QComboBox *interval = this->control<QComboBox>(u"intervalCombo"_s);
        QCOMPARE(interval->isEnabled(), control != u"checkForUpdates"_s || item == u"on"_s);
    }

    void anOutputFolderThatIsNoURLIsFatal()
    {
        useStore({{"outputPath", "file:///Users/ann/Out%FF/"}});
        QVERIFY_FATAL(m_pane->preferenceView(), "Out%FF");
    }

    // The pane goes by the answer: a folder held when the chooser is
    // cancelled is not taken. A folder taken is written and shown at once,
    // and marked missing once it is gone, when the pane comes back.
    void theOutputFolderButtonWritesAtOnceAndMarksAGoneFolderMissing()
    {
        const QString folder = f.work(u"Out Files"_s);
        QVERIFY(QDir().mkpath(folder));
        f.cancel(folder);
        f.choose({folder});
        QPushButton *button = control<QPushButton>(u"outputPathChooserButton"_s);
        const QImage warning = button->style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(16).toImage();
        const auto showsWarning = [&] { return button->icon().pixmap(16).toImage() == warning; };
        button->window()->show();
        QTest::mouseClick(button, Qt::LeftButton);
        QCOMPARE(saved(), QVariantMap());
        QCOMPARE(button->text(), u"Not Set"_s);
        QTest::mouseClick(button, Qt::LeftButton);
        QCOMPARE(button->text(), u"Out Files"_s);
        QCOMPARE(button->toolTip(), folder);
        QVERIFY(!showsWarning());
        QCOMPARE(saved().value(SettingKey::outputPath).toString(), FileUrl::absoluteString(folder));
        const QByteArray bookmark = saved().value(SettingKey::bookmarkData).toByteArray();
        QCOMPARE(FolderBookmark::platform().resolve(bookmark)->toLocalFile(), folder + u'/');
        // Asked again, it opens in that very folder, so that "Use" keeps it.
        QTest::mouseClick(button, Qt::LeftButton);
        QCOMPARE(QDir::cleanPath(f.panels.last().directory()), folder);

        button->window()->hide();
        QVERIFY(QDir(folder).removeRecursively());
        button->window()->show();
        QCOMPARE(button->text(), u"Out Files (missing)"_s);
        QVERIFY(button->toolTip().startsWith(folder));
        QVERIFY(showsWarning());
    }
};

QTEST_MAIN(TestPreferences)
#include "TestPreferences.moc"
