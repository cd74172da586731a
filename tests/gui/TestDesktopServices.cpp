#include "FreedesktopDesktopServices.h"
#include "RecordingDesktopServices.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

#ifdef DECKWRIGHT_HAVE_DBUS
#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#endif

namespace {

// Records what would have gone to the desktop's default handler instead of launching it.
class TestableServices : public FreedesktopDesktopServices
{
public:
    using FreedesktopDesktopServices::FreedesktopDesktopServices;
    QList<QUrl> defaultOpened;

protected:
    bool openWithDefaultHandler(const QUrl &url) override
    {
        defaultOpened.append(url);
        return true;
    }
};

// Sets an environment variable for one scope.
class ScopedEnv
{
public:
    ScopedEnv(const char *name, const QString &value)
        : m_name(name), m_hadValue(qEnvironmentVariableIsSet(name)), m_old(qgetenv(name))
    {
        qputenv(name, value.toLocal8Bit());
    }
    ~ScopedEnv()
    {
        if (m_hadValue)
            qputenv(m_name, m_old);
        else
            qunsetenv(m_name);
    }

private:
    const char *m_name;
    bool m_hadValue;
    QByteArray m_old;
};

bool writeFile(const QString &path, const QByteArray &contents)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size();
}

QStringList messagesSeen;
void collectMessages(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type != QtDebugMsg)
        messagesSeen.append(message);
}

} // namespace

#ifdef DECKWRIGHT_HAVE_DBUS
// Plays the desktop's file manager on a private bus.
class FakeFileManager : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")

public:
    QList<QStringList> shownItems;
    bool failing = false;

public Q_SLOTS:
    void ShowItems(const QStringList &uris, const QString &startupId)
    {
        Q_UNUSED(startupId);
        if (failing) {
            sendErrorReply(QDBusError::Failed, QStringLiteral("cannot show"));
            return;
        }
        shownItems.append(uris);
    }
};

// A bus of the test's own, with no service that could be started on demand.
class PrivateBus
{
public:
    explicit PrivateBus(const QString &folder)
    {
        const QString config = folder + QStringLiteral("/bus.conf");
        writeFile(config, QStringLiteral(
            "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
            " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
            "<busconfig><type>session</type><listen>unix:dir=%1</listen>\n"
            "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
            "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n").arg(folder).toUtf8());
        m_daemon.start(QStringLiteral("dbus-daemon"),
                       {QStringLiteral("--config-file=") + config, QStringLiteral("--print-address"), QStringLiteral("--nofork")});
        if (!m_daemon.waitForStarted())
            return;
        QByteArray line;
        while (!line.contains('\n') && m_daemon.waitForReadyRead(10000))
            line += m_daemon.readAllStandardOutput();
        address = QString::fromUtf8(line).trimmed();
    }
    ~PrivateBus()
    {
        for (const QString &name : std::as_const(m_connections))
            QDBusConnection::disconnectFromBus(name);
        m_daemon.kill();
        m_daemon.waitForFinished();
    }
    QDBusConnection connect(const QString &name)
    {
        m_connections.append(name);
        return QDBusConnection::connectToBus(address, name);
    }

    QString address;

private:
    QProcess m_daemon;
    QStringList m_connections;
};
#endif

class TestDesktopServices : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void revealAsksTheFileManagerOverDBus();
    void revealOpensTheFolderWhenNoFileManagerAnswers();
    void revealOpensTheFolderWithoutABus();

    void openFileStartsTheApplicationWithThatName();
    void openFileUsesTheDefaultApplicationOtherwise();
    void expandExec_data();
    void expandExec();

    void playSoundIsQuietWithoutADeviceOrAKnownSound();
    void recordingServicesStandInWhileTheyLive();

private:
    bool haveDBus();

    std::unique_ptr<QTemporaryDir> m_tempDir;
    QString m_presentation;
};

void TestDesktopServices::init()
{
    m_tempDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_tempDir->isValid());
    m_presentation = m_tempDir->filePath(QStringLiteral("Out Folder/My Talk.key"));
    QVERIFY(writeFile(m_presentation, "PK"));
}

