#pragma once

#include <QFileDialog>
#include <QStringList>

class QFileInfo;

// A file dialog that knows presentation packages: folders named *.key are
// shown and picked as single items (a double-click or Enter chooses one, it
// never opens it), beside flat files, while ordinary folders can still be
// browsed. In folder mode packages can be neither entered nor chosen.
class PackageFileDialog : public QFileDialog
{
    Q_OBJECT

public:
    enum Mode { FileOrPackage, FilesAndPackages, Folders };

    explicit PackageFileDialog(Mode mode, QWidget *parent = nullptr);

    void setResolvesLinks(bool on);
    QStringList chosenPaths() const { return m_chosen; }

    static bool isPackage(const QFileInfo &info);
    static bool isPackage(const QString &path);

public Q_SLOTS:
    void accept() override;

    // The default button's label, whatever is selected.
    void setAcceptLabel(const QString &label);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void showEvent(QShowEvent *event) override;

private Q_SLOTS:
    // QFileDialog calls its default button "Open" whenever a folder is
    // selected, and every package is one: the label set for it stays.
    void keepAcceptLabel();

private:
    QString m_acceptLabel;
    void onDirectoryEntered(const QString &directory);
    void forgetSelection();
    bool choose(const QStringList &paths);

    Mode m_mode;
    QStringList m_chosen;
};
