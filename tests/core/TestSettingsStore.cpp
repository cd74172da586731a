#include "core/JsonSettingsBackend.h"
#include "core/SettingsStore.h"
#include "support/FatalTrap.h"
#include "support/Program.h"

#include <QtTest>

#include <cstdio>
#include <unistd.h>

using namespace Qt::StringLiterals;

class TestSettingsStore : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_dir; // a fresh one per test
    QString path() const { return m_dir->filePath(u"Deckwright.json"_s); }
    static SettingsStore &store() { return SettingsStore::standard(); }

    // What the statement tells the person on the standard error.
    static QString stderrOf(const std::function<void()> &statement)
    {
        QTemporaryFile capture; // unopened, it captures nothing and the caller's check fails
        capture.open();
        const int saved = ::dup(STDERR_FILENO);
        ::dup2(capture.handle(), STDERR_FILENO);
        statement(); // stderr is unbuffered: nothing is left to flush
        ::dup2(saved, STDERR_FILENO);
        ::close(saved);
        capture.seek(0);
        return QString::fromLocal8Bit(capture.readAll());
    }

    // A file written by hand; the store, fresh from init, reads it on first use.
    void handWrite(const QByteArray &json)
    {
        QFile file(path());
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(json) == json.size());
    }

private Q_SLOTS:
    void initTestCase() { FatalTrap::install(); }

    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        store().useFile(path());
    }

    void valuesKeepTheirKindsThroughARestart()
    {
        const QVariantMap values{{u"text"_s, u"Show in Finder"_s},
                                 {u"empty"_s, QString()},
                                 {u"oneItem"_s, QStringList{u"My%20Talk.key"_s}},
                                 {u"noItems"_s, QStringList{}},
                                 {u"bytes"_s, QByteArray("\x00\x01{\"base64\":1}\xff", 15)}};
        for (const auto &[key, value] : values.asKeyValueRange())
            store().setObject(key, value);
        // Beyond what a double holds exactly.
        store().setInteger(u"big"_s, Q_INT64_C(9007199254740993));
        QVERIFY(!QFile::exists(path())); // nothing reaches the disk before a synchronise
        QVERIFY(store().synchronize());
        store().useFile(path()); // read afresh, as the next run would
        for (const auto &[key, value] : values.asKeyValueRange())
            QCOMPARE(store().object(key), value); // a QVariant of another kind compares unequal
        QCOMPARE(store().integer(u"big"_s, 0), Q_INT64_C(9007199254740993)); // fatal if it came back a double
    }

    void readersFallBackOnlyWhenAbsent()
    {
        QCOMPARE(store().string(SettingKey::completedAction, u"Do Nothing"_s), u"Do Nothing"_s);
        QCOMPARE(store().integer(SettingKey::updateInterval, 86400), 86400);
        QVERIFY(store().isOn(SettingKey::playSound));
        store().setObject(SettingKey::completedAction, QString());
        QCOMPARE(store().string(SettingKey::completedAction, u"Do Nothing"_s), QString());
        for (const QString &text : {u"True"_s, u"yes"_s, u"true"_s}) {
            store().setObject(SettingKey::playSound, text);
            QCOMPARE(store().isOn(SettingKey::playSound), text == u"true"_s);
        }
        // A number, a JSON truth among them, reads as its text: never "true".
        handWrite(R"({"playSound": 1, "stopForErrors": 1.5, "checkUpdates": true})");
        store().useFile(path());
        for (const QString &key : {SettingKey::playSound, SettingKey::stopForErrors, SettingKey::checkUpdates})
            QVERIFY(!store().isOn(key));
    }

    void aValueOfTheWrongKindIsFatal()
    {
        handWrite(
            R"({"updateInterval": "86400", "checkUpdates": ["true"], "errorPrezzes": "one", "bookmarkData": "/home/ann/Out",
                      "stopForErrors": {"x": 1}, "outputPath": {"base64": ""}, "prezPath": 3600.5,
                      "completedAction": ["a", 2], "playSound": null})");
        QVERIFY_FATAL(store().integer(SettingKey::updateInterval, 86400), "updateInterval");
        QVERIFY_FATAL(store().isOn(SettingKey::checkUpdates), "checkUpdates holds a list of strings, not a string");
        QVERIFY_FATAL(store().isOn(SettingKey::playSound), "playSound holds null, not a string");
        QVERIFY_FATAL(store().stringList(SettingKey::errorPrezzes, {}), "errorPrezzes");
        QVERIFY_FATAL(store().requiredData(SettingKey::bookmarkData), "bookmarkData");
        QVERIFY_FATAL(store().isOn(SettingKey::stopForErrors), "stopForErrors");
        QVERIFY_FATAL(store().string(SettingKey::outputPath, {}), "outputPath");
        QVERIFY_FATAL(store().integer(SettingKey::prezPath, 0), "prezPath");
        QVERIFY_FATAL(store().stringList(SettingKey::completedAction, {}), "completedAction");
        QVERIFY_FATAL(store().requiredString(u"absent"_s), "the setting absent is missing");
    }

    // The message must say what really happened to the damaged file. Only a
    // regular file of a sane size is read: a FIFO would stop the start for ever.
    void aDamagedFileIsKeptAsideWhereItCanBe_data()
    {
        QTest::addColumn<QString>("script"); // makes the settings file, $F
        QTest::addColumn<QString>("why");
        QTest::addColumn<bool>("asideTaken");
        QTest::newRow("kept aside") << u"printf '{ not json' > $F"_s << "could not be read (" << false;
        // A folder of someone else's holds the name the file would be kept under.
        QTest::newRow("the name is taken") << u"printf '{ not json' > $F"_s << "could not be read (" << true;
        QTest::newRow("a FIFO") << u"mkfifo $F"_s << "could not be read (it is a FIFO)" << false;
        QTest::newRow("100 MB") << u"truncate -s 100M $F"_s << "could not be read (it is larger than 8 MB)" << false;
    }
    void aDamagedFileIsKeptAsideWhereItCanBe()
    {
        QFETCH(QString, script);
        QFETCH(QString, why);
        QFETCH(bool, asideTaken);
        const QString aside = path() + u".damaged"_s;
        if (asideTaken)
            QVERIFY(QDir().mkpath(aside + u"/theirs"_s));
        QVERIFY(Program::sh(script, m_dir->path(), {{u"F"_s, path()}}));
        const QString message = stderrOf([&] { QVERIFY(!store().contains(SettingKey::outputPath)); });
        QVERIFY2(message.contains(why)
                     && message.contains(asideTaken ? u"nor kept aside"_s : "it was kept as " + aside),
                 qPrintable(message));
        QVERIFY(QFileInfo::exists(aside));
        QCOMPARE(QFileInfo::exists(aside + u"/theirs"_s), asideTaken);

        store().setObject(SettingKey::outputPath, u"file:///tmp/"_s);
        QVERIFY(store().synchronize());
        store().useFile(path());
        QCOMPARE(store().string(SettingKey::outputPath, {}), u"file:///tmp/"_s);
    }

    void aChangeMadeElsewhereSurvivesOurNextSave()
    {
        store().setObject(SettingKey::playSound, u"false"_s);
        QVERIFY(store().synchronize());
        // Another session, or a person with an editor, changes the file meanwhile.
        QVERIFY(JsonSettingsBackend(path()).save(
            {{SettingKey::completedAction, u"Open in Keynote"_s}, {SettingKey::playSound, u"true"_s}}));
        store().setObject(SettingKey::stopForErrors, u"false"_s);
        QVERIFY(store().synchronize());
        store().useFile(path());
        QCOMPARE(store().string(SettingKey::completedAction, {}), u"Open in Keynote"_s);
        QCOMPARE(store().string(SettingKey::playSound, {}), u"true"_s); // not ours to change back
        QCOMPARE(store().string(SettingKey::stopForErrors, {}), u"false"_s);
    }

    void aSettingsPathThatIsAFolderIsNeverSaved()
    {
        QVERIFY(QDir().mkpath(path()));
        const QString message = stderrOf([] { store().setObject(SettingKey::playSound, u"false"_s); });
        QVERIFY2(message.contains(path() + u" is a folder"_s), qPrintable(message));
        QVERIFY(!store().synchronize());
    }

    void defaultLocationFollowsXdgConfigHome()
    {
        qputenv("XDG_CONFIG_HOME", m_dir->path().toUtf8());
        QCOMPARE(JsonSettingsBackend::defaultPath(), m_dir->path() + u"/bramblefox/Deckwright.json"_s);
    }
};

QTEST_GUILESS_MAIN(TestSettingsStore)
#include "TestSettingsStore.moc"
