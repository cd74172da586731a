#include "platform/freedesktop/FreedesktopDesktopServices.h"

#include <QDesktopServices>
#include <QtDBus>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {
bool writeFile(const QString &path, const QByteArray &contents, QFile::Permissions added = {})
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size()
           && file.setPermissions(file.permissions() | added);
}
} // namespace

// The file manager, the notifications and the named application, on a bus
// of the test's own with no service that could be started on demand.
class TestDesktopServices : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_presentation = m_dir.filePath(u"Out Folder/My Talk.key"_s);
    QProcess m_daemon;
    QString m_bus;       // its address
    QStringList m_calls; // to the desktop, each with its arguments as one line
    uint m_lastId = 41;

public Q_SLOTS:
    // The desktop: its default handler for files, recorded instead of launched, its file manager and its
    // notification server.
    void open(const QUrl &url) { m_calls.append(u"open "_s + url.toString()); }
    void ShowItems(const QStringList &uris, const QString &) { m_calls.append(u"ShowItems "_s + uris.join(u',')); }
    uint Notify(const QString &app, uint replaces, const QString &icon, const QString &summary, const QString &body,
                const QStringList &actions, const QVariantMap &hints, int timeout)
    {
        m_calls.append(u"Notify %1|%2|%3|%4|%5|%6|%7|%8"_s.arg(
            app, QString::number(replaces), icon, summary, body, actions.join(u','),
            hints.value(u"desktop-entry"_s).toString(), QString::number(timeout)));
        return ++m_lastId;
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
        QDBusConnection::connectToBus(m_bus, u"client"_s);
        QDesktopServices::setUrlHandler(u"file"_s, this, "open");
    }
    void init() { m_calls.clear(); }
    void cleanupTestCase()
    {
        QDesktopServices::unsetUrlHandler(u"file"_s);
        m_daemon.kill();
        m_daemon.waitForFinished();
    }

    void theFileManagerAndTheNotificationServerAreAskedElseDoneWithout()
    {
        FreedesktopDesktopServices services(u"client"_s);
        int shown = 0;
        const auto notify = [&] {
            return services.notify(u"Deckwright"_s, u"1 presentation converted"_s, u"Show in Files"_s,
                                   [&] { ++shown; });
        };
        // Nobody owns their names: the folder is opened instead, nothing is shown and the caller hears so.
        QVERIFY(services.revealFile(m_presentation, QString()));
        QTRY_COMPARE(m_calls, QStringList{u"open file://"_s + m_dir.path() + u"/Out Folder"_s});
        QVERIFY(!notify());

        QDBusConnection desktopBus = QDBusConnection::connectToBus(m_bus, u"desktop"_s);
        for (const QString &name : {u"org.freedesktop.FileManager1"_s, u"org.freedesktop.Notifications"_s}) {
            QVERIFY(desktopBus.registerService(name));
            QVERIFY(desktopBus.registerObject(u'/' + QString(name).replace(u'.', u'/'), name, this,
                                              QDBusConnection::ExportAllSlots));
        }
        QVERIFY(services.revealFile(m_presentation, QString()));
        QVERIFY(notify());
        QTRY_COMPARE(m_calls, (QStringList{u"open file://"_s + m_dir.path() + u"/Out Folder"_s,
                                           u"ShowItems file://"_s + m_dir.path() + u"/Out%20Folder/My%20Talk.key"_s,
                                           u"Notify Deckwright|0|deckwright|Deckwright|1 presentation converted|"
                                           "default,Show in Files,show,Show in Files|com.bramblefox.Deckwright|-1"_s}));
        // Another notification's action is not this one's.
        for (uint id : {m_lastId + 1, m_lastId})
            QVERIFY(desktopBus.send(QDBusMessage::createSignal(u"/org/freedesktop/Notifications"_s,
                                                               u"org.freedesktop.Notifications"_s, u"ActionInvoked"_s)
                                    << id << u"show"_s));
        QTRY_COMPARE(shown, 1);
        QTest::qWait(50);
        QCOMPARE(shown, 1);
    }

    void openFileStartsTheNamedApplicationElseTheDefault()
    {
        FreedesktopDesktopServices services;
        // The completion action is named for what it will do.
        QCOMPARE(services.actionTitle(u"Open in Keynote"_s), u"Open with the Default Application"_s);
        QVERIFY(services.openFile(m_presentation, u"Keynote"_s));
        QCOMPARE(m_calls, QStringList{u"open file://"_s + m_presentation});

        const QString record = m_dir.filePath(u"arguments.txt"_s),
                      script = m_dir.filePath(u"bin dir/record arguments"_s);
        QVERIFY(writeFile(script,
                          u"#!/bin/sh\nprintf '%s\\n' \"$@\" > '%1.part'\nmv '%1.part' '%1'\n"_s.arg(record).toUtf8(),
                          QFile::ExeOwner));
        const QString applications = m_dir.filePath(u"data-home/applications/"_s);
        // Sorts first, and only its translated name matches.
        QVERIFY(writeFile(applications + u"a-decoy.desktop"_s,
                          "[Desktop Entry]\nType=Application\nName=Slides\nName[xx]=Keynote\nExec=/bin/false %f\n"));
        QVERIFY(writeFile(
            applications + u"keynote.desktop"_s,
            u"[Desktop Entry]\nType=Application\nName=Keynote\nExec=\"%1\" --open %f %i\n"_s.arg(script).toUtf8()));
        QCOMPARE(services.actionTitle(u"Open in Keynote"_s), u"Open in Keynote"_s);
        QVERIFY(services.openFile(m_presentation, u"Keynote"_s));
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(record), 120000);
        QFile arguments(record);
        QVERIFY(arguments.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromUtf8(arguments.readAll()), u"--open\n%1\n"_s.arg(m_presentation));
        QCOMPARE(m_calls, QStringList{u"open file://"_s + m_presentation}); // not again
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
