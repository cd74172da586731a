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
};
