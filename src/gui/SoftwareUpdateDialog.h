#pragma once

#include "gui/SoftwareUpdater.h"

#include <QObject>

class QWidget;

// The person's side of the updater: an offer to download a newer version, and,
// for a check the person asked for, "up to date" or why the check failed. An
// automatic check speaks up only for an update.
class SoftwareUpdateDialog : public QObject
{
    Q_OBJECT

public:
    // Shows the answers of updater's checks; a child of updater unless parent says otherwise.
    explicit SoftwareUpdateDialog(SoftwareUpdater *updater, QObject *parent = nullptr);

private:
    void show(const SoftwareUpdater::Answer &answer);
    void showUpdateAvailable(const SoftwareUpdater::FeedItem &item, QWidget *parent);
    void showUpToDate(QWidget *parent);
    void showError(const QString &problem, QWidget *parent);

    SoftwareUpdater *m_updater;
};
