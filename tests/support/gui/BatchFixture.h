#pragma once

#include "core/SettingsStore.h"
#include "gui/OpenPanel.h"
#include "support/gui/AlertRecorder.h"
#include "support/gui/RecordingDesktopServices.h"

#include <QDir>
#include <QTemporaryDir>
#include <QVariantMap>

#include <deque>

// The stage for the window tests that convert, one per test class: packages
// to convert, a home (documents in HOME/Documents) and a scratch folder of
// this process's own, fatal conditions thrown, and nothing that waits for a
// person: alerts take their first button, open dialogs take the queued answers
// (a cancel when none is left), the desktop is recorded. All three are kept
// for the test to look at (alerts, panels, desktop).
class BatchFixture : public AlertRecorder
{
public:
    // How long a test waits for a batch to show its effects: only a hang reaches it, and a
    // failing wait (QtTest retries once more) still ends before the test function is cut off.
    static constexpr int patience = 60000;

    // The input folder holds "My Talk.key", "Plain.key" and "Three.v2.key"
    // (Keynote '08), "Newer.key" (Keynote '09), "Not Keynote.key" (no
    // document inside) and "notes.txt".
    BatchFixture();
    ~BatchFixture() { OpenPanel::setResponder(nullptr); }

    // Before each test: forgets what the last one recorded, and makes a fresh
    // output folder (with blanks in its name) and a store holding it and extra.
    void reset(const QVariantMap &extra = {});

    // A path in the input folder; an absolute one stays as it is.
    QString in(const QString &name) const { return QDir(work(QStringLiteral("in"))).filePath(name); }
    QString work(const QString &name) const { return m_work.filePath(name); }
    // The next open dialog answers with these paths (see in()) selected.
    void choose(const QStringList &names) { answers.push_back(answer(names, OpenPanel::OKResponse)); }
    // Cancelled, with the folder selected if one is given.
    void cancel(const QString &holding = {})
    {
        answers.push_back(answer(holding.isEmpty() ? QStringList() : QStringList{holding}, OpenPanel::CancelResponse));
    }
    // One batch of these packages through a fresh application, as if chosen
    // in its open dialog; later dialogs take the answers queued before.
    void runBatch(const QStringList &names);

    QStringList outputs() const { return QDir(out).entryList(QDir::Files | QDir::Hidden); }
    // The names the batch recorded as rejected.
    QStringList rejected() const { return SettingsStore::standard().stringList(SettingKey::errorPrezzes, {}); }

    QList<OpenPanel> panels;
    std::deque<OpenPanel::Responder> answers;
    RecordingDesktopServices desktop;
    QString out;

private:
    OpenPanel::Responder answer(const QStringList &names, OpenPanel::Response response) const;

    QTemporaryDir m_work;
};
