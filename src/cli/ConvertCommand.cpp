#include "cli/ConvertCommand.h"

#include "cli/CommandLine.h"
#include "cli/ConvertJobs.h"
#include "cli/ConvertOutcome.h"
#include "cli/ConvertReport.h"
#include "cli/ConvertWorker.h"
#include "cli/Usage.h"
#include "core/Converter.h"
#include "core/FileTree.h"
#include "core/FileUrl.h"
#include "core/MachineLimits.h"
#include "core/OutputFolder.h"
#include "core/PackageSearch.h"
#include "core/SettingsStore.h"
#include "core/StopRequest.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QScopeGuard>
#include <QTextStream>
#include <QThread>

#include <algorithm>
#include <limits>

#include <sys/ioctl.h>
#include <unistd.h>

QString ConvertCommand::usage()
{
    const QString text = QStringLiteral(
        "Usage: deckwright convert [--jobs N] [--layout reference|root]\n"
        "                          [--keep-folders] [--skip-existing] [--json] [--quiet]\n"
        "                          --output DIR PACKAGE_OR_FOLDER...\n"
        "  or:  deckwright convert --help|--version\n"
        "Convert Keynote '08 packages, and those found in folders, to Keynote '09\n"
        "files in DIR, without a window and without changing the desktop program's\n"
        "settings.\n"
        "\n"
        "Options:\n"
        "  -o, --output DIR     the folder that receives the converted files\n"
        "  -l, --layout LAYOUT  how the archive holds the package:\n"
        "                       reference  (the default) entries carry the scratch\n"
        "                                  folder's path, as Deckwright has always\n"
        "                                  written them\n"
        "                       root       entries start at the package's root\n"
        "                                  (index.apxl, Data/...), as Keynote '09\n"
        "                                  writes them; LibreOffice opens these\n"
        "  -j, --jobs N         convert up to N packages at once, each in a process of\n"
        "                       its own (default: as many as there are processors);\n"
        "                       never more than there are packages, nor than this\n"
        "                       machine can run: %1\n"
        "      --keep-folders   a package found in a folder given goes into the same\n"
        "                       folders below DIR: Decks/2008/Misc/Talk.key from Decks\n"
        "                       becomes DIR/2008/Misc/Talk.key; the folders are made as\n"
        "                       needed, never through a symbolic link, and names are\n"
        "                       numbered within each\n"
        "      --skip-existing  skip a package whose name is already taken in its\n"
        "                       folder in DIR, as converted before: it is told as\n"
        "                       already-done, copies nothing and takes no number\n"
        "      --json           one JSON object per item instead of the lines below\n"
        "  -q, --quiet          no progress line and no summary on standard error\n"
        "  -h, --help           show this help and exit\n"
        "  -V, --version        show the version and exit\n"
        "\n"
        "A folder is searched for packages through its subfolders, but never into a\n"
        "package and never through a symbolic link, so no --recursive is needed. Its\n"
        "packages, in name order as file managers sort (Talk 2 before Talk 10) and\n"
        "named from the folder as given, take the folder's place among the arguments.\n"
        "\n"
        "For each package one line is printed, in the order given (with --jobs too,\n"
        "each as soon as it and the lines before it are known):\n"
        "  converted: PACKAGE -> OUTPUT_FILE\n"
        "  already-done: PACKAGE: OUTPUT_FILE exists       (with --skip-existing)\n"
        "  skipped: PACKAGE: not found\n"
        "  skipped: PACKAGE: not a Keynote file (REASON)\n"
        "  skipped: PACKAGE: not a Keynote 4 file (REASON)\n"
        "  failed: PACKAGE: REASON\n"
        "  skipped: FOLDER: no Keynote packages in it\n"
        "  skipped: FOLDER: a folder that could not be read (SYSTEM'S REASON)\n"
        "A name or reason holding control characters (a line break) is quoted as\n"
        "'ls --quoting-style=shell-escape' quotes it: 'Talk'$'\\n''2.key'.\n"
        "With --json each item is instead one object on a line of its own, for\n"
        "example:\n"
        "  {\"bytes\":2097152,\"code\":0,\"input\":\"Decks/Talk.key\",\"outcome\":\"converted\",\n"
        "   \"output\":\"DIR/Talk.key\",\"reason\":null,\"seconds\":0.412}\n"
        "outcome: converted, skipped, failed or already-done; output: the file\n"
        "written (or found, already done), else null; reason: why it was not\n"
        "converted, else null; code: the converter's outcome (0 converted, 1 not a\n"
        "Keynote file, 2 not a Keynote 4 file, 3 not written, 5 already done), null\n"
        "when no conversion was tried; bytes: the package's files added up;\n"
        "seconds: the time its conversion took.\n"
        "\n"
        "On a terminal, standard error shows one line that rewrites itself: the\n"
        "item (12/300), its name, how far it is, the bytes left in the batch and\n"
        "the time left; it is gone before each result is printed. At the end a\n"
        "summary follows there, terminal or not:\n"
        "  298 converted, 2 skipped, 0 failed in 3 min 12 s\n"
        "(with --skip-existing: 290 converted, 8 already done, 2 skipped, ...).\n"
        "\n"
        "Why a package is skipped (README lists what each means):\n"
        "  its name does not end in .key | its name is only the extension .key\n"
        "  it links to PATH, whose name does not end in .key\n"
        "  its name is not valid UTF-8 | it was not found | its path is too long to open\n"
        "  it could not be read | it is a symbolic link\n"
        "  it is a FIFO, a device or a socket | index.apxl.gz is missing\n"
        "  index.apxl.gz (index.apxl) could not be read (REASON)\n"
        "  index.apxl is a folder | the document is damaged\n"
        "  the document is not UTF-8 text | the document is larger than 256 MB\n"
        "  the document has no Keynote '08 version tag\n"
        "  already in the Keynote '09 format\n"
        "  it is a single file, not a Keynote '08 package\n"
        "  it holds a link to a file outside the package: NAME\n"
        "  it holds a symbolic link (a FIFO, a device, a socket, a mount point): NAME\n"
        "  it holds a file (a folder) that could not be read: NAME\n"
        "  a path in it is too long to copy: NAME | it changed while it was copied\n"
        "  it could not be copied to the scratch folder (SYSTEM'S REASON)\n"
        "Why a package fails: not enough free space to convert it; the output folder\n"
        "is inside the package; the scratch (output) folder's disk is full; a tool\n"
        "the conversion runs is missing (the tool /usr/bin/zip is not installed;\n"
        "the tool PATH cannot be run (SYSTEM'S REASON)); zip or the write of the\n"
        "document or the file failed (could not write OUTPUT_FILE, with\n"
        "--keep-folders also because a symbolic link or a file stands where a folder\n"
        "goes); with --jobs, its worker could not start or ended unexpectedly.\n"
        "Nothing already in DIR is ever replaced: a name in use gets a number\n"
        "(Talk.1.key, Talk.2.key, ...), and a file appears in DIR whole or not at all.\n"
        "Packages converted at once are numbered as they would be one after another:\n"
        "the first Talk.key given gets Talk.key, the second Talk.1.key.\n"
        "\n"
        "Examples:\n"
        "  deckwright convert -o ~/Converted ~/Decks/2008 ~/Desktop/Pitch.key\n"
        "  deckwright convert --jobs 2 -o ~/Converted ~/Decks\n"
        "  deckwright convert --layout root -o ~/Converted ~/Old/Talk.key\n"
        "  deckwright convert --keep-folders --skip-existing -o ~/Converted ~/Decks\n"
        "  deckwright convert --json -o ~/Converted ~/Decks > results.jsonl\n"
        "  deckwright convert --quiet -o ~/Converted ~/Decks\n"
        "\n"
        "Exit status:\n"
        "  0    every item converted, or nothing to do for it (Keynote '09 already,\n"
        "       or already done)\n"
        "  1    any item refused or failed, or a folder given holds no package\n"
        "  2    a usage error\n"
        "  3    a line could not be written to standard output (a full disk, a\n"
        "       closed descriptor, a pipe whose reader is gone, as with '| head -1':\n"
        "       no SIGPIPE); the conversions under way are undone, none is started\n"
        "  129, 130, 143 (in a shell)\n"
        "       ended by SIGHUP, SIGINT (Ctrl+C) or SIGTERM; the conversions under\n"
        "       way are undone\n"
        "\n"
        "Full documentation: man deckwright\n");
    return text.arg(MachineLimits::describeParallelConversions());
}

