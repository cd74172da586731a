#include "platform/freedesktop/FreedesktopDesktopServices.h"

#include <QtDBus>
#include <QtTest>

using namespace Qt::StringLiterals;

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
        calls.append(QStringList{app, QString::number(replaces), icon, summary, body, actions.join(u','),
                                 hints.value(u"desktop-entry"_s).toString(), QString::number(timeout)}
                         .join(u'|'));
        return ++lastId;
    }
};

// The file manager, the notifications and the named application, on a bus
// of the test's own with no service that could be started on demand.
class TestDesktopServices : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_presentation = m_dir.filePath(u"Out Folder/My Talk.key"_s);
    QProcess m_daemon;
    QString m_bus; // its address

    // A connection to the private bus, by its name.
    QString connect(const QString &name)
    {
        QDBusConnection::connectToBus(m_bus, name);
        return name;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(writeFile(m_presentation, "PK"));
        qputenv("XDG_DATA_HOME", m_dir.filePath(u"data-home"_s).toLocal8Bit());
        qputenv("XDG_DATA_DIRS", m_dir.filePath(u"no-data-dirs"_s).toLocal8Bit());
        const QString config = m_dir.filePath(u"bus.conf"_s);
        QVERIFY(writeFile(config, "<busconfig><listen>unix:dir=" + m_dir.path().toUtf8()
                                      + "</listen><policy context=\"default\"><allow send_destination=\"*\"/>"
                                        "<allow receive_sender=\"*\"/><allow own=\"*\"/></policy></busconfig>\n"));
        m_daemon.start(u"dbus-daemon"_s, {u"--config-file="_s + config, u"--print-address"_s, u"--nofork"_s});
        QByteArray output;
        while (!output.contains('\n') && m_daemon.waitForReadyRead(60000))
            output += m_daemon.readAllStandardOutput();
        if (!output.contains('\n'))
            QSKIP("needs dbus-daemon (Debian package dbus) for a private bus");
        m_bus = QString::fromUtf8(output.trimmed());
    }
    void cleanupTestCase()
    {
        m_daemon.kill();
        m_daemon.waitForFinished();
    }

    void revealAsksTheFileManagerElseOpensTheFolder()
    {
        TestableServices services(connect(u"client"_s));
        // Nobody owns the file manager's name.
        QVERIFY(services.revealFile(m_presentation, QString()));
        QTRY_COMPARE(services.defaultOpened, QList<QUrl>{QUrl::fromLocalFile(m_dir.filePath(u"Out Folder"_s))});

        QDBusConnection fileManagerBus(connect(u"file manager"_s));
        FakeFileManager fileManager;
        QVERIFY(fileManagerBus.registerService(u"org.freedesktop.FileManager1"_s));
        QVERIFY(fileManagerBus.registerObject(u"/org/freedesktop/FileManager1"_s, &fileManager,
                                              QDBusConnection::ExportAllSlots));
        QVERIFY(services.revealFile(m_presentation, QString()));
        const QString uri = u"file://"_s + m_dir.path() + u"/Out%20Folder/My%20Talk.key"_s;
        QTRY_COMPARE(fileManager.shownItems, QList<QStringList>{QStringList{uri}});
    }

    void notifyAsksTheNotificationServerAndRunsItsAction()
    {
        FreedesktopDesktopServices services(connect(u"notify client"_s));
        int shown = 0;
        const auto notify = [&] {
            return services.notify(u"Deckwright"_s, u"1 presentation converted"_s, u"Show in Files"_s,
                                   [&] { ++shown; });
        };
        // No notification server: nothing shown, and the caller hears so.
        QVERIFY(!notify());
        QDBusConnection serverBus(connect(u"notifications"_s));
        FakeNotificationServer server;
        QVERIFY(serverBus.registerService(u"org.freedesktop.Notifications"_s));
        QVERIFY(
            serverBus.registerObject(u"/org/freedesktop/Notifications"_s, &server, QDBusConnection::ExportAllSlots));
        QVERIFY(notify());
        QTRY_COMPARE(server.calls,
                     QStringList{u"Deckwright|0|deckwright|Deckwright|1 presentation converted|"
                                 "default,Show in Files,show,Show in Files|com.bramblefox.Deckwright|-1"_s});
        // Another notification's action is not this one's.
        for (uint id : {server.lastId + 1, server.lastId}) {
            QDBusMessage signal = QDBusMessage::createSignal(u"/org/freedesktop/Notifications"_s,
                                                             u"org.freedesktop.Notifications"_s, u"ActionInvoked"_s);
            QVERIFY(serverBus.send(signal << id << u"show"_s));
        }
        QTRY_COMPARE(shown, 1);
        QTest::qWait(50);
        QCOMPARE(shown, 1);
    }

    void openFileStartsTheNamedApplicationElseTheDefault()
    {
        TestableServices services;
        QVERIFY(services.openFile(m_presentation, u"Keynote"_s));
        QCOMPARE(services.defaultOpened, QList<QUrl>{QUrl::fromLocalFile(m_presentation)});

        const QString record = m_dir.filePath(u"arguments.txt"_s),
                      script = m_dir.filePath(u"bin dir/record arguments"_s);
        QVERIFY(writeFile(script,
                          u"#!/bin/sh\nprintf '%s\\n' \"$@\" > '%1.part'\nmv '%1.part' '%1'\n"_s.arg(record).toUtf8()));
        QVERIFY(QFile::setPermissions(script, QFile::permissions(script) | QFile::ExeOwner));
        const QString applications = m_dir.filePath(u"data-home/applications/"_s);
        // Sorts first, and only its translated name matches.
        QVERIFY(writeFile(applications + u"a-decoy.desktop"_s,
                          "[Desktop Entry]\nType=Application\nName=Slides\nName[xx]=Keynote\nExec=/bin/false %f\n"));
        QVERIFY(writeFile(
            applications + u"keynote.desktop"_s,
            u"[Desktop Entry]\nType=Application\nName=Keynote\nExec=\"%1\" --open %f %i\n"_s.arg(script).toUtf8()));
        services.defaultOpened.clear();
        QVERIFY(services.openFile(m_presentation, u"Keynote"_s));
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(record), 120000);
        QFile arguments(record);
        QVERIFY(arguments.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromUtf8(arguments.readAll()), u"--open\n%1\n"_s.arg(m_presentation));
        QCOMPARE(services.defaultOpened, QList<QUrl>());
    }

    void playSoundWithoutAudioDeviceDoesNothing()
    {
        // The chime of a finished conversion is compiled in.
        QVERIFY(!GenericDesktopServices::soundResource(u"Glass"_s).isEmpty());
        // No sound server, as on a build machine, whatever this machine has.
        const QTemporaryDir runtimeFolder;
        qputenv("XDG_RUNTIME_DIR", runtimeFolder.path().toLocal8Bit());
        qputenv("PULSE_SERVER", "");
        // Asking the audio backend for devices there only complains on the console.
        QTest::failOnWarning(QRegularExpression());
        FreedesktopDesktopServices().playSound(u"Glass"_s);
        QCoreApplication::processEvents();
    }
};

QTEST_MAIN(TestDesktopServices)
#include "TestDesktopServices.moc"
