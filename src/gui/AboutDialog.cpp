#include "gui/AboutDialog.h"

#include "gui/BuildConfig.h"
#include "widgets/HyperlinkTextField.h"

#include <QDialogButtonBox>
#include <QIcon>
#include <QLabel>
#include <QUrl>
#include <QVBoxLayout>

AboutDialog::AboutDialog(QWidget *parent)
    : QDialog(parent)
{
    setWindowTitle(QStringLiteral("About Deckwright"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(28, 24, 28, 18);
    layout->setSpacing(8);

    auto *icon = new QLabel(this);
    icon->setPixmap(QIcon(QStringLiteral(":/icons/hicolor/128x128/apps/deckwright.png")).pixmap(96, 96));
    icon->setAlignment(Qt::AlignCenter);
    layout->addWidget(icon);

    auto *name = new QLabel(QStringLiteral("Deckwright"), this);
    QFont nameFont = name->font();
    nameFont.setPointSizeF(nameFont.pointSizeF() * 1.5);
    nameFont.setBold(true);
    name->setFont(nameFont);
    name->setAlignment(Qt::AlignCenter);
    layout->addWidget(name);

    auto *version = new QLabel(QStringLiteral("Version %1").arg(QString::fromUtf8(BuildConfig::version)), this);
    version->setAlignment(Qt::AlignCenter);
    layout->addWidget(version);

    auto *blurb
        = new QLabel(QStringLiteral("Upgrades Keynote '08 presentations to the Keynote '09 file format."), this);
    blurb->setAlignment(Qt::AlignCenter);
    blurb->setWordWrap(true);
    layout->addWidget(blurb);

    const QUrl website(QString::fromUtf8(BuildConfig::websiteUrl));
    m_websiteLink = new HyperlinkTextField(QStringLiteral("Made by Bramblefox · <a href=\"%1\">%2</a>")
                                               .arg(website.toString(QUrl::FullyEncoded), website.host()),
                                           this);
    m_websiteLink->setAlignment(Qt::AlignCenter);
    layout->addWidget(m_websiteLink);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addSpacing(6);
    layout->addWidget(buttons);
    setFixedSize(sizeHint().expandedTo(QSize(360, 0)));
}
