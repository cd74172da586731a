#include "BuildConfig.h"
#include "ConvertCommand.h"

#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

namespace {
QString mainUsage()
{
    return QStringLiteral(
        "Usage: deckwright [PACKAGE...]\n"
        "       deckwright convert --output DIR PACKAGE...\n"
        "Upgrades Keynote '08 presentations to the Keynote '09 file format.\n"
        "\n"
        "Without a command the desktop application starts; packages given to it\n"
        "are converted as one batch.\n"
        "\n"
        "Commands:\n"
        "  convert        convert packages without a window (see deckwright convert --help)\n"
        "\n"
        "Options:\n"
        "  -h, --help     show this help\n"
        "  -v, --version  show the version\n");
}
} // namespace

int main(int argc, char *argv[])
{
    const QString first = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    if (first == QLatin1String("convert")) {
        QCoreApplication app(argc, argv);
        QCoreApplication::setApplicationName(QStringLiteral("Deckwright"));
        QStringList arguments = QCoreApplication::arguments().mid(2);
        QTextStream out(stdout);
        QTextStream err(stderr);
        return ConvertCommand::run(arguments, out, err);
    }
    QTextStream out(stdout);
    if (first == QLatin1String("-h") || first == QLatin1String("--help")) {
        out << mainUsage();
        return 0;
    }
    if (first == QLatin1String("-v") || first == QLatin1String("--version")) {
        out << "Deckwright " << BuildConfig::version << "\n";
        return 0;
    }
    QTextStream(stderr) << "deckwright: the desktop application is not built yet; use 'deckwright convert'.\n";
    return 1;
}
