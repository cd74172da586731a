#include "cli/CheckCommand.h"
#include "cli/ConvertCommand.h"
#include "cli/Usage.h"
#include "core/Fatal.h"
#include "core/ScratchRun.h"
#include "core/SettingsStore.h"
#include "core/StopRequest.h"
#include "gui/Alert.h"
#include "gui/AppDelegate.h"
#include "gui/BuildConfig.h"
#include "gui/SingleInstance.h"

#include <QApplication>
#include <QCoreApplication>
#include <QFileInfo>
#include <QIcon>
#include <QSet>
#include <QSocketNotifier>
#include <QSysInfo>
#include <QTextStream>
#include <QTimer>

#include <memory>

namespace {
QString mainUsage()
{
    return QStringLiteral(
        "Usage: deckwright [PACKAGE_OR_FOLDER...]\n"
        "       deckwright convert [--jobs N] --output DIR PACKAGE_OR_FOLDER...\n"
        "       deckwright check PATH...\n"
        "Upgrades Keynote '08 presentations to the Keynote '09 file format.\n"
        "\n"
        "Without a command the desktop application starts (or the running one\n"
        "comes to the front); packages given to it, and those found in folders\n"
        "given to it, are converted as one batch.\n"
        "\n"
        "Commands:\n"
        "  convert        convert packages without a window (see deckwright convert --help)\n"
        "  check          tell whether packages can be converted, changing nothing\n"
        "                 (see deckwright check --help)\n"
        "\n"
        "Options:\n"
        "  -h, --help     show this help\n"
        "  -v, --version  show the version\n");
}

// Qt's own options, which the desktop application takes before anything
// else sees the command line: those that take a value, and those that do not.
const QSet<QString> &qtOptionsWithValue()
{
    static const QSet<QString> names{QStringLiteral("platform"),
                                     QStringLiteral("platformpluginpath"),
                                     QStringLiteral("platformtheme"),
                                     QStringLiteral("plugin"),
                                     QStringLiteral("qwindowgeometry"),
                                     QStringLiteral("qwindowicon"),
                                     QStringLiteral("qwindowtitle"),
                                     QStringLiteral("session"),
                                     QStringLiteral("style"),
                                     QStringLiteral("stylesheet"),
                                     QStringLiteral("display"),
                                     QStringLiteral("geometry"),
                                     QStringLiteral("title"),
                                     QStringLiteral("name"),
                                     QStringLiteral("visual"),
                                     QStringLiteral("ncols"),
                                     QStringLiteral("cmap")};
    return names;
}

const QSet<QString> &qtFlags()
{
    static const QSet<QString> names{QStringLiteral("reverse"),     QStringLiteral("widgetcount"),
                                     QStringLiteral("nograb"),      QStringLiteral("dograb"),
                                     QStringLiteral("testability"), QStringLiteral("qmljsdebugger")};
    return names;
}

// Checks the desktop application's command line before Qt sees it, so that
// a mistake gets a usage error instead of a window, or of an abort inside Qt
// where there is no display.
int checkDesktopArguments(int argc, char *argv[])
{
    QTextStream err(stderr);
    bool optionsEnded = false;
    bool platformGiven = false;
    for (int i = 1; i < argc; ++i) {
        const QString argument = QString::fromLocal8Bit(argv[i]);
        if (optionsEnded || argument == QLatin1String("-") || !argument.startsWith(QLatin1Char('-'))) {
            // The first word is a command when it is not a file: a misspelt one is no package.
            if (!optionsEnded && i == 1 && !argument.contains(QLatin1Char('/')) && !argument.contains(QLatin1Char('.'))
                && !QFileInfo::exists(argument))
                return usageError(
                    err, {},
                    QStringLiteral("'%1' is neither a command nor a file (the commands are 'convert' and 'check')")
                        .arg(argument));
            continue;
        }
        if (argument == QLatin1String("--")) {
            optionsEnded = true;
            continue;
        }
        QString name = argument.mid(argument.startsWith(QLatin1String("--")) ? 2 : 1);
        const bool hasValue = name.contains(QLatin1Char('='));
        name = name.section(QLatin1Char('='), 0, 0);
        if (name == QLatin1String("platform"))
            platformGiven = true;
        if (qtOptionsWithValue().contains(name)) {
            if (!hasValue)
                ++i;
            continue;
        }
        if (!qtFlags().contains(name))
            return usageError(err, {}, QStringLiteral("unknown option %1").arg(argument));
    }
    // Without a display Qt would abort; say what to do instead.
    if (!platformGiven && QSysInfo::kernelType() == QLatin1String("linux")
        && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY")
        && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        QTextStream(stderr) << "deckwright: there is no display to show the window on; "
                               "'deckwright convert --output DIR PACKAGE...' converts without one.\n";
        return 1;
    }
    return 0;
}

// A command without windows: `deckwright convert` or `deckwright check`.
int runCommand(int argc, char *argv[], int (*command)(const QStringList &, QTextStream &, QTextStream &))
{
    StopRequest::installSignalHandlers();
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Deckwright"));
    QCoreApplication::setApplicationVersion(QString::fromUtf8(BuildConfig::version));
    QTextStream out(stdout);
    QTextStream err(stderr);
    return command(QCoreApplication::arguments().mid(2), out, err);
}

int runDesktop(int argc, char *argv[])
{
    if (const int status = checkDesktopArguments(argc, argv))
        return status;
    StopRequest::installSignalHandlers();
    QApplication app(argc, argv);
    // No display name of its own: Qt would append it to every window's title,
    // and "General" or "Choose Folder To Save To" are whole titles. The main
    // window is titled "Deckwright", and the task bar knows the program by its
    // desktop entry.
    QApplication::setApplicationName(QStringLiteral("Deckwright"));
    QApplication::setOrganizationName(QStringLiteral("bramblefox"));
    QApplication::setApplicationVersion(QString::fromUtf8(BuildConfig::version));
    QGuiApplication::setDesktopFileName(QStringLiteral("com.bramblefox.Deckwright"));
    QApplication::setWindowIcon(AppDelegate::applicationIcon());
    // Closing the main window hides it; Deckwright runs until the person quits.
    QApplication::setQuitOnLastWindowClosed(false);

    // A signal that comes while an alert about a file is open (its event loop
    // runs inside the conversion) ends the program now, the run's folder removed,
    // rather than once the alert is answered.
    std::unique_ptr<QSocketNotifier> stopSignals;
    if (StopRequest::signalDescriptor() >= 0) {
        stopSignals = std::make_unique<QSocketNotifier>(StopRequest::signalDescriptor(), QSocketNotifier::Read);
        QObject::connect(stopSignals.get(), &QSocketNotifier::activated, [] {
            ScratchRun::removeAll();
            StopRequest::finishSignal();
        });
    }

    // Qt has taken its own options; what is left are packages.
    QTextStream err(stderr);
    QStringList packages;
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    bool optionsEnded = false;
    for (const QString &argument : arguments) {
        if (!optionsEnded && argument == QLatin1String("--")) {
            optionsEnded = true;
        } else if (!optionsEnded && argument.startsWith(QLatin1Char('-'))) {
            return usageError(err, {}, QStringLiteral("unknown option %1").arg(argument));
        } else {
            packages.append(QFileInfo(argument).absoluteFilePath());
        }
    }

    SingleInstance instance;
    if (instance.forwardToRunningInstance(packages))
        return 0;

    Fatal::setAlertHandler([](const QString &reason) {
        Alert::show(Alert::Critical, QStringLiteral("Deckwright has to quit."),
                    reason.left(1).toUpper() + reason.mid(1) + QLatin1Char('.'), nullptr, {}, QStringLiteral("Quit"));
    });

    AppDelegate delegate;
    QObject::connect(&instance, &SingleInstance::activated, &delegate, [&delegate](const QStringList &paths) {
        delegate.applicationShouldHandleReopen(delegate.window()->isVisible());
        delegate.openPackages(paths);
    });
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate, [&delegate] {
        delegate.applicationWillTerminate();
        SettingsStore::standard().synchronize();
    });
    QTimer::singleShot(0, &delegate, [&delegate, packages] {
        delegate.applicationDidFinishLaunching();
        delegate.showMainWindow();
        delegate.openPackages(packages);
    });
    return app.exec();
}
} // namespace

int main(int argc, char *argv[])
{
    const QString first = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    if (first == QLatin1String("convert"))
        return runCommand(argc, argv, &ConvertCommand::run);
    if (first == QLatin1String("check"))
        return runCommand(argc, argv, &CheckCommand::run);
    if (first == QLatin1String("-h") || first == QLatin1String("--help")) {
        QTextStream(stdout) << mainUsage();
        return 0;
    }
    if (first == QLatin1String("-v") || first == QLatin1String("--version")) {
        QTextStream(stdout) << "Deckwright " << BuildConfig::version << "\n";
        return 0;
    }
    return runDesktop(argc, argv);
}
