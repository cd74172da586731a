#include "support/FatalTrap.h"
#include "core/JsonSettingsBackend.h"
#include "core/SettingsStore.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

class TestSettingsStore : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QString path() const { return m_dir.filePath(QStringLiteral("Deckwright.json")); }
    SettingsStore &store() { return SettingsStore::standard(); }

private Q_SLOTS:
    void initTestCase()
    {
        FatalTrap::install();
        QVERIFY(m_dir.isValid());
    }

    void init()
    {
        QFile::remove(path());
        store().useFile(path());
    }

    void valuesKeepTheirKindsThroughARestart()
    {
        store().setObject(QStringLiteral("text"), QStringLiteral("Show in Finder"));
        store().setObject(QStringLiteral("empty"), QString());
        store().setObject(QStringLiteral("oneItem"), QStringList{QStringLiteral("My%20Talk.key")});
        store().setObject(QStringLiteral("noItems"), QStringList{});
        store().setObject(QStringLiteral("bytes"), QByteArray("\x00\x01{\"base64\":1}\xff", 15));
        store().setInteger(QStringLiteral("number"), 2419200);
        store().setInteger(QStringLiteral("big"), Q_INT64_C(9007199254740993));
        QVERIFY(!QFile::exists(path())); // nothing reaches the disk before a synchronise
        QVERIFY(store().synchronize());

        store().useFile(path()); // what the next run sees
        QCOMPARE(store().object(QStringLiteral("text")).typeId(), int(QMetaType::QString));
        QCOMPARE(store().string(QStringLiteral("text"), {}), QStringLiteral("Show in Finder"));
        QVERIFY(store().contains(QStringLiteral("empty")));
        QCOMPARE(store().string(QStringLiteral("empty"), QStringLiteral("fallback")), QString());
        QCOMPARE(store().object(QStringLiteral("oneItem")).typeId(), int(QMetaType::QStringList));
        QCOMPARE(store().stringList(QStringLiteral("oneItem"), {}), QStringList{QStringLiteral("My%20Talk.key")});
        QVERIFY(store().contains(QStringLiteral("noItems")));
        QCOMPARE(store().stringList(QStringLiteral("noItems"), {QStringLiteral("x")}), QStringList{});
        QCOMPARE(store().requiredData(QStringLiteral("bytes")), QByteArray("\x00\x01{\"base64\":1}\xff", 15));
        QCOMPARE(store().integer(QStringLiteral("number"), 0), 2419200);
        QCOMPARE(store().integer(QStringLiteral("big"), 0), Q_INT64_C(9007199254740993));
        QVERIFY(!store().contains(QStringLiteral("neverWritten")));
        QVERIFY(!store().object(QStringLiteral("neverWritten")).isValid());
    }

    void readersFallBackOnlyWhenAbsent()
    {
        QCOMPARE(store().string(SettingKey::completedAction, QStringLiteral("Do Nothing")), QStringLiteral("Do Nothing"));
        QCOMPARE(store().integer(SettingKey::updateInterval, 86400), 86400);
        QVERIFY(store().isOn(SettingKey::playSound));

        store().setObject(SettingKey::playSound, QStringLiteral("True"));
        QVERIFY(!store().isOn(SettingKey::playSound));
        store().setObject(SettingKey::playSound, QStringLiteral("yes"));
        QVERIFY(!store().isOn(SettingKey::playSound));
        store().setObject(SettingKey::playSound, QStringLiteral("true"));
        QVERIFY(store().isOn(SettingKey::playSound));
    }

    void aValueOfTheWrongKindIsFatal()
    {
        store().setObject(SettingKey::updateInterval, QStringLiteral("86400"));
        QVERIFY_FATAL(store().integer(SettingKey::updateInterval, 86400), "updateInterval");
        store().setInteger(SettingKey::checkUpdates, 1);
        QVERIFY_FATAL(store().isOn(SettingKey::checkUpdates), "checkUpdates holds an integer, not a string");
        store().setObject(SettingKey::errorPrezzes, QStringLiteral("one"));
        QVERIFY_FATAL(store().stringList(SettingKey::errorPrezzes, {}), "errorPrezzes");
        store().setObject(SettingKey::bookmarkData, QStringLiteral("/home/ann/Out"));
        QVERIFY_FATAL(store().requiredData(SettingKey::bookmarkData), "bookmarkData");
        QVERIFY_FATAL(store().requiredString(SettingKey::outputPath), "the setting outputPath is missing");
    }

    void handEditedValuesOfOtherKindsAreWrongKinds()
    {
        QFile file(path());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(R"({"updateInterval": 3600.5, "playSound": true, "errorPrezzes": ["a", 2], "outputPath": {"x": 1}})");
        file.close();
        store().useFile(path());
        QVERIFY_FATAL(store().integer(SettingKey::updateInterval, 0), "updateInterval");
        QVERIFY_FATAL(store().isOn(SettingKey::playSound), "playSound");
        QVERIFY_FATAL(store().stringList(SettingKey::errorPrezzes, {}), "errorPrezzes");
        QVERIFY_FATAL(store().string(SettingKey::outputPath, {}), "outputPath");
    }

    void aDamagedFileIsKeptAsideAndTheStoreStartsEmpty()
    {
        QFile file(path());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("{ not json");
        file.close();
        store().useFile(path());
        QVERIFY(!store().contains(SettingKey::outputPath));
        QVERIFY(QFile::exists(path() + QStringLiteral(".damaged")));
        store().setObject(SettingKey::outputPath, QStringLiteral("file:///tmp/"));
        QVERIFY(store().synchronize());
        store().useFile(path());
        QCOMPARE(store().string(SettingKey::outputPath, {}), QStringLiteral("file:///tmp/"));
    }

    void defaultLocationFollowsXdgConfigHome()
    {
        qputenv("XDG_CONFIG_HOME", m_dir.path().toUtf8());
        QCOMPARE(JsonSettingsBackend::defaultPath(), m_dir.path() + QStringLiteral("/bramblefox/Deckwright.json"));
    }
};

QTEST_GUILESS_MAIN(TestSettingsStore)
#include "TestSettingsStore.moc"
