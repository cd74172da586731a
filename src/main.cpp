#include "Alert.h"
#include "AppDelegate.h"
#include "BuildConfig.h"
#include "ConvertCommand.h"
#include "Fatal.h"
#include "SettingsStore.h"
#include "SingleInstance.h"

#include <QApplication>
#include <QCoreApplication>
#include <QFileInfo>
#include <QIcon>
#include <QTextStream>
#include <QTimer>

namespace {
QString mainUsage()
{
    return QStringLiteral(
        "Usage: deckwright [PACKAGE...]\n"
        "       deckwright convert --output DIR PACKAGE...\n"
        "Upgrades Keynote '08 presentations to the Keynote '09 file format.\n"
        "\n"
        "Without a command the desktop application starts (or the running one\n"
        "comes to the front); packages given to it are converted as one batch.\n"
        "\n"
        "Commands:\n"
        "  convert        convert packages without a window (see deckwright convert --help)\n"
        "\n"
        "Options:\n"
        "  -h, --help     show this help\n"
        "  -v, --version  show the version\n");
}

int runConvert(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Deckwright"));
    QCoreApplication::setApplicationVersion(QString::fromUtf8(BuildConfig::version));
    QTextStream out(stdout);
    QTextStream err(stderr);
    return ConvertCommand::run(QCoreApplication::arguments().mid(2), out, err);
}

int runDesktop(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Deckwright"));
    QApplication::setApplicationDisplayName(QStringLiteral("Deckwright"));
    QApplication::setOrganizationName(QStringLiteral("bramblefox"));
    QApplication::setApplicationVersion(QString::fromUtf8(BuildConfig::version));
    QGuiApplication::setDesktopFileName(QStringLiteral("com.bramblefox.Deckwright"));
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/icons/deckwright.svg")));
    // Closing the main window hides it; Deckwright runs until the person quits.
    QApplication::setQuitOnLastWindowClosed(false);

    // Qt has taken its own options; what is left are packages.
    QStringList packages;
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    bool optionsEnded = false;
    for (const QString &argument : arguments) {
        if (!optionsEnded && argument == QLatin1String("--")) {
            optionsEnded = true;
        } else if (!optionsEnded && argument.startsWith(QLatin1Char('-'))) {
            QTextStream(stderr) << "deckwright: unknown option " << argument << "\nTry 'deckwright --help'.\n";
            return 2;
        } else {
            packages.append(QFileInfo(argument).absoluteFilePath());
        }
    }

    SingleInstance instance;
    if (instance.forwardToRunningInstance(packages))
        return 0;

    Fatal::setAlertHandler([](const QString &reason) {
        Alert alert;
        alert.setStyle(Alert::Critical);
        alert.addButton(QStringLiteral("Quit"));
        alert.setMessageText(QStringLiteral("Deckwright has to quit."));
        alert.setInformativeText(reason.left(1).toUpper() + reason.mid(1) + QLatin1Char('.'));
        alert.runModal();
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
        return runConvert(argc, argv);
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
