#pragma once

#include <QByteArray>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>

#include <memory>

class SettingsBackend;

// The one process-wide, per-user key/value store. Values are strings, lists of
// strings, byte blocks or signed integers and keep their kind; booleans are the
// strings "true" and "false". There is no table of defaults: each reader
// supplies its own fallback, and a present value of the wrong kind is fatal.
class SettingsStore
{
public:
    static SettingsStore &standard();

    // The store's four operations.
    QVariant object(const QString &key) const;                 // invalid when absent
    void setObject(const QString &key, const QVariant &value); // string, list of strings, bytes
    void setInteger(const QString &key, qint64 value);
    bool synchronize();

    // Two-step typed reads: a presence test, then the value as the expected kind.
    bool contains(const QString &key) const;
    QString string(const QString &key, const QString &fallback) const;
    QString requiredString(const QString &key) const;
    qint64 integer(const QString &key, qint64 fallback) const;
    QStringList stringList(const QString &key, const QStringList &fallback) const;
    QByteArray requiredData(const QString &key) const;
    // The text of an on/off setting: whenAbsent when absent (the older
    // settings are on then), a stored number's own text (never "true"); fatal
    // for a list, a byte block or anything else.
    QString switchText(const QString &key, const QString &whenAbsent = QStringLiteral("true")) const;
    // On exactly when that text is "true".
    bool isOn(const QString &key, bool whenAbsent = true) const;

    // Scopes: a file of its own (tests, other profiles), or memory only (tests, headless use).
    void useBackend(std::unique_ptr<SettingsBackend> backend);
    void useFile(const QString &path);
    void useMemory(const QVariantMap &values = {});
    QString location() const;

    ~SettingsStore();

private:
    SettingsStore();
    void ensureLoaded() const;
    void requireKey(const QString &key) const; // a missing key is fatal

    mutable bool m_loaded = false;
    mutable QVariantMap m_values;
    std::unique_ptr<SettingsBackend> m_backend;
    bool m_dirty = false;
    QSet<QString> m_ownChanges; // keys this process set since it last saved
};

// The keys the program keeps.
namespace SettingKey {
inline const QString prezPath = QStringLiteral("prezPath");
inline const QString errorPrezzes = QStringLiteral("errorPrezzes");
inline const QString outputPath = QStringLiteral("outputPath");
inline const QString bookmarkData = QStringLiteral("bookmarkData");
inline const QString completedAction = QStringLiteral("completedAction");
inline const QString playSound = QStringLiteral("playSound");
inline const QString stopForErrors = QStringLiteral("stopForErrors");
inline const QString checkUpdates = QStringLiteral("checkUpdates");
inline const QString updateInterval = QStringLiteral("updateInterval");
// Where the open dialog starts: the folder of the last batch's first file, as a URL text.
inline const QString lastBatchFolder = QStringLiteral("lastBatchFolder");
// How the converted package is laid out in its zip archive: "reference" (absent
// too) or "root"; see Converter::ArchiveLayout.
inline const QString archiveLayout = QStringLiteral("archiveLayout");
// A dropped or named folder's packages keep their folders below the output
// folder; "true" or "false", off when absent.
inline const QString keepFolders = QStringLiteral("keepFolders");
// A package whose name is taken in its output folder is taken as converted
// before and left alone; "true" or "false", off when absent.
inline const QString skipExisting = QStringLiteral("skipExisting");
// "true" once the person was told how to bring back the main window where no
// tray icon can (closing it leaves the program running).
inline const QString toldHowToReopen = QStringLiteral("toldHowToReopen");
} // namespace SettingKey
