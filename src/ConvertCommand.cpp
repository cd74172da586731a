#include "ConvertCommand.h"

#include "ConversionEvents.h"
#include "Converter.h"
#include "FileUrl.h"
#include "FolderBookmark.h"
#include "NotificationCenter.h"
#include "SettingsStore.h"

#include <QDir>
#include <QFileInfo>
#include <QTextStream>
#include <QUrl>

QString ConvertCommand::usage()
{
    return QStringLiteral(
        "Usage: deckwright convert --output DIR PACKAGE...\n"
        "Converts Keynote '08 packages to Keynote '09 files in DIR, one after another.\n"
        "\n"
        "Options:\n"
        "  -o, --output DIR  the folder that receives the converted files\n"
        "  -h, --help        show this help\n"
        "\n"
        "For each package one line is printed:\n"
        "  converted: PACKAGE -> OUTPUT_FILE\n"
        "  skipped: PACKAGE: not a Keynote file\n"
        "  skipped: PACKAGE: not a Keynote 4 file\n"
        "\n"
        "Exit status: 0 when every package was converted, 1 when any was not,\n"
        "2 for a usage error.\n");
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
    QString outputDir;
    bool haveOutput = false;
    QStringList packages;
    bool optionsEnded = false;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &arg = arguments.at(i);
        if (optionsEnded || !arg.startsWith(QLatin1Char('-')) || arg == QLatin1String("-")) {
            packages.append(arg);
        } else if (arg == QLatin1String("--")) {
            optionsEnded = true;
        } else if (arg == QLatin1String("-h") || arg == QLatin1String("--help")) {
            out << usage();
            out.flush();
            return AllConverted;
        } else if (arg == QLatin1String("-o") || arg == QLatin1String("--output")) {
            if (i + 1 >= arguments.size())
                return usageError(err, QStringLiteral("%1 needs a folder").arg(arg));
            outputDir = arguments.at(++i);
            haveOutput = true;
        } else if (arg.startsWith(QLatin1String("--output="))) {
            outputDir = arg.mid(int(qstrlen("--output=")));
            haveOutput = true;
        } else {
            return usageError(err, QStringLiteral("unknown option %1").arg(arg));
        }
    }
    if (!haveOutput || outputDir.isEmpty())
        return usageError(err, QStringLiteral("no output folder given (--output DIR)"));
    if (packages.isEmpty())
        return usageError(err, QStringLiteral("no package given"));
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
    });

    int status = AllConverted;
    NotificationCenter &center = NotificationCenter::defaultCenter();
    for (const QString &package : packages) {
        // Links are followed here so that the scratch copy is a real copy.
        const QFileInfo info(package);
        QString path = info.exists() ? info.canonicalFilePath() : info.absoluteFilePath();

        Converter converter(path);
        QString line;
        center.addObserver(&converter, ConversionEvents::finished, [&](const Notification &) {
            const QString written = outputFolder + QLatin1Char('/') + converter.outputPrezName();
            if (QFileInfo::exists(written)) {
                line = QStringLiteral("converted: %1 -> %2").arg(package, written);
            } else {
                line = QStringLiteral("failed: %1: could not write %2").arg(package, written);
                status = SomeSkipped;
            }
        });
        center.addObserver(&converter, ConversionEvents::finishedWithErrorNotKeynote, [&](const Notification &) {
            line = QStringLiteral("skipped: %1: not a Keynote file").arg(package);
            status = SomeSkipped;
        });
        center.addObserver(&converter, ConversionEvents::finishedWithErrorNotKeynoteFour, [&](const Notification &) {
            line = QStringLiteral("skipped: %1: not a Keynote 4 file").arg(package);
            status = SomeSkipped;
        });
        converter.doConvert(outputFolder);
        center.removeObserver(&converter);
        out << line << "\n";
        out.flush();
    }
    return status;
}