int ConvertCommand::run(const QStringList &arguments, QTextStream &out, QTextStream &err)
{
    const auto refuse = [&err](const QString &reason) { return usageError(err, QStringLiteral("convert"), reason); };
    CommandLine parser({
        {QStringLiteral("output"), QStringLiteral("o"), QStringLiteral("a folder")},
        {QStringLiteral("layout"), QStringLiteral("l"), QStringLiteral("a layout (reference or root)")},
        {QStringLiteral("jobs"), QStringLiteral("j"), QStringLiteral("a number")},
        {QStringLiteral("keep-folders"), {}},
        {QStringLiteral("skip-existing"), {}},
        {QStringLiteral("json"), {}},
        {QStringLiteral("quiet"), QStringLiteral("q")},
        {QStringLiteral("help"), QStringLiteral("h")},
        {QStringLiteral("version"), QStringLiteral("V")},
        // Not for people: a process that converts what the command asks on its
        // standard input (ConvertWorker), into the output folder the command
        // opened and handed down, telling how far each conversion is.
        {QStringLiteral("worker"), {}},
        {QStringLiteral("output-descriptor"), {}, QStringLiteral("a number")},
        {QStringLiteral("progress"), {}},
    });
    if (!parser.parse(arguments))
        return refuse(parser.error());
    if (parser.isSet(QStringLiteral("help")) || parser.isSet(QStringLiteral("version"))) {
        out << (parser.isSet(QStringLiteral("help")) ? usage() : versionText());
        out.flush();
        return AllDone;
    }
    const QString outputDir = parser.value(QStringLiteral("output"));
    const QStringList packages = parser.arguments();
    const bool worker = parser.isSet(QStringLiteral("worker"));
    const QString jobsText = parser.value(QStringLiteral("jobs"), QString::number(QThread::idealThreadCount()));
    bool jobsIsNumber = false;
    const int jobs = jobsText.toInt(&jobsIsNumber);
    // A number too large to hold is no mistake of form: it is told this machine's bound.
    if (!jobsIsNumber && jobsText.toDouble() > std::numeric_limits<int>::max())
        return refuse(QStringLiteral("--jobs %1 is more than this machine can run: at most %2")
                          .arg(jobsText, MachineLimits::describeParallelConversions()));
    if (!jobsIsNumber || jobs < 1)
        return refuse(QStringLiteral("--jobs needs a whole number of at least 1, not '%1'").arg(jobsText));
    if (outputDir.isEmpty())
        return refuse(QStringLiteral("no output folder given (--output DIR)"));
    if (packages.isEmpty() && !worker)
        return refuse(QStringLiteral("no package given"));
    if (!packages.isEmpty() && worker)
        return refuse(QStringLiteral("a worker takes its packages on standard input"));
    const QString layout
        = parser.value(QStringLiteral("layout"), Converter::layoutName(Converter::ArchiveLayout::Reference));
    if (layout != Converter::layoutName(Converter::ArchiveLayout::Reference)
        && layout != Converter::layoutName(Converter::ArchiveLayout::PackageAtRoot))
        return refuse(QStringLiteral("unknown layout '%1' (reference or root)").arg(layout));
    // The folder is opened once, here, for the whole batch: every file goes
    // where it was now, and a worker works in the folder the command opened.
    std::shared_ptr<const OutputFolder> folder;
    if (worker && parser.isSet(QStringLiteral("output-descriptor"))) {
        bool isNumber = false;
        const int descriptor = parser.value(QStringLiteral("output-descriptor")).toInt(&isNumber);
        folder = std::make_shared<OutputFolder>(isNumber && descriptor > STDERR_FILENO ? descriptor : -1, outputDir);
    } else {
        const QFileInfo dirInfo(outputDir);
        if (!dirInfo.exists())
            return refuse(QStringLiteral("the output folder %1 does not exist").arg(outputDir));
        if (!dirInfo.isDir())
            return refuse(QStringLiteral("%1 is not a folder").arg(outputDir));
        if (!dirInfo.isWritable())
            return refuse(QStringLiteral("the output folder %1 is not writable").arg(outputDir));
        folder = OutputFolder::open(outputDir);
    }
    if (!folder->isOpen())
        return refuse(QStringLiteral("the output folder %1 cannot be used").arg(outputDir));
    const QString outputFolder = folder->path();

    // The person's saved settings stay as they are: this run keeps its own.
    SettingsStore::standard().useMemory({
        {SettingKey::outputPath, FileUrl::absoluteString(outputFolder)},
        {SettingKey::archiveLayout, layout},
    });
    const bool skipExisting = parser.isSet(QStringLiteral("skip-existing"));
    if (worker)
        return ConvertWorker::run(folder, {skipExisting, parser.isSet(QStringLiteral("progress"))});

    // What is told besides the results: on a terminal, how far the batch is.
    ConvertReport::Options told;
    told.json = parser.isSet(QStringLiteral("json"));
    told.summary = !parser.isSet(QStringLiteral("quiet"));
    told.progress = told.summary && ::isatty(STDERR_FILENO);
    told.skipExisting = skipExisting;
    winsize terminal = {};
    if (told.progress && ::ioctl(STDERR_FILENO, TIOCGWINSZ, &terminal) == 0 && terminal.ws_col > 0)
        told.width = terminal.ws_col;

    // A folder's packages take its place, in its order, with what could not be searched.
    QList<ConvertJobs::Item> items;
    QList<ConvertReport::Item> reported;
    int toConvert = 0;
    const bool keepFolders = parser.isSet(QStringLiteral("keep-folders"));
    for (const QString &argument : packages) {
        for (const PackageSearch::Item &found : PackageSearch::search(argument)) {
            const QString shown = PackageSearch::shownPath(argument, found.path);
            if (found.kind != PackageSearch::Item::Package) {
                items.append(
                    {shown, QString(), QString(), ConvertOutcome(ConvertOutcome::NoPackages, found.problem())});
                reported.append({shown, 0});
                continue;
            }
            const QString path = QFileInfo(found.path).absoluteFilePath();
            items.append({shown, path, keepFolders ? found.folder : QString(), std::nullopt});
            // The bytes tell how far the batch is, and with --json what each package weighed.
            const bool weighed = told.progress || told.json;
            reported.append({shown, weighed ? FileTree::bytesOfFiles(Converter::resolvedPackagePath(path)) : 0});
            ++toConvert;
        }
    }
    ConvertReport report(out, err, outputFolder, told);
    report.begin(reported);
    // A signal ends the command from inside a conversion: the line goes first, as before any other ending.
    StopRequest::setBeforeSignalEnds([&report] { report.clear(); });
    const auto forget = qScopeGuard([] { StopRequest::setBeforeSignalEnds({}); });

    const int workers = std::min({jobs, toConvert, MachineLimits::parallelConversions()});
    if (workers > 1) {
        // The options that shape each conversion go to the workers as they were given here.
        QStringList workerArguments{QStringLiteral("convert"), QStringLiteral("--worker"),
                                    QStringLiteral("--output=") + outputFolder, QStringLiteral("--layout=") + layout};
        if (skipExisting)
            workerArguments.append(QStringLiteral("--skip-existing"));
        if (told.progress)
            workerArguments.append(QStringLiteral("--progress"));
        ConvertJobs batch(QCoreApplication::applicationFilePath(), workerArguments, folder, report);
        batch.run(items, workers);
        if (out.status() != QTextStream::Ok)
            return outputError(err, QStringLiteral("convert"), out);
        report.end();
        return report.status();
    }

    // One at a time, here.
    for (int i = 0; i < items.size(); ++i) {
        const ConvertJobs::Item &item = items[i];
        ConvertOutcome outcome;
        if (item.outcome) {
            outcome = *item.outcome;
        } else {
            Converter converter(item.path);
            converter.useOutputFolder(folder);
            converter.setOutputSubfolder(item.subfolder);
            converter.setSkipExisting(skipExisting);
            report.advance(i, 0.0);
            const auto share = [&](double done) { report.advance(i, done); };
            outcome = ConvertOutcome::convert(converter, outputFolder,
                                              told.progress ? share : std::function<void(double)>());
        }
        if (!report.print(i, outcome))
            return outputError(err, QStringLiteral("convert"), out);
    }
    report.end();
    return report.status();
}
