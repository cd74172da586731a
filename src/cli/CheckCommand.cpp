#include "cli/CheckCommand.h"

#include "cli/Usage.h"
#include "core/DiskSpace.h"
#include "core/PackageCheck.h"
#include "core/PackageSearch.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QTextStream>

QString CheckCommand::usage()
{
    return QStringLiteral(
        "Usage: deckwright check PATH...\n"
        "Tells whether Deckwright can convert each Keynote package, without\n"
        "converting it and without changing anything.\n"
        "\n"
        "A PATH is a package, a single .key file, or a folder, which is searched\n"
        "for packages through its subfolders, never inside a package and never\n"
        "through a link.\n"
        "\n"
        "Options:\n"
        "  -h, --help  show this help\n"
        "\n"
        "One line is printed for each, in the order given (a folder's packages in\n"
        "name order):\n"
        "  PATH: Keynote '08 package, convertible, SIZE, N slides\n"
        "  PATH: Keynote '09 package, SIZE, N slides\n"
        "  PATH: Keynote '09 document (zip), SIZE\n"
        "  PATH: not convertible (REASON), SIZE\n"
        "  FOLDER: no Keynote packages in it\n"
        "  FOLDER: a folder that could not be read (SYSTEM'S REASON)\n"
        "The reasons are those 'deckwright convert --help' lists. SIZE is the\n"
        "package's files added up; it and the slides are shown where known.\n"
        "\n"
        "Exit status: 0 when everything given is convertible, 1 when anything is\n"
        "not (a folder without packages or that could not be read included), 2 for\n"
        "a usage error, 3 when a line could not be written to standard output (a\n"
        "full disk, a closed descriptor, a pipe whose reader is gone: no SIGPIPE),\n"
        "where the check stops.\n");
}

namespace {
QString line(const QString &shown, const PackageCheck::Verdict &verdict)
{
    QString text;
    switch (verdict.kind) {
    case PackageCheck::Kind::KeynoteFourPackage:
        text = QStringLiteral("%1: Keynote '08 package, convertible").arg(shown);
        break;
    case PackageCheck::Kind::KeynoteFivePackage:
        text = QStringLiteral("%1: Keynote '09 package").arg(shown);
        break;
    case PackageCheck::Kind::KeynoteFiveDocument:
        text = QStringLiteral("%1: Keynote '09 document (zip)").arg(shown);
        break;
    case PackageCheck::Kind::NotConvertible:
        text = QStringLiteral("%1: not convertible (%2)").arg(shown, verdict.reason);
        break;
    }
    if (verdict.bytes >= 0)
        text += QStringLiteral(", ") + DiskSpace::describe(verdict.bytes);
    if (verdict.slides >= 0)
        text += verdict.slides == 1 ? QStringLiteral(", 1 slide") : QStringLiteral(", %1 slides").arg(verdict.slides);
    return text;
}
} // namespace

int CheckCommand::run(const QStringList &arguments, QTextStream &out, QTextStream &err)
{
    const auto refuse = [&err](const QString &reason) { return usageError(err, QStringLiteral("check"), reason); };
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsCompactedShortOptions);
    const QCommandLineOption helpOption({QStringLiteral("h"), QStringLiteral("help")},
                                        QStringLiteral("Show this help."));
    parser.addOption(helpOption);
    parser.addPositionalArgument(QStringLiteral("PATH"), QStringLiteral("Packages, .key files and folders."),
                                 QStringLiteral("PATH..."));
    // The parser expects the program name first.
    if (!parser.parse(QStringList{QStringLiteral("deckwright check")} + arguments))
        return refuse(parser.errorText());
    if (parser.isSet(helpOption)) {
        out << usage();
        out.flush();
        return AllConvertible;
    }
    const QStringList paths = parser.positionalArguments();
    if (paths.isEmpty())
        return refuse(QStringLiteral("no path given"));

    int status = AllConvertible;
    for (const QString &path : paths) {
        for (const PackageSearch::Item &found : PackageSearch::search(path)) {
            const QString shown = PackageSearch::shownPath(path, found.path);
            QString text;
            if (found.kind == PackageSearch::Item::Package) {
                const PackageCheck::Verdict verdict = PackageCheck::check(QFileInfo(found.path).absoluteFilePath());
                text = line(shown, verdict);
                if (!verdict.convertible())
                    status = SomeNotConvertible;
            } else {
                text = shown + QStringLiteral(": ") + found.problem();
                status = SomeNotConvertible;
            }
            if (!printLine(out, text))
                return outputError(err, QStringLiteral("check"), out);
        }
    }
    return status;
}
