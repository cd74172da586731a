#include "gui/OutputFolderChooser.h"

#include "core/Fatal.h"
#include "core/FileUrl.h"
#include "core/FolderBookmark.h"
#include "core/Logging.h"
#include "core/SettingsStore.h"
#include "gui/Alert.h"
#include "gui/OpenPanel.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QtGlobal>

bool OutputFolderChooser::run(Origin origin, QWidget *parent)
{
    DW_LOG(QLatin1String("showOutputPathDialog"));
    OpenPanel panel;
    panel.setPrompt(QStringLiteral("Use"));
    panel.setWorksWhenModal(true);
    panel.setAllowsMultipleSelection(false);
    panel.setCanChooseDirectories(true);
    panel.setCanChooseFiles(false);
    panel.setResolvesAliases(true);
    panel.setTitle(QStringLiteral("Choose Folder To Save To"));
    panel.setMessage(QStringLiteral("Locate Folder"));
    panel.setDirectory(startingFolder());
    const OpenPanel::Response response = panel.runModal(parent);

    if (origin == Batch) {
        // A batch goes by whether the panel holds a folder, not by its answer.
        if (panel.urls().isEmpty())
            return false;
    } else {
        if (response != OpenPanel::OKResponse)
            return false;
        qInfo("OK selected");
    }

    const QUrl url = panel.url();
    const QString absoluteString = url.toString(QUrl::FullyEncoded);
    DW_LOG((origin == Batch ? QLatin1String("chosenfile ") : QLatin1String("chosensavefile ")) + absoluteString);
    DW_LOG(QLatin1String("outputPath : ") + absoluteString);
    SettingsStore &settings = SettingsStore::standard();
    settings.setObject(SettingKey::outputPath, absoluteString);
    const std::optional<QByteArray> bookmark = FolderBookmark::platform().create(url);
    if (!bookmark)
        Fatal::fail(QStringLiteral("the output folder %1 cannot be kept: no bookmark could be made for it")
                        .arg(url.toLocalFile()));
    settings.setObject(SettingKey::bookmarkData, *bookmark);
    DW_LOG(QLatin1String("saved bookmarkdata for later"));
    settings.synchronize();
    return true;
}

QString OutputFolderChooser::startingFolder()
{
    const std::optional<QString> stored
        = FileUrl::toPath(SettingsStore::standard().string(SettingKey::outputPath, QString()));
    // The current output folder itself, so that "Use" straight away keeps it.
    if (stored && QFileInfo(*stored).isDir())
        return QFileInfo(*stored).absoluteFilePath();
    // A lost folder: the nearest folder above it that is still where it was.
    // One reached through a link is passed over, wherever on the path the link
    // is: it may lead anywhere now.
    for (QString folder = stored ? QDir::cleanPath(*stored) : QString(); QDir::isAbsolutePath(folder);) {
        const qsizetype slash = folder.lastIndexOf(QLatin1Char('/'));
        if (slash <= 0)
            break; // the root is no suggestion
        folder.truncate(slash);
        const QFileInfo info(folder);
        if (info.isDir() && info.canonicalFilePath() == folder)
            return folder;
    }
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    return QFileInfo(documents).isDir() ? documents : QDir::homePath();
}

OutputFolderChooser::Current OutputFolderChooser::current()
{
    SettingsStore &settings = SettingsStore::standard();
    Current folder;
    if (const std::optional<QString> path = FileUrl::toPath(settings.string(SettingKey::outputPath, QString())))
        folder.path = *path;
    folder.stored = settings.contains(SettingKey::bookmarkData);
    if (folder.stored) {
        // Deleted, renamed away or replaced by a file: the bookmark leads nowhere useful.
        const std::optional<QUrl> url
            = FolderBookmark::platform().resolve(settings.requiredData(SettingKey::bookmarkData));
        folder.reachable = url && QFileInfo(url->toLocalFile()).isDir();
    }
    return folder;
}

bool OutputFolderChooser::readyForBatch(QWidget *parent)
{
    const Current folder = current();
    if (folder.reachable && !folder.path.isEmpty())
        return true;
    if (folder.stored && !folder.reachable)
        alertGone(folder.path, parent);
    else
        DW_LOG(QLatin1String("need a save location"));
    return false;
}

void OutputFolderChooser::alertGone(const QString &path, QWidget *parent)
{
    const QString choose = QStringLiteral("Choose the folder to save converted presentations to.");
    if (path.isEmpty()) {
        Alert::show(Alert::Warning, QStringLiteral("The output folder is no longer there."), choose, parent);
        return;
    }
    const QString name = QFileInfo(path).fileName();
    Alert::show(Alert::Warning,
                QStringLiteral("The output folder \"%1\" is no longer there.").arg(name.isEmpty() ? path : name),
                QStringLiteral("It was at %1. ").arg(path) + choose, parent);
}
