#include "cli/ConvertCommand.h"

#include "core/ConversionEvents.h"
#include "core/Converter.h"
#include "core/FileUrl.h"
#include "core/FolderBookmark.h"
#include "core/NotificationCenter.h"
#include "core/SettingsStore.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QTextStream>
#include <QUrl>

QString ConvertCommand::usage()
{
    return QStringLiteral(
        "Usage: deckwright convert --output DIR [--layout reference|root] PACKAGE...\n"
        "Converts Keynote '08 packages to Keynote '09 files in DIR, one after another.\n"
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
        "  -h, --help           show this help\n"
        "\n"
        "For each package one line is printed, in the order given:\n"
        "  converted: PACKAGE -> OUTPUT_FILE\n"
        "  skipped: PACKAGE: not found\n"
        "  skipped: PACKAGE: not a Keynote file (REASON)\n"
        "  skipped: PACKAGE: not a Keynote 4 file (REASON)\n"
        "  failed: PACKAGE: could not write OUTPUT_FILE (REASON)\n"
        "\n"
        "Why a package is skipped:\n"
        "  its name does not end in .key\n"
        "  its name is not valid UTF-8\n"
        "  it was not found\n"
        "  index.apxl.gz is missing\n"
        "  the document is damaged\n"
        "  the document is not UTF-8 text\n"
        "  the document is larger than 256 MB\n"
        "  the document has no Keynote '08 version tag\n"
        "  already in the Keynote '09 format\n"
        "  it is a single file, not a Keynote '08 package\n"
        "  it is a FIFO, a device or a socket\n"
        "  it holds a link to a file outside the package: NAME\n"
        "  it holds a symbolic link: NAME\n"
        "  it holds a FIFO, a device or a socket: NAME\n"
        "  it holds a file that could not be read: NAME\n"
        "  it holds a folder that could not be read: NAME\n"
        "  a path in it is too long to copy: NAME\n"
        "  it could not be copied to the scratch folder (SYSTEM'S REASON)\n"
        "A failed package was converted but not written: the disk is full, the\n"
        "output folder is gone or cannot be written, the name is too long.\n"
        "Nothing already in DIR is ever replaced: a name in use gets a number\n"
        "(Talk.1.key, Talk.2.key, ...), and a file appears in DIR whole or not at all.\n"
        "\n"
        "Exit status: 0 when every package was converted, 1 when any was not,\n"
        "2 for a usage error. Interrupted (Ctrl+C, SIGTERM, SIGHUP), the\n"
        "conversion under way is undone and the command ends by that signal.\n");
}

namespace {
int usageError(QTextStream &err, const QString &reason)
{
    err << "deckwright convert: " << reason << "\n"
        << "Try 'deckwright convert --help'.\n";
    err.flush();
    return ConvertCommand::UsageError;
}
} // namespace

int ConvertCommand::run(const QStringList &arguments, QTextStream &out, QTextStream &err)
{
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsCompactedShortOptions);
    const QCommandLineOption outputOption({QStringLiteral("o"), QStringLiteral("output")},
                                          QStringLiteral("The folder that receives the converted files."),
                                          QStringLiteral("DIR"));
    const QCommandLineOption helpOption({QStringLiteral("h"), QStringLiteral("help")},
                                        QStringLiteral("Show this help."));
    const QCommandLineOption layoutOption({QStringLiteral("l"), QStringLiteral("layout")},
                                          QStringLiteral("How the archive holds the package."),
                                          QStringLiteral("LAYOUT"));
    parser.addOption(outputOption);
    parser.addOption(layoutOption);
    parser.addOption(helpOption);
    parser.addPositionalArgument(QStringLiteral("PACKAGE"), QStringLiteral("Keynote '08 packages."),
                                 QStringLiteral("PACKAGE..."));
    // The parser expects the program name first.
    if (!parser.parse(QStringList{QStringLiteral("deckwright convert")} + arguments))
        return usageError(err, parser.errorText());
    if (parser.isSet(helpOption)) {
        out << usage();
        out.flush();
        return AllConverted;
    }
    const QStringList outputs = parser.values(outputOption);
    if (outputs.size() > 1)
        return usageError(err, QStringLiteral("only one output folder can be given"));
    const QString outputDir = outputs.isEmpty() ? QString() : outputs.first();
    const QStringList packages = parser.positionalArguments();
    if (outputDir.isEmpty())
        return usageError(err, QStringLiteral("no output folder given (--output DIR)"));
    if (packages.isEmpty())
        return usageError(err, QStringLiteral("no package given"));
    const QStringList layouts = parser.values(layoutOption);
    const QString layout
        = layouts.isEmpty() ? Converter::layoutName(Converter::ArchiveLayout::Reference) : layouts.last();
    if (layout != Converter::layoutName(Converter::ArchiveLayout::Reference)
        && layout != Converter::layoutName(Converter::ArchiveLayout::PackageAtRoot))
        return usageError(err, QStringLiteral("unknown layout '%1' (reference or root)").arg(layout));
    const QFileInfo dirInfo(outputDir);
    if (!dirInfo.exists())
        return usageError(err, QStringLiteral("the output folder %1 does not exist").arg(outputDir));
    if (!dirInfo.isDir())
        return usageError(err, QStringLiteral("%1 is not a folder").arg(outputDir));
    if (!dirInfo.isWritable())
        return usageError(err, QStringLiteral("the output folder %1 is not writable").arg(outputDir));

    // The person's saved settings stay as they are: this run keeps its own.
    const QString outputFolder = QDir::cleanPath(dirInfo.absoluteFilePath());
    const std::optional<QByteArray> bookmark = FolderBookmark::platform().create(QUrl::fromLocalFile(outputFolder));
    if (!bookmark)
        return usageError(err, QStringLiteral("the output folder %1 cannot be used").arg(outputDir));
    SettingsStore::standard().useMemory({
        {SettingKey::outputPath, FileUrl::absoluteString(outputFolder)},
        {SettingKey::bookmarkData, *bookmark},
        {SettingKey::archiveLayout, layout},
    });

    int status = AllConverted;
    NotificationCenter &center = NotificationCenter::defaultCenter();
    for (const QString &package : packages) {
        const QString path = QFileInfo(package).absoluteFilePath();
        // A name that is not UTF-8 names nothing on disk either; the converter says which it is.
        if (!QFileInfo::exists(path) && !Converter::cannotRepresent(path)) {
            out << QStringLiteral("skipped: %1: not found").arg(package) << "\n";
            out.flush();
            status = SomeSkipped;
            continue;
        }

        Converter converter(path);
        QString line;
        center.addObserver(&converter, ConversionEvents::finished, [&](const Notification &) {
            line = QStringLiteral("converted: %1 -> %2")
                       .arg(package, outputFolder + QLatin1Char('/') + converter.outputPrezName());
        });
        center.addObserver(&converter, ConversionEvents::finishedWithErrorNotKeynote, [&](const Notification &) {
            line = QStringLiteral("skipped: %1: not a Keynote file (%2)").arg(package, converter.errorReason());
            status = SomeSkipped;
        });
        center.addObserver(&converter, ConversionEvents::finishedWithErrorNotKeynoteFour, [&](const Notification &) {
            if (converter.errorOccurred() == Converter::OutputNotWritten)
                line = QStringLiteral("failed: %1: %2").arg(package, converter.errorReason());
            else
                line = QStringLiteral("skipped: %1: not a Keynote 4 file (%2)").arg(package, converter.errorReason());
            status = SomeSkipped;
        });
        converter.doConvert(outputFolder);
        center.removeObserver(&converter);
        out << line << "\n";
        out.flush();
    }
    return status;
}
