#include "core/JsonSettingsBackend.h"
#include "core/SettingsStore.h"
#include "support/FatalTrap.h"

#include <QtTest>

#include <cstdio>
#include <unistd.h>

class TestSettingsStore : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QString path() const { return m_dir.filePath(QStringLiteral("Deckwright.json")); }
    SettingsStore &store() { return SettingsStore::standard(); }

    // What the statement tells the person on the standard error.
    template <typename Statement>
    static QString stderrOf(Statement statement)
    {
        QTemporaryFile capture;
        if (!capture.open())
            return QStringLiteral("(no capture file)");
        std::fflush(stderr);
        const int saved = ::dup(STDERR_FILENO);
        ::dup2(capture.handle(), STDERR_FILENO);
        statement();
        std::fflush(stderr);
        ::dup2(saved, STDERR_FILENO);
        ::close(saved);
        capture.seek(0);
        return QString::fromLocal8Bit(capture.readAll());
    }

    // What the next run sees of a file written by hand.
    void handWrite(const QByteArray &json)
    {
        QFile file(path());
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(json) == json.size());
        file.close();
        store().useFile(path());
    }

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
        const QVariantMap values{
            {QStringLiteral("text"), QStringLiteral("Show in Finder")},
            {QStringLiteral("empty"), QString()},
            {QStringLiteral("oneItem"), QStringList{QStringLiteral("My%20Talk.key")}},
            {QStringLiteral("noItems"), QStringList{}},
            {QStringLiteral("bytes"), QByteArray("\x00\x01{\"base64\":1}\xff", 15)},
        };
        for (auto it = values.begin(); it != values.end(); ++it)
            store().setObject(it.key(), it.value());
        // Beyond what a double holds exactly.
        store().setInteger(QStringLiteral("big"), Q_INT64_C(9007199254740993));
        QVERIFY(!QFile::exists(path())); // nothing reaches the disk before a synchronise
        QVERIFY(store().synchronize());

        store().useFile(path());
        for (auto it = values.begin(); it != values.end(); ++it) {
            QCOMPARE(store().object(it.key()).typeId(), it.value().typeId());
            QCOMPARE(store().object(it.key()), it.value());
        }
        QCOMPARE(store().integer(QStringLiteral("big"), 0), Q_INT64_C(9007199254740993));
    }

    void readersFallBackOnlyWhenAbsent()
    {
        QCOMPARE(store().string(SettingKey::completedAction, QStringLiteral("Do Nothing")),
                 QStringLiteral("Do Nothing"));
        QCOMPARE(store().integer(SettingKey::updateInterval, 86400), 86400);
        QVERIFY(store().isOn(SettingKey::playSound));
        store().setObject(SettingKey::completedAction, QString());
        QCOMPARE(store().string(SettingKey::completedAction, QStringLiteral("Do Nothing")), QString());
        for (const char *other : {"True", "yes"}) {
            store().setObject(SettingKey::playSound, QString::fromUtf8(other));
            QVERIFY(!store().isOn(SettingKey::playSound));
        }
        store().setObject(SettingKey::playSound, QStringLiteral("true"));
        QVERIFY(store().isOn(SettingKey::playSound));
    }

    void aValueOfTheWrongKindIsFatal()
    {
        handWrite(
            R"({"updateInterval": "86400", "checkUpdates": 1, "errorPrezzes": "one", "bookmarkData": "/home/ann/Out",
                      "stopForErrors": true, "outputPath": {"x": 1}, "prezPath": 3600.5, "completedAction": ["a", 2]})");
        QVERIFY_FATAL(store().integer(SettingKey::updateInterval, 86400), "updateInterval");
        QVERIFY_FATAL(store().isOn(SettingKey::checkUpdates), "checkUpdates holds an integer, not a string");
        QVERIFY_FATAL(store().stringList(SettingKey::errorPrezzes, {}), "errorPrezzes");
        QVERIFY_FATAL(store().requiredData(SettingKey::bookmarkData), "bookmarkData");
        QVERIFY_FATAL(store().isOn(SettingKey::stopForErrors), "stopForErrors");
        QVERIFY_FATAL(store().string(SettingKey::outputPath, {}), "outputPath");
        QVERIFY_FATAL(store().integer(SettingKey::prezPath, 0), "prezPath");
        QVERIFY_FATAL(store().stringList(SettingKey::completedAction, {}), "completedAction");
        QVERIFY_FATAL(store().requiredString(SettingKey::playSound), "the setting playSound is missing");
    }

    // The message must say what really happened to the damaged file.
    void aDamagedFileIsKeptAsideWhereItCanBe_data()
    {
        QTest::addColumn<bool>("asideTaken");
        QTest::addColumn<QString>("said");
        QTest::newRow("kept aside") << false << "it was kept as " + path() + ".damaged";
        // A folder of someone else's holds the name the file would be kept under.
        QTest::newRow("the name is taken") << true << QStringLiteral("nor kept aside");
    }
    void aDamagedFileIsKeptAsideWhereItCanBe()
    {
        QFETCH(bool, asideTaken);
        QFETCH(QString, said);
        const QString aside = path() + QStringLiteral(".damaged");
        QDir(aside).removeRecursively();
        QFile::remove(aside);
        if (asideTaken)
            QVERIFY(QDir().mkpath(aside + QStringLiteral("/theirs")));
        handWrite("{ not json");
        const QString message = stderrOf([&] { QVERIFY(!store().contains(SettingKey::outputPath)); });
        QVERIFY2(message.contains(said), qPrintable(message));
        QCOMPARE(QFileInfo(aside).isFile(), !asideTaken);
        QCOMPARE(QFileInfo::exists(aside + QStringLiteral("/theirs")), asideTaken);

        store().setObject(SettingKey::outputPath, QStringLiteral("file:///tmp/"));
        QVERIFY(store().synchronize());
        store().useFile(path());
        QCOMPARE(store().string(SettingKey::outputPath, {}), QStringLiteral("file:///tmp/"));
        QDir(aside).removeRecursively();
    }

    void aChangeMadeElsewhereSurvivesOurNextSave()
    {
        store().setObject(SettingKey::playSound, QStringLiteral("false"));
        QVERIFY(store().synchronize());
        // Another session, or a person with an editor, changes the file meanwhile.
        {
            JsonSettingsBackend other(path());
            QVariantMap values = other.load();
            values.insert(SettingKey::completedAction, QStringLiteral("Open in Keynote"));
            values.insert(SettingKey::playSound, QStringLiteral("true"));
            QVERIFY(other.save(values));
        }
        store().setObject(SettingKey::stopForErrors, QStringLiteral("false"));
        QVERIFY(store().synchronize());
        store().useFile(path());
        QCOMPARE(store().string(SettingKey::completedAction, {}), QStringLiteral("Open in Keynote"));
        QCOMPARE(store().string(SettingKey::playSound, {}), QStringLiteral("true")); // not ours to change back
        QCOMPARE(store().string(SettingKey::stopForErrors, {}), QStringLiteral("false"));
    }

    void aSettingsPathThatIsAFolderIsNeverSaved()
    {
        QVERIFY(QDir().mkpath(path()));
        store().useFile(path());
        const QString message = stderrOf([&] { store().setObject(SettingKey::playSound, QStringLiteral("false")); });
        QVERIFY2(message.contains(path() + QStringLiteral(" is a folder")), qPrintable(message));
        QVERIFY(!store().synchronize());
        QVERIFY(QDir().rmdir(path()));
    }

    void defaultLocationFollowsXdgConfigHome()
    {
        qputenv("XDG_CONFIG_HOME", m_dir.path().toUtf8());
        QCOMPARE(JsonSettingsBackend::defaultPath(), m_dir.path() + QStringLiteral("/bramblefox/Deckwright.json"));
    }
};

QTEST_GUILESS_MAIN(TestSettingsStore)
#include "TestSettingsStore.moc"
