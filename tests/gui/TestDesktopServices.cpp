#include "platform/freedesktop/FreedesktopDesktopServices.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QtTest>

#ifdef DECKWRIGHT_HAVE_DBUS
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

bool writeFile(const QString &path, const QByteArray &contents)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size();
}
} // namespace

#ifdef DECKWRIGHT_HAVE_DBUS
// Plays the desktop's file manager.
class FakeFileManager : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")

public:
    QList<QStringList> shownItems;

public Q_SLOTS:
    void ShowItems(const QStringList &uris, const QString &) { shownItems.append(uris); }
};

// Plays the desktop's notification server; keeps each call's arguments as one line.
class FakeNotificationServer : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    QStringList calls;
    uint lastId = 41;

public Q_SLOTS:
    uint Notify(const QString &app, uint replaces, const QString &icon, const QString &summary, const QString &body,
                const QStringList &actions, const QVariantMap &hints, int timeout)
    {
        calls.append(QStringList{app, QString::number(replaces), icon, summary, body, actions.join(QLatin1Char(',')),
                                 hints.value("desktop-entry").toString(), QString::number(timeout)}
                         .join(QLatin1Char('|')));
        return ++lastId;
    }
};
#endif

class TestDesktopServices : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_presentation;
    // A bus of the test's own, with no service that could be started on demand.
    QProcess m_daemon;
    QString m_bus; // its address; empty when it did not start

    bool skipWithoutBus()
    {
#ifndef DECKWRIGHT_HAVE_DBUS
        QTest::qSkip("built without Qt D-Bus", __FILE__, __LINE__);
#else
        if (!m_bus.isEmpty())
            return false;
        QTest::qSkip("needs dbus-daemon (Debian package dbus) for a private bus", __FILE__, __LINE__);
#endif
        return true;
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_presentation = m_dir.filePath("Out Folder/My Talk.key");
        QVERIFY(writeFile(m_presentation, "PK"));
        qputenv("XDG_DATA_HOME", m_dir.filePath("data-home").toLocal8Bit());
        qputenv("XDG_DATA_DIRS", m_dir.filePath("no-data-dirs").toLocal8Bit());
#ifdef DECKWRIGHT_HAVE_DBUS
        const QString config = m_dir.filePath("bus.conf");
        QVERIFY(writeFile(config, "<busconfig><listen>unix:dir=" + m_dir.path().toUtf8()
                                      + "</listen><policy context=\"default\"><allow send_destination=\"*\"/>"
                                        "<allow receive_sender=\"*\"/><allow own=\"*\"/></policy></busconfig>\n"));
        m_daemon.start("dbus-daemon", {"--config-file=" + config, "--print-address", "--nofork"});
        QByteArray output;
        while (!output.contains('\n') && m_daemon.waitForReadyRead(10000))
            output += m_daemon.readAllStandardOutput();
        m_bus = QString::fromUtf8(output.trimmed());
#endif
    }
    void cleanupTestCase()
    {
        m_daemon.kill();
        m_daemon.waitForFinished();
    }

    void revealAsksTheFileManagerElseOpensTheFolder()
    {
        if (skipWithoutBus())
            return;
#ifdef DECKWRIGHT_HAVE_DBUS
        QVERIFY(QDBusConnection::connectToBus(m_bus, "client").isConnected());
        TestableServices services("client");

        // Nobody owns the file manager's name.
        QVERIFY(services.revealFile(m_presentation, QString()));
        QTRY_COMPARE(services.defaultOpened,
                     QList<QUrl>{QUrl::fromLocalFile(m_dir.filePath(QStringLiteral("Out Folder")))});

        QDBusConnection fileManagerBus = QDBusConnection::connectToBus(m_bus, "fm");
        FakeFileManager fileManager;
        QVERIFY(fileManagerBus.registerService("org.freedesktop.FileManager1"));
        QVERIFY(fileManagerBus.registerObject("/org/freedesktop/FileManager1", &fileManager,
                                              QDBusConnection::ExportAllSlots));
        QVERIFY(services.revealFile(m_presentation, QString()));
        const QString uri = QStringLiteral("file://") + m_dir.path() + QStringLiteral("/Out%20Folder/My%20Talk.key");
        QTRY_COMPARE(fileManager.shownItems, QList<QStringList>{QStringList { uri }});
#endif
    }

    void notifyAsksTheNotificationServerAndRunsItsAction()
    {
        if (skipWithoutBus())
            return;
#ifdef DECKWRIGHT_HAVE_DBUS
        QVERIFY(QDBusConnection::connectToBus(m_bus, "notify client").isConnected());
        FreedesktopDesktopServices services("notify client");
        int shown = 0;
        const auto notify = [&] {
            return services.notify("Deckwright", "1 presentation converted", "Show in Files", [&] { ++shown; });
        };

        // No notification server: nothing shown, and the caller hears so.
        QVERIFY(!notify());
        QDBusConnection serverBus = QDBusConnection::connectToBus(m_bus, "notifications");
        FakeNotificationServer server;
        QVERIFY(serverBus.registerService("org.freedesktop.Notifications"));
        QVERIFY(serverBus.registerObject("/org/freedesktop/Notifications", &server, QDBusConnection::ExportAllSlots));
        QVERIFY(notify());
        QTRY_COMPARE(server.calls,
                     QStringList{"Deckwright|0|deckwright|Deckwright|1 presentation converted|"
                                 "default,Show in Files,show,Show in Files|com.bramblefox.Deckwright|-1"});

        // Another notification's action is not this one's.
        for (uint id : {server.lastId + 1, server.lastId}) {
            QDBusMessage signal = QDBusMessage::createSignal("/org/freedesktop/Notifications",
                                                             "org.freedesktop.Notifications", "ActionInvoked");
            QVERIFY(serverBus.send(signal << id << "show"));
        }
        QTRY_COMPARE(shown, 1);
        QTest::qWait(50);
        QCOMPARE(shown, 1);
        QDBusConnection::disconnectFromBus("notifications");
        QDBusConnection::disconnectFromBus("notify client");
#endif
    }

    void openFileStartsTheNamedApplicationElseTheDefault()
    {
        TestableServices services;
        QVERIFY(services.openFile(m_presentation, "Keynote"));
        QCOMPARE(services.defaultOpened, QList<QUrl>{QUrl::fromLocalFile(m_presentation)});

        const QString record = m_dir.filePath("arguments.txt");
        const QString script = m_dir.filePath("bin dir/record arguments");
        QVERIFY(writeFile(
            script,
            QStringLiteral("#!/bin/sh\nprintf '%s\\n' \"$@\" > '%1.part'\nmv '%1.part' '%1'\n").arg(record).toUtf8()));
        QVERIFY(QFile::setPermissions(script, QFile::permissions(script) | QFile::ExeOwner));
        const QString applications = m_dir.filePath("data-home/applications/");
        // Sorts first, and only its translated name matches.
        QVERIFY(writeFile(applications + QStringLiteral("a-decoy.desktop"),
                          "[Desktop Entry]\nType=Application\nName=Slides\nName[xx]=Keynote\nExec=/bin/false %f\n"));
        QVERIFY(writeFile(applications + QStringLiteral("keynote.desktop"),
                          QStringLiteral("[Desktop Entry]\nType=Application\nName=Keynote\nExec=\"%1\" --open %f %i\n")
                              .arg(script)
                              .toUtf8()));
        services.defaultOpened.clear();
        QVERIFY(services.openFile(m_presentation, "Keynote"));
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(record), 20000);
        QFile arguments(record);
        QVERIFY(arguments.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromUtf8(arguments.readAll()), QStringLiteral("--open\n%1\n").arg(m_presentation));
        QCOMPARE(services.defaultOpened, QList<QUrl>());
    }

    void playSoundWithoutAudioDeviceDoesNothing()
    {
        // The chime of a finished conversion is compiled in.
        QVERIFY(!GenericDesktopServices::soundResource("Glass").isEmpty());
        // No sound server, as on a build machine, whatever this machine has.
        const QTemporaryDir runtimeFolder;
        qputenv("XDG_RUNTIME_DIR", runtimeFolder.path().toLocal8Bit());
        qputenv("PULSE_SERVER", "");
        // Asking the audio backend for devices there only complains on the console.
        QTest::failOnWarning(QRegularExpression());
        {
            FreedesktopDesktopServices services;
            services.playSound("Glass");
            QCoreApplication::processEvents();
        }
    }
};

QTEST_MAIN(TestDesktopServices)
#include "TestDesktopServices.moc"
