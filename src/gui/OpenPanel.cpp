#include "gui/OpenPanel.h"

#include "gui/Alert.h"
#include "widgets/PackageFileDialog.h"
#include "widgets/ScreenFit.h"

#include <QCursor>
#include <QDialog>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QLabel>
#include <QStandardPaths>
#include <QStyle>
#include <QVBoxLayout>

namespace {
OpenPanel::Responder &responder()
{
    static OpenPanel::Responder r;
    return r;
}
} // namespace

void OpenPanel::setResponder(Responder r)
{
    responder() = std::move(r);
}

QUrl OpenPanel::urlForPath(const QString &path, bool resolveLinks)
{
    const QFileInfo info(path);
    QString chosen
        = resolveLinks && info.exists() ? info.canonicalFilePath() : QDir::cleanPath(info.absoluteFilePath());
    if (QFileInfo(chosen).isDir() && !chosen.endsWith(QLatin1Char('/')))
        chosen += QLatin1Char('/');
    return QUrl::fromLocalFile(chosen);
}

OpenPanel::Response OpenPanel::runModal(QWidget *parent)
{
    m_urls.clear();
    if (responder())
        return responder()(*this);
    if (!Alert::hasScreen()) {
        qWarning("Open panel without a screen: %s", qPrintable(m_title));
        return CancelResponse;
    }

    QDialog dialog(parent);
    dialog.setWindowTitle(m_title);
    auto *layout = new QVBoxLayout(&dialog);
    if (!m_message.isEmpty()) {
        auto *message = new QLabel(m_message, &dialog);
        QFont font = message->font();
        font.setBold(true);
        message->setFont(font);
        layout->addWidget(message);
    }
    PackageFileDialog::Mode mode = m_canChooseDirectories && !m_canChooseFiles ? PackageFileDialog::Folders
                                   : m_allowsMultipleSelection                 ? PackageFileDialog::FilesAndPackages
                                                                               : PackageFileDialog::FileOrPackage;
    auto *files = new PackageFileDialog(mode, &dialog);
    files->setResolvesLinks(m_resolvesAliases);
    files->setAcceptLabel(m_prompt);
    if (!m_nameFilters.isEmpty())
        files->setNameFilters(m_nameFilters);
    files->setDirectory(m_directory.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation)
                                              : m_directory);
    layout->addWidget(files);
    QObject::connect(files, &QFileDialog::finished, &dialog, &QDialog::done);
    // Roomy where there is room, but never past the screen it opens on: on a
    // scaled screen the buttons would be out of reach.
    const QRect around = parent ? parent->frameGeometry() : QRect(QCursor::pos(), QSize(1, 1));
    dialog.resize(ScreenFit::fitted(QRect(around.topLeft(), QSize(760, 480)), ScreenFit::availableAround(around),
                                    dialog.style()->pixelMetric(QStyle::PM_TitleBarHeight, nullptr, &dialog))
                      .size());

    if (dialog.exec() != QDialog::Accepted)
        return CancelResponse;
    for (const QString &path : files->chosenPaths())
        m_urls.append(urlForPath(path, m_resolvesAliases));
    return m_urls.isEmpty() ? CancelResponse : OKResponse;
}
