#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>

class QWidget;

// The open dialog, with the properties the program sets on it. Keynote
// presentations are folders named *.key; the dialog picks them as single
// items and never walks into them. Tests answer through the responder.
class OpenPanel
{
public:
    enum Response { CancelResponse = 0, OKResponse = 1 };

    void setPrompt(const QString &prompt) { m_prompt = prompt; }
    void setWorksWhenModal(bool on) { m_worksWhenModal = on; }
    void setAllowsMultipleSelection(bool on) { m_allowsMultipleSelection = on; }
    void setCanChooseDirectories(bool on) { m_canChooseDirectories = on; }
    void setCanChooseFiles(bool on) { m_canChooseFiles = on; }
    void setResolvesAliases(bool on) { m_resolvesAliases = on; }
    void setTitle(const QString &title) { m_title = title; }
    void setMessage(const QString &message) { m_message = message; }
    void setDirectory(const QString &directory) { m_directory = directory; }
    QString directory() const { return m_directory; }
    // "Keynote Presentations (*.key)", say; the first one is in force.
    void setNameFilters(const QStringList &filters) { m_nameFilters = filters; }
    const QStringList &nameFilters() const { return m_nameFilters; }

    const QString &prompt() const { return m_prompt; }
    bool worksWhenModal() const { return m_worksWhenModal; }
    bool allowsMultipleSelection() const { return m_allowsMultipleSelection; }
    bool canChooseDirectories() const { return m_canChooseDirectories; }
    bool canChooseFiles() const { return m_canChooseFiles; }
    bool resolvesAliases() const { return m_resolvesAliases; }
    const QString &title() const { return m_title; }
    const QString &message() const { return m_message; }

    Response runModal(QWidget *parent = nullptr);
    // The chosen items, in the order the dialog gives them; a folder's URL ends in "/".
    const QList<QUrl> &urls() const { return m_urls; }
    QUrl url() const { return m_urls.value(0); }
    void setUrls(const QList<QUrl> &urls) { m_urls = urls; }

    // A URL for a chosen path: links resolved if asked, a folder ending in "/".
    static QUrl urlForPath(const QString &path, bool resolveLinks);

    // Test seam: when set, runModal hands the panel to the responder, which
    // may set the URLs, and returns its answer.
    using Responder = std::function<Response(OpenPanel &)>;
    static void setResponder(Responder responder);

private:
    QString m_prompt;
    bool m_worksWhenModal = true;
    bool m_allowsMultipleSelection = false;
    bool m_canChooseDirectories = false;
    bool m_canChooseFiles = true;
    bool m_resolvesAliases = true;
    QString m_title;
    QString m_message;
    QString m_directory;
    QStringList m_nameFilters;
    QList<QUrl> m_urls;
};
