#include "cli/CheckCommand.h"

#include "cli/CommandLine.h"
#include "cli/Usage.h"
#include "core/DiskSpace.h"
#include "core/PackageCheck.h"
#include "core/PackageSearch.h"

#include <QFileInfo>
#include <QTextStream>

QString CheckCommand::usage()
{
    return QStringLiteral(
        "Usage: deckwright check PATH...\n"
        "  or:  deckwright check --help|--version\n"
        "Tell whether Deckwright can convert each Keynote package, without\n"
        "converting it and without changing anything.\n"
        "\n"
        "Options:\n"
        "  -h, --help     show this help and exit\n"
        "  -V, --version  show the version and exit\n"
        "\n"
        "A PATH is a package, a single .key file, or a folder, which is searched\n"
        "for packages through its subfolders, never inside a package and never\n"
        "through a link.\n"
        "\n"
        "One line is printed for each, in the order given (a folder's packages in\n"
        "name order):\n"
        "  PATH: Keynote '08 package, convertible, SIZE, N slides\n"
        "  PATH: Keynote '09 package, SIZE, N slides\n"
        "  PATH: Keynote '09 document (zip), SIZE\n"
        "  PATH: not convertible (REASON), SIZE\n"
        "  FOLDER: no Keynote packages in it\n"
        "  FOLDER: a folder that could not be read (SYSTEM'S REASON)\n"
        "The reasons are those 'deckwright convert --help' lists, and a tool the\n"
        "conversion would run that is missing (the tool /usr/bin/zip is not\n"
        "installed). SIZE is the package's files added up; it and the slides are\n"
        "shown where known.\n"
        "\n"
        "Exit status:\n"
        "  0  everything given is convertible\n"
        "  1  anything is not (a folder without packages or that could not be read\n"
        "     included)\n"
        "  2  a usage error\n"
        "  3  a line could not be written to standard output (a full disk, a closed\n"
        "     descriptor, a pipe whose reader is gone: no SIGPIPE); the check stops\n"
        "\n"
        "Full documentation: man deckwright\n");
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
    CommandLine parser(
        {{QStringLiteral("help"), QStringLiteral("h")}, {QStringLiteral("version"), QStringLiteral("V")}});
    if (!parser.parse(arguments))
        return refuse(parser.error());
    if (parser.isSet(QStringLiteral("help")) || parser.isSet(QStringLiteral("version"))) {
        out << (parser.isSet(QStringLiteral("help")) ? usage() : versionText());
        out.flush();
        return AllConvertible;
    }
    const QStringList paths = parser.arguments();
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
