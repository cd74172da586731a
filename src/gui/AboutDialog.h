#pragma once

#include <QDialog>

class HyperlinkTextField;

// Who made Deckwright, its version, and a link to the maker's website.
class AboutDialog : public QDialog
{
    Q_OBJECT

public:
    explicit AboutDialog(QWidget *parent = nullptr);

    HyperlinkTextField *websiteLink() const { return m_websiteLink; }

private:
    HyperlinkTextField *m_websiteLink = nullptr;
};
