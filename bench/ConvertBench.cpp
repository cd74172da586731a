// Converts one package in-process, the way `deckwright convert` does, and
// prints how long it took and how much memory this process and its children
// reached, as key=value lines that bench/convert reads.
//
//   deckwright-bench-convert --output DIR PACKAGE

#include "core/ConversionEvents.h"
#include "core/Converter.h"
#include "core/FileUrl.h"
#include "core/FolderBookmark.h"
#include "core/NotificationCenter.h"
#include "core/SettingsStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTextStream>
#include <QUrl>

#include <sys/resource.h>

#include <iterator>
#include <vector>

namespace {
// What the interval before each progress event (and the last one, before
// the closing event) is spent on.
const char *const kStepNames[] = {
    "prepare", "cp", "gunzip", "rewrite", "write-index", "mv", "zip", "mv-archive", "output",
};

double seconds(const timeval &tv)
{
    return double(tv.tv_sec) + double(tv.tv_usec) / 1e6;
}

int usage(QTextStream &err)
{
    err << "Usage: deckwright-bench-convert --output DIR PACKAGE\n";
    return 2;
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Deckwright"));
    QTextStream out(stdout);
    QTextStream err(stderr);

    const QStringList args = QCoreApplication::arguments().mid(1);
    if (args.size() != 3 || args.at(0) != QLatin1String("--output"))
        return usage(err);
    const QFileInfo dirInfo(args.at(1));
    if (!dirInfo.isDir()) {
        err << "deckwright-bench-convert: " << args.at(1) << " is not a folder\n";
        return 2;
    }

    // The same setup as the headless command: an in-memory store holding the
    // output folder and its bookmark, and a package path with links resolved.
    const QString outputFolder = QDir::cleanPath(dirInfo.absoluteFilePath());
    const std::optional<QByteArray> bookmark = FolderBookmark::platform().create(QUrl::fromLocalFile(outputFolder));
    if (!bookmark) {
        err << "deckwright-bench-convert: the output folder cannot be used\n";
        return 2;
    }
    SettingsStore::standard().useMemory({
        {SettingKey::outputPath, FileUrl::absoluteString(outputFolder)},
        {SettingKey::bookmarkData, *bookmark},
    });
    const QFileInfo packageInfo(args.at(2));
    const QString packagePath = packageInfo.exists() ? packageInfo.canonicalFilePath() : packageInfo.absoluteFilePath();

    Converter converter(packagePath);
    NotificationCenter &center = NotificationCenter::defaultCenter();
    QElapsedTimer clock;
    std::vector<qint64> marks; // nanoseconds at each event
    QString outcome = QStringLiteral("none");
    auto mark = [&](const Notification &) { marks.push_back(clock.nsecsElapsed()); };
    center.addObserver(&converter, ConversionEvents::progress, mark);
    center.addObserver(&converter, ConversionEvents::finished, [&](const Notification &n) {
        mark(n);
        outcome = QStringLiteral("converted");
    });
    center.addObserver(&converter, ConversionEvents::finishedWithErrorNotKeynote, [&](const Notification &n) {
        mark(n);
        outcome = QStringLiteral("not-keynote");
    });
    center.addObserver(&converter, ConversionEvents::finishedWithErrorNotKeynoteFour, [&](const Notification &n) {
        mark(n);
        outcome = QStringLiteral("not-keynote-4");
    });

    clock.start();
    converter.doConvert(outputFolder);
    const qint64 total = clock.nsecsElapsed();
    center.removeObserver(&converter);

    rusage self{};
    rusage children{};
    getrusage(RUSAGE_SELF, &self);
    getrusage(RUSAGE_CHILDREN, &children);

    out << "outcome=" << outcome << "\n";
    out << "output=" << outputFolder << QLatin1Char('/') << converter.outputPrezName() << "\n";
    out << "wall_s=" << QString::number(double(total) / 1e9, 'f', 3) << "\n";
    // ru_maxrss is in kilobytes on Linux.
    out << "self_maxrss_kb=" << self.ru_maxrss << "\n";
    out << "self_cpu_s=" << QString::number(seconds(self.ru_utime) + seconds(self.ru_stime), 'f', 3) << "\n";
    out << "children_maxrss_kb=" << children.ru_maxrss << "\n";
    out << "children_cpu_s=" << QString::number(seconds(children.ru_utime) + seconds(children.ru_stime), 'f', 3)
        << "\n";
    qint64 previous = 0;
    for (size_t i = 0; i < marks.size() && i < std::size(kStepNames); ++i) {
        out << "step_" << kStepNames[i] << "_s=" << QString::number(double(marks[i] - previous) / 1e9, 'f', 3) << "\n";
        previous = marks[i];
    }
    out.flush();
    return outcome == QLatin1String("converted") ? 0 : 1;
}
