#include "widgets/PackageFileDialog.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QDialogButtonBox>
#include <QDir>
#include <QEvent>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QFileSystemModel>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPushButton>
#include <QSortFilterProxyModel>
#include <QTreeView>

namespace {
// Shows packages as documents rather than folders.
class PackageIconProvider : public QFileIconProvider
{
public:
    QIcon icon(const QFileInfo &info) const override
    {
        if (PackageFileDialog::isPackage(info)) {
            static const QIcon package = [] {
                QIcon icon = QIcon::fromTheme(QStringLiteral("x-office-presentation"));
                if (icon.isNull())
                    icon = QIcon(QStringLiteral(":/KeynoteIcon.png"));
                return icon;
            }();
            if (!package.isNull())
                return package;
            return QFileIconProvider::icon(QFileIconProvider::File);
        }
        return QFileIconProvider::icon(info);
    }
    QString type(const QFileInfo &info) const override
    {
        if (PackageFileDialog::isPackage(info))
            return QStringLiteral("Keynote Presentation");
        return QFileIconProvider::type(info);
    }
};
// QFileDialog does not own the icon provider it is given, and its file model
// asks the provider for icons as long as the model lives. So the provider
// belongs to a child made after the model, which the dialog deletes after it.
class IconProviderOwner : public QObject
{
public:
    using QObject::QObject;
    PackageIconProvider provider;
};
// In folder mode packages are documents, not places to save into: not shown.
class HidePackagesProxy : public QSortFilterProxyModel
{
public:
    using QSortFilterProxyModel::QSortFilterProxyModel;

protected:
    bool filterAcceptsRow(int row, const QModelIndex &parent) const override
    {
        const auto *files = qobject_cast<const QFileSystemModel *>(sourceModel());
        return !files || !PackageFileDialog::isPackage(files->fileInfo(files->index(row, 0, parent)));
    }
};
} // namespace

PackageFileDialog::PackageFileDialog(Mode mode, QWidget *parent)
    : QFileDialog(parent)
    , m_mode(mode)
{
    setWindowFlags(Qt::Widget);
    setOption(QFileDialog::DontUseNativeDialog, true);
    setIconProvider(&(new IconProviderOwner(this))->provider);
    switch (mode) {
    case FileOrPackage:
        setFileMode(QFileDialog::ExistingFile);
        break;
    case FilesAndPackages:
        setFileMode(QFileDialog::ExistingFiles);
        break;
    case Folders:
        setFileMode(QFileDialog::Directory);
        setOption(QFileDialog::ShowDirsOnly, true);
        setProxyModel(new HidePackagesProxy(this));
        break;
    }
    connect(this, &QFileDialog::directoryEntered, this, &PackageFileDialog::onDirectoryEntered);
    const auto views = findChildren<QAbstractItemView *>();
    for (QAbstractItemView *view : views) {
        if (view->objectName() == QLatin1String("listView") || view->objectName() == QLatin1String("treeView")) {
            view->viewport()->installEventFilter(this);
            view->installEventFilter(this);
        }
        if (auto *tree = qobject_cast<QTreeView *>(view)) {
            // The name takes the room the size, type and date leave, each of
            // those as wide as it reads, whatever the window's size or scale.
            QHeaderView *header = tree->header();
            header->setStretchLastSection(false);
            header->setSectionResizeMode(QHeaderView::ResizeToContents);
            header->setSectionResizeMode(0, QHeaderView::Stretch);
        }
    }
}

void PackageFileDialog::setResolvesLinks(bool on)
{
    setOption(QFileDialog::DontResolveSymlinks, !on);
}

bool PackageFileDialog::isPackage(const QFileInfo &info)
{
    return info.isDir() && info.suffix().compare(QLatin1String("key"), Qt::CaseInsensitive) == 0;
}

bool PackageFileDialog::isPackage(const QString &path)
{
    return isPackage(QFileInfo(path));
}

bool PackageFileDialog::choose(const QStringList &paths)
{
    if (paths.isEmpty())
        return false;
    for (const QString &path : paths) {
        const QFileInfo info(path);
        const bool ok = m_mode == Folders ? info.isDir() && !isPackage(info)
                                          : info.exists() && (!info.isDir() || isPackage(info));
        if (!ok)
            return false;
    }
    m_chosen = paths;
    QDialog::accept();
    return true;
}

