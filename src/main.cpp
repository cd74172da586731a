#include "cli/CheckCommand.h"
#include "cli/CommandLine.h"
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
#include <QSocketNotifier>
#include <QSysInfo>
#include <QTextStream>
#include <QTimer>

#include <memory>
#include <optional>

namespace {
QString mainUsage()
{
    return QStringLiteral(
        "Usage: deckwright [PACKAGE_OR_FOLDER...]\n"
        "  or:  deckwright convert [--jobs N] [--layout reference|root]\n"
        "                          [--keep-folders] [--skip-existing] [--json] [--quiet]\n"
        "                          --output DIR PACKAGE_OR_FOLDER...\n"
        "  or:  deckwright check PATH...\n"
        "  or:  deckwright [convert|check] --help|--version\n"
        "Upgrade Keynote '08 presentations to the Keynote '09 file format.\n"
        "\n"
        "Without a command the desktop application starts (or the running one\n"
        "comes to the front); packages given to it, and those found in folders\n"
        "given to it, are converted as one batch. Qt's own options (-platform NAME,\n"
        "-style NAME) are taken too.\n"
        "\n"
        "Commands:\n"
        "  convert        convert packages without a window\n"
        "                 (see 'deckwright convert --help')\n"
        "  check          tell whether packages can be converted, changing nothing\n"
        "                 (see 'deckwright check --help')\n"
        "\n"
        "Options:\n"
        "  -h, --help     show this help and exit\n"
        "  -V, --version  show the version and exit\n"
        "\n"
        "Exit status:\n"
        "  0  it ended normally, or handed the packages to the running one\n"
        "  1  there is no display, or it cannot start\n"
        "  2  a usage error\n"
        "\n"
        "Full documentation: man deckwright\n");
}

// Whether Qt knows where to show a window. On Linux that is a display named
// in the environment, or a platform named on the command line (Qt reads
// -platform wherever it stands). Without either Qt would abort.
bool hasDisplay(int argc, char *argv[])
{
    if (QSysInfo::kernelType() != QLatin1String("linux"))
        return true;
    if (!qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") || !qEnvironmentVariableIsEmpty("DISPLAY")
        || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        return true;
    for (int i = 1; i + 1 < argc; ++i) {
        if (qstrcmp(argv[i], "-platform") == 0 || qstrcmp(argv[i], "--platform") == 0)
            return true;
    }
    return false;
}

// Reads what Qt has left of the desktop application's command line: the
// packages, which it adds to packages. A status when the program ends here:
// for a usage error, or once the help or the version is shown.
std::optional<int> takePackages(QStringList &packages)
{
    CommandLine parser(
        {{QStringLiteral("help"), QStringLiteral("h")}, {QStringLiteral("version"), QStringLiteral("V")}});
    if (!parser.parse(QCoreApplication::arguments().mid(1))) {
        QTextStream err(stderr);
        return usageError(err, {}, parser.error());
    }
    if (parser.isSet(QStringLiteral("help")) || parser.isSet(QStringLiteral("version"))) {
        QTextStream(stdout) << (parser.isSet(QStringLiteral("help")) ? mainUsage() : versionText());
        return 0;
    }
    for (const QString &argument : parser.arguments())
        packages.append(QFileInfo(argument).absoluteFilePath());
    return std::nullopt;
}

// A command without windows: `deckwright convert` or `deckwright check`.
int runCommand(int argc, char *argv[], int (*command)(const QStringList &, QTextStream &, QTextStream &))
{
    prepareStandardStreams();
    StopRequest::installSignalHandlers();
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    QTextStream err(stderr);
    return command(QCoreApplication::arguments().mid(2), out, err);
}

int runDesktop(int argc, char *argv[])
{
    // Qt takes its own options (-style, -reverse, -platform, ...) off the
    // command line as the application is made, and what it leaves is ours:
    // no list of Qt's options is kept here to fall behind Qt's own. Where
    // there is no display, the application is made on the offscreen platform
    // all the same, only to read the command line: a mistake in it is still a
    // usage error, and anything else is told there is no display.
    const bool display = hasDisplay(argc, argv);
    if (!display) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        // What that platform says of itself (no runtime folder, say) is no
        // concern of the person's, who is only told what went wrong.
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    }
    StopRequest::installSignalHandlers();
    QApplication app(argc, argv);
    QStringList packages;
    if (const std::optional<int> status = takePackages(packages))
        return *status;
    if (!display) {
        QTextStream(stderr) << "deckwright: there is no display to show the window on; "
                               "'deckwright convert --output DIR PACKAGE...' converts without one.\n";
        return 1;
    }
    // No display name of its own: Qt would append it to every window's title,
    // and "General" or "Choose Folder To Save To" are whole titles. The main
    // window is titled "Deckwright", and the task bar knows the program by its
    // desktop entry.
    QApplication::setOrganizationName(QStringLiteral("bramblefox"));
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

    SingleInstance instance;
    if (instance.forwardToRunningInstance(packages))
        return 0;
    // Another copy may be running where this one cannot reach it: a second
    // main window would be a second program working on the same settings.
    if (!instance.isListening()) {
        const QString why = QStringLiteral("there may be another Deckwright running, and it cannot be reached: ")
                            + instance.problem();
        QTextStream(stderr) << "deckwright: " << why << "\n";
        Alert::show(Alert::Critical, QStringLiteral("Deckwright cannot start."),
                    why.left(1).toUpper() + why.mid(1) + QLatin1Char('.'));
        return 1;
    }

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
    QCoreApplication::setApplicationName(QStringLiteral("Deckwright"));
    QCoreApplication::setApplicationVersion(QString::fromUtf8(BuildConfig::version));
    const QString first = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    if (first == QLatin1String("convert"))
        return runCommand(argc, argv, &ConvertCommand::run);
    if (first == QLatin1String("check"))
        return runCommand(argc, argv, &CheckCommand::run);
    if (first == QLatin1String("-h") || first == QLatin1String("--help")) {
        QTextStream(stdout) << mainUsage();
        return 0;
    }
    if (first == QLatin1String("-V") || first == QLatin1String("--version")) {
        QTextStream(stdout) << versionText();
        return 0;
    }
    // The first word is a command when it is not a file: a misspelt one is no package.
    if (argc > 1 && (first == QLatin1String("-") || !first.startsWith(QLatin1Char('-')))
        && !first.contains(QLatin1Char('/')) && !first.contains(QLatin1Char('.')) && !QFileInfo::exists(first)) {
        QTextStream err(stderr);
        return usageError(
            err, {},
            QStringLiteral("'%1' is neither a command nor a file (the commands are 'convert' and 'check')").arg(first));
    }
    return runDesktop(argc, argv);
}