bool TestDesktopServices::haveDBus()
{
#ifdef DECKWRIGHT_HAVE_DBUS
    return !QStandardPaths::findExecutable(QStringLiteral("dbus-daemon")).isEmpty();
#else
    return false;
#endif
}

void TestDesktopServices::revealAsksTheFileManagerOverDBus()
{
    if (!haveDBus())
        QSKIP("needs Qt D-Bus and dbus-daemon (Debian package dbus) for a private bus");
#ifdef DECKWRIGHT_HAVE_DBUS
    QTemporaryDir busFolder;
    PrivateBus bus(busFolder.path());
    QVERIFY2(!bus.address.isEmpty(), "dbus-daemon gave no address");
    QDBusConnection fileManagerBus = bus.connect(QStringLiteral("file-manager"));
    FakeFileManager fileManager;
    QVERIFY(fileManagerBus.registerService(QStringLiteral("org.freedesktop.FileManager1")));
    QVERIFY(fileManagerBus.registerObject(QStringLiteral("/org/freedesktop/FileManager1"), &fileManager,
                                          QDBusConnection::ExportAllSlots));
    QDBusConnection clientBus = bus.connect(QStringLiteral("client"));
    QVERIFY(clientBus.isConnected());

    TestableServices services(QStringLiteral("client"));
    QVERIFY(services.revealFile(m_presentation, QStringLiteral("/ignored/root")));
    QTRY_COMPARE(fileManager.shownItems.size(), 1);
    const QStringList uris = fileManager.shownItems.first();
    QCOMPARE(uris.size(), 1);
    // A proper URI: the space escaped, the path intact.
    QVERIFY2(uris.first().startsWith(QLatin1String("file:///")) && uris.first().endsWith(QLatin1String("Out%20Folder/My%20Talk.key")),
             qPrintable(uris.first()));
    QCOMPARE(QUrl(uris.first()).toLocalFile(), m_presentation);

    // The answer reaches the client before the answer to a later ping; only then
    // can one tell that no folder was opened besides.
    const QDBusMessage ping = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.FileManager1"),
                                                             QStringLiteral("/org/freedesktop/FileManager1"),
                                                             QStringLiteral("org.freedesktop.DBus.Peer"),
                                                             QStringLiteral("Ping"));
    QCOMPARE(clientBus.call(ping, QDBus::BlockWithGui).type(), QDBusMessage::ReplyMessage);
    QCoreApplication::processEvents();
    QCOMPARE(services.defaultOpened, QList<QUrl>());
#endif
}

void TestDesktopServices::revealOpensTheFolderWhenNoFileManagerAnswers()
{
    if (!haveDBus())
        QSKIP("needs Qt D-Bus and dbus-daemon (Debian package dbus) for a private bus");
#ifdef DECKWRIGHT_HAVE_DBUS
    QTemporaryDir busFolder;
    PrivateBus bus(busFolder.path());
    QVERIFY2(!bus.address.isEmpty(), "dbus-daemon gave no address");
    QVERIFY(bus.connect(QStringLiteral("client")).isConnected());
    const QUrl folder = QUrl::fromLocalFile(QFileInfo(m_presentation).absolutePath());

    // Nobody owns the name.
    TestableServices services(QStringLiteral("client"));
    QVERIFY(services.revealFile(m_presentation, QString()));
    QTRY_COMPARE(services.defaultOpened, QList<QUrl>{folder});

    // A file manager that is there but fails.
    QDBusConnection fileManagerBus = bus.connect(QStringLiteral("file-manager"));
    FakeFileManager fileManager;
    fileManager.failing = true;
    QVERIFY(fileManagerBus.registerService(QStringLiteral("org.freedesktop.FileManager1")));
    QVERIFY(fileManagerBus.registerObject(QStringLiteral("/org/freedesktop/FileManager1"), &fileManager,
                                          QDBusConnection::ExportAllSlots));
    services.defaultOpened.clear();
    QVERIFY(services.revealFile(m_presentation, QString()));
    QTRY_COMPARE(services.defaultOpened, QList<QUrl>{folder});
#endif
}

