#pragma once

#include "core/SettingsBackend.h"

#include <QJsonValue>

// Keeps the settings in a JSON object whose encoding keeps every value's kind:
// a string is a JSON string, an integer a JSON number, a list of strings an
// array, and a byte block an object {"base64": "..."}.
class JsonSettingsBackend : public SettingsBackend
{
public:
    explicit JsonSettingsBackend(QString path);

    QVariantMap load() override;
    bool save(const QVariantMap &values) override;
    QString location() const override { return m_path; }
    bool changedSinceLoad() const override;

    // $XDG_CONFIG_HOME/bramblefox/Deckwright.json (~/.config when unset).
    static QString defaultPath();

    static QJsonValue encode(const QVariant &value);
    static QVariant decode(const QJsonValue &value);

private:
    // Which file, of what size, written when: enough to notice a change made elsewhere.
    QByteArray fingerprint() const;

    QString m_path;
    QByteArray m_fingerprint;
};
