#pragma once

#include <QString>
#include <QVariantMap>

// Where the settings store keeps its values between runs. Values are
// QString, QStringList, QByteArray or qint64 and must come back as the same kind.
class SettingsBackend
{
public:
    virtual ~SettingsBackend();
    virtual QVariantMap load() = 0;
    virtual bool save(const QVariantMap &values) = 0;
    virtual QString location() const = 0;
    // Whether the values kept have changed since this process last loaded or
    // saved them (another session, or a person with an editor).
    virtual bool changedSinceLoad() const { return false; }
};