void TestDesktopServices::revealOpensTheFolderWithoutABus()
{
    TestableServices services(QStringLiteral("no-such-connection"));
    QVERIFY(services.revealFile(m_presentation, m_presentation));
    QCOMPARE(services.defaultOpened, QList<QUrl>{QUrl::fromLocalFile(QFileInfo(m_presentation).absolutePath())});
}

void TestDesktopServices::openFileStartsTheApplicationWithThatName()
{
    const QString dataHome = m_tempDir->filePath(QStringLiteral("data-home"));
    ScopedEnv home("XDG_DATA_HOME", dataHome);
    ScopedEnv dirs("XDG_DATA_DIRS", m_tempDir->filePath(QStringLiteral("no-data-dirs")));
    const QString record = m_tempDir->filePath(QStringLiteral("arguments.txt"));
    const QString script = m_tempDir->filePath(QStringLiteral("bin dir/record arguments"));
    QVERIFY(writeFile(script, QStringLiteral("#!/bin/sh\nprintf '%s\\n' \"$@\" > '%1.part'\nmv '%1.part' '%1'\n")
                                  .arg(record).toUtf8()));
    QVERIFY(QFile::setPermissions(script, QFile::permissions(script) | QFile::ExeOwner));

    // Decoys sort first: another name, a translated name, an action's name.
    QVERIFY(writeFile(dataHome + QStringLiteral("/applications/a-decoy.desktop"),
                      "[Desktop Entry]\nType=Application\nName=Slides\nName[xx]=Keynote\nExec=/bin/false %f\n"
                      "[Desktop Action keynote]\nName=Keynote\nExec=/bin/false\n"));
    QVERIFY(writeFile(dataHome + QStringLiteral("/applications/keynote.desktop"),
                      QStringLiteral("[Desktop Entry]\nType=Application\nName = Keynote\nIcon=keynote\n"
                                     "Exec=\"%1\" --open %f %i\n").arg(script).toUtf8()));
    QCOMPARE(FreedesktopDesktopServices::findApplicationExec(QStringLiteral("Keynote")),
             QStringLiteral("\"%1\" --open %f %i").arg(script));

    TestableServices services;
    QVERIFY(services.openFile(m_presentation, QStringLiteral("Keynote")));
    QTRY_VERIFY(QFile::exists(record));
    QFile arguments(record);
    QVERIFY(arguments.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(arguments.readAll()), QStringLiteral("--open\n%1\n").arg(m_presentation));
    QCOMPARE(services.defaultOpened, QList<QUrl>());
}

void TestDesktopServices::openFileUsesTheDefaultApplicationOtherwise()
{
    const QString dataHome = m_tempDir->filePath(QStringLiteral("data-home"));
    const QString dataDir = m_tempDir->filePath(QStringLiteral("data-dir"));
    ScopedEnv home("XDG_DATA_HOME", dataHome);
    ScopedEnv dirs("XDG_DATA_DIRS", dataDir);
    const QList<QUrl> byDefault{QUrl::fromLocalFile(m_presentation)};

    TestableServices services;
    QVERIFY(services.openFile(m_presentation, QStringLiteral("Keynote")));
    QCOMPARE(services.defaultOpened, byDefault);

    // Installed system-wide, but the user's entry of the same id hides it.
    QVERIFY(writeFile(dataDir + QStringLiteral("/applications/vendor/keynote.desktop"),
                      "[Desktop Entry]\nType=Application\nName=Keynote\nExec=/bin/true %f\n"));
    QVERIFY(!FreedesktopDesktopServices::findApplicationExec(QStringLiteral("Keynote")).isEmpty());
    QVERIFY(writeFile(dataHome + QStringLiteral("/applications/vendor-keynote.desktop"),
                      "[Desktop Entry]\nType=Application\nName=Keynote\nHidden=true\n"));
    QCOMPARE(FreedesktopDesktopServices::findApplicationExec(QStringLiteral("Keynote")), QString());

    // An entry whose program is not installed.
    QVERIFY(writeFile(dataHome + QStringLiteral("/applications/other.desktop"),
                      "[Desktop Entry]\nType=Application\nName=Keynote\nTryExec=/no/such/keynote\nExec=/no/such/keynote %f\n"));
    QCOMPARE(FreedesktopDesktopServices::findApplicationExec(QStringLiteral("Keynote")), QString());

    services.defaultOpened.clear();
    QVERIFY(services.openFile(m_presentation, QStringLiteral("Keynote")));
    QCOMPARE(services.defaultOpened, byDefault);
}