void PackageFileDialog::accept()
{
    const QStringList selected = selectedFiles();
    if (choose(selected))
        return;
    // An ordinary folder (or a typed path) is browsed as usual; a package in folder mode is not.
    if (m_mode == Folders && selected.size() == 1 && isPackage(selected.first()))
        return QApplication::beep();
    const QString before = directory().absolutePath();
    QFileDialog::accept();
    if (directory().absolutePath() != before)
        forgetSelection();
}

void PackageFileDialog::forgetSelection()
{
    // A folder reached by its typed path stays selected in its parent, out of
    // sight, and every later choice would include it; what is picked in the
    // folder now shown is all that counts.
    for (const QAbstractItemView *view : findChildren<QAbstractItemView *>()) {
        if (view->selectionModel())
            view->selectionModel()->clear();
    }
}

void PackageFileDialog::onDirectoryEntered(const QString &directory)
{
    // However a package was opened (single-click activation, a typed path),
    // step back out: in file modes that opening means choosing it.
    if (!isPackage(directory))
        return forgetSelection();
    const QFileInfo info(directory);
    setDirectory(info.absolutePath());
    if (m_mode != Folders) {
        selectFile(info.absoluteFilePath());
        choose({info.absoluteFilePath()});
    }
}

bool PackageFileDialog::eventFilter(QObject *watched, QEvent *event)
{
    QAbstractItemView *view = qobject_cast<QAbstractItemView *>(watched);
    if (!view && watched->parent())
        view = qobject_cast<QAbstractItemView *>(watched->parent());
    if (view && m_mode != Folders) {
        QModelIndex index;
        if (event->type() == QEvent::MouseButtonDblClick)
            index = view->indexAt(static_cast<QMouseEvent *>(event)->position().toPoint());
        else if (event->type() == QEvent::KeyPress) {
            const int key = static_cast<QKeyEvent *>(event)->key();
            if (key == Qt::Key_Return || key == Qt::Key_Enter)
                index = view->currentIndex();
        }
        if (index.isValid()) {
            const QString path = index.data(QFileSystemModel::FilePathRole).toString();
            if (isPackage(path)) {
                // With several items selected, Enter takes them all; a double-click takes the one clicked.
                const QStringList selected = selectedFiles();
                if (event->type() == QEvent::KeyPress && selected.contains(path) && choose(selected))
                    return true;
                choose({path});
                return true;
            }
        }
    }
    return QFileDialog::eventFilter(watched, event);
}

void PackageFileDialog::showEvent(QShowEvent *event)
{
    QFileDialog::showEvent(event);
    // Queued, so that it comes after every relabelling the dialog does itself,
    // including the one once a folder has been read.
    const auto queued = Qt::ConnectionType(Qt::QueuedConnection | Qt::UniqueConnection);
    for (const QAbstractItemView *view : findChildren<QAbstractItemView *>()) {
        if (view->selectionModel())
            connect(view->selectionModel(), &QItemSelectionModel::selectionChanged, this,
                    &PackageFileDialog::keepAcceptLabel, queued);
    }
    if (const QLineEdit *name = findChild<QLineEdit *>(QStringLiteral("fileNameEdit")))
        connect(name, &QLineEdit::textChanged, this, &PackageFileDialog::keepAcceptLabel, queued);
    if (const auto *files = findChild<QFileSystemModel *>())
        connect(files, &QFileSystemModel::directoryLoaded, this, &PackageFileDialog::keepAcceptLabel, queued);
    keepAcceptLabel();
}

void PackageFileDialog::keepAcceptLabel()
{
    const auto *buttons = findChild<QDialogButtonBox *>(QStringLiteral("buttonBox"));
    if (!buttons)
        return;
    QPushButton *accept = buttons->button(QDialogButtonBox::Open);
    if (!accept)
        accept = buttons->button(QDialogButtonBox::Save);
    if (accept && !m_acceptLabel.isEmpty() && accept->text() != m_acceptLabel)
        accept->setText(m_acceptLabel);
}

void PackageFileDialog::setAcceptLabel(const QString &label)
{
    m_acceptLabel = label;
    setLabelText(QFileDialog::Accept, label);
}
