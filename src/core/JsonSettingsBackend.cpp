#include "core/JsonSettingsBackend.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QStandardPaths>

#include <cmath>
#include <cstdio>

#include <sys/stat.h>

namespace {
const QLatin1String kBytesKey("base64");
}

JsonSettingsBackend::JsonSettingsBackend(QString path)
    : m_path(std::move(path))
{
}

QString JsonSettingsBackend::defaultPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
           + QLatin1String("/bramblefox/Deckwright.json");
}

QJsonValue JsonSettingsBackend::encode(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::QString:
        return value.toString();
    case QMetaType::QStringList:
        return QJsonArray::fromStringList(value.toStringList());
    case QMetaType::QByteArray:
        return QJsonObject{{kBytesKey, QString::fromLatin1(value.toByteArray().toBase64())}};
    case QMetaType::LongLong:
    case QMetaType::Int:
        return QJsonValue(value.toLongLong());
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::Double:
        return value.toDouble();
    default:
        return QJsonValue::fromVariant(value);
    }
}

QVariant JsonSettingsBackend::decode(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::String:
        return value.toString();
    case QJsonValue::Double: {
        const double d = value.toDouble();
        const qint64 i = value.toInteger();
        if (std::isfinite(d) && double(i) == d)
            return QVariant::fromValue<qint64>(i);
        return d; // a fraction is kept as what it is: not an integer setting
    }
    case QJsonValue::Array: {
        const QJsonArray array = value.toArray();
        QStringList list;
        for (const QJsonValue &item : array) {
            if (!item.isString())
                return array.toVariantList(); // not a list of strings
            list.append(item.toString());
        }
        return list;
    }
    case QJsonValue::Object: {
        const QJsonObject object = value.toObject();
        if (object.size() == 1 && object.value(kBytesKey).isString())
            return QByteArray::fromBase64(object.value(kBytesKey).toString().toLatin1());
        return object.toVariantMap();
    }
    case QJsonValue::Bool:
        return value.toBool();
    default:
        return {};
    }
}

QByteArray JsonSettingsBackend::fingerprint() const
{
    struct stat st = {};
    if (::stat(QFile::encodeName(m_path).constData(), &st) != 0)
        return {};
    return QByteArray::number(qulonglong(st.st_dev)) + ':' + QByteArray::number(qulonglong(st.st_ino)) + ':'
           + QByteArray::number(qlonglong(st.st_size)) + ':' + QByteArray::number(qlonglong(st.st_mtim.tv_sec)) + '.'
           + QByteArray::number(qlonglong(st.st_mtim.tv_nsec));
}

bool JsonSettingsBackend::changedSinceLoad() const
{
    return fingerprint() != m_fingerprint;
}

QVariantMap JsonSettingsBackend::load()
{
    QVariantMap values;
    m_fingerprint = fingerprint();
    if (QFileInfo(m_path).isDir()) {
        std::fprintf(stderr, "deckwright: the settings file %s is a folder; settings cannot be kept\n",
                     qPrintable(m_path));
        return values;
    }
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly))
        return values; // no settings yet
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(file.readAll(), &error);
    if (!doc.isObject()) {
        // A damaged file must not cost the person their program: keep it aside and start afresh.
        const QString aside = m_path + QLatin1String(".damaged");
        QFile::remove(aside);
        file.close();
        if (QFile::rename(m_path, aside))
            std::fprintf(stderr, "deckwright: the settings file %s could not be read (%s); it was kept as %s\n",
                         qPrintable(m_path), qPrintable(error.errorString()), qPrintable(aside));
        else
            std::fprintf(stderr,
                         "deckwright: the settings file %s could not be read (%s), nor kept aside; "
                         "it is replaced when settings are next saved\n",
                         qPrintable(m_path), qPrintable(error.errorString()));
        m_fingerprint = fingerprint();
        return values;
    }
    const QJsonObject object = doc.object();
    for (auto it = object.begin(); it != object.end(); ++it)
        values.insert(it.key(), decode(it.value()));
    return values;
}

bool JsonSettingsBackend::save(const QVariantMap &values)
{
    QJsonObject object;
    for (auto it = values.begin(); it != values.end(); ++it)
        object.insert(it.key(), encode(it.value()));

    const QFileInfo info(m_path);
    if (!QDir().mkpath(info.absolutePath()))
        return false;
    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(QJsonDocument(object).toJson(QJsonDocument::Indented));
    if (!file.commit())
        return false;
    m_fingerprint = fingerprint();
    return true;
}