void TestDesktopServices::expandExec_data()
{
    QTest::addColumn<QString>("exec");
    QTest::addColumn<QStringList>("expected");
    const QString f = QStringLiteral("/out/My Talk.key");
    QTest::newRow("file code") << "keynote %f" << QStringList{"keynote", f};
    QTest::newRow("list and url codes") << "app --a=%F -b %U" << QStringList{"app", "--a=" + f, "-b", f};
    QTest::newRow("other codes dropped") << "app %i %c %k --x %f" << QStringList{"app", "--x", f};
    QTest::newRow("percent") << "app 100%% %u" << QStringList{"app", "100%", f};
    QTest::newRow("no code: file appended") << "app --new-window" << QStringList{"app", "--new-window", f};
    QTest::newRow("quoted program") << "\"/opt/My App/run\" %f" << QStringList{"/opt/My App/run", f};
    QTest::newRow("escapes in quotes") << R"(sh -c "echo \"\$1\"" %f)" << QStringList{"sh", "-c", R"(echo "$1")", f};
    QTest::newRow("empty quoted argument kept") << "app \"\" %f" << QStringList{"app", "", f};
    QTest::newRow("extra spaces") << "  app   %f  " << QStringList{"app", f};
    QTest::newRow("unterminated quote") << "\"app %f" << QStringList();
    QTest::newRow("nothing") << "" << QStringList();
}

void TestDesktopServices::expandExec()
{
    QFETCH(QString, exec);
    QFETCH(QStringList, expected);
    QCOMPARE(FreedesktopDesktopServices::expandExec(exec, QStringLiteral("/out/My Talk.key")), expected);
}

void TestDesktopServices::playSoundIsQuietWithoutADeviceOrAKnownSound()
{
    QVERIFY(!GenericDesktopServices::soundResource(QStringLiteral("Glass")).isEmpty());
    QCOMPARE(GenericDesktopServices::soundResource(QStringLiteral("Basso")), QString());
    QCOMPARE(GenericDesktopServices::soundResource(QStringLiteral("../sounds/Glass")), QString());

    // No sound server, as on a build machine, whatever this machine has.
    const QTemporaryDir runtimeFolder;
    ScopedEnv runtime("XDG_RUNTIME_DIR", runtimeFolder.path());
    ScopedEnv server("PULSE_SERVER", QString());
    messagesSeen.clear();
    const QtMessageHandler previous = qInstallMessageHandler(collectMessages);
    {
        FreedesktopDesktopServices services;
        services.playSound(QStringLiteral("Glass"));
        services.playSound(QStringLiteral("Glass"));
        services.playSound(QStringLiteral("Basso"));
        services.playSound(QString());
        QCoreApplication::processEvents();
    }
    qInstallMessageHandler(previous);
    QVERIFY2(messagesSeen.isEmpty(), qPrintable(messagesSeen.join(QLatin1Char('\n'))));
}

void TestDesktopServices::recordingServicesStandInWhileTheyLive()
{
    DesktopServices *platform = &DesktopServices::instance();
    {
        RecordingDesktopServices recorder;
        QCOMPARE(&DesktopServices::instance(), &recorder);
        DesktopServices::instance().playSound(QStringLiteral("Glass"));
        DesktopServices::instance().openFile(QStringLiteral("/a.key"), QStringLiteral("Keynote"));
        QCOMPARE(recorder.describe(), (QStringList{R"(playSound("Glass"))", R"(openFile("/a.key", "Keynote"))"}));
    }
    QCOMPARE(&DesktopServices::instance(), platform);
}

QTEST_MAIN(TestDesktopServices)
#include "TestDesktopServices.moc"
