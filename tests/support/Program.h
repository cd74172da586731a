#pragma once

#include <QByteArray>
#include <QMap>
#include <QProcess>
#include <QStringList>

#include <functional>
#include <memory>

// What a program run left to look at.
struct Finished
{
    bool ended = false; // false: still running at the limit, and killed
    int status = -1;    // the exit status; -1 when a signal ended it
    int signal = 0;     // the signal that ended it
    QByteArray out, err;

    QStringList lines() const { return QString::fromUtf8(out).split(QLatin1Char('\n'), Qt::SkipEmptyParts); }
    QString firstErrorLine() const { return QString::fromUtf8(err).section(QLatin1Char('\n'), 0, 0); }
};

// A process seen in /proc.
struct RunningProcess
{
    qint64 pid = 0, parent = 0;
    QString program; // the file name of its executable
    QByteArray commandLine;
};

// Runs programs the way a script on a server would: no display, a private
// XDG_RUNTIME_DIR (mode 0700) and XDG_CONFIG_HOME under the given folder, each
// run in a process group of its own, optionally as an unprivileged user.
class Program
{
public:
    enum As { Me, Nobody };

    explicit Program(const QString &folder);

    // The built deckwright with these arguments, ready for start() or run().
    static QStringList deckwright(const QStringList &arguments);
    // Whether runs As Nobody cannot read what their owner cannot: true for
    // anyone but root, and for root when setpriv, nobody and nogroup exist.
    static bool canRunAsNobody();
    static const char *whyNotAsNobody();
    // Hands a file or folder to nobody (only root can, and only root needs it).
    static bool giveToNobody(const QString &path);

    std::unique_ptr<QProcess> start(const QStringList &command, As as = Me) const;
    // The limit only keeps a hang from stalling the suite; it kills the whole group.
    Finished run(const QStringList &command, As as = Me, int limitMs = 240000) const;
    static Finished finish(QProcess &process, int limitMs = 240000);
    // Waits until the condition holds while the process runs (four minutes
    // at most, the limit of a hang); whether it holds.
    static bool waitUntil(QProcess &process, const std::function<bool()> &condition);

    // Runs a setup script with sh -e in the folder, the variables in its
    // environment; says what went wrong when it fails.
    static bool sh(const QString &script, const QString &folder, const QMap<QString, QString> &variables = {});

    // The processes whose command line mentions the text, this one excepted.
    static QList<RunningProcess> mentioning(const QByteArray &text);
    // What still runs that mentions this folder, once what is ending has ended (a minute at most).
    QList<RunningProcess> leftovers() const;

    QString runtime() const { return m_folder + QStringLiteral("/runtime"); }
    QString scratch() const { return runtime() + QStringLiteral("/deckwright"); }
    QString config() const { return m_folder + QStringLiteral("/config"); }

    QProcessEnvironment env;
    QString workingFolder;

private:
    QString m_folder;
};
