#include "core/SettingsStore.h"

#include "core/Fatal.h"
#include "core/JsonSettingsBackend.h"
#include "core/SettingsBackend.h"

namespace {
QString kindName(int typeId, const char *typeName = nullptr)
{
    switch (typeId) {
    case QMetaType::QString:
        return QStringLiteral("a string");
    case QMetaType::QStringList:
        return QStringLiteral("a list of strings");
    case QMetaType::QByteArray:
        return QStringLiteral("a byte block");
    case QMetaType::LongLong:
        return QStringLiteral("an integer");
    case QMetaType::Nullptr:
        return QStringLiteral("null");
    default:
        return QStringLiteral("a value of type ") + QString::fromLatin1(typeName);
    }
}

QString kindName(const QVariant &value)
{
    return kindName(value.typeId(), value.typeName());
}

// A setting of another kind than its key calls for is a damaged file, not
// something to guess around.
QVariant ofKind(const QString &key, const QVariant &value, int expected)
{
    const int type = value.typeId() == QMetaType::Int ? QMetaType::LongLong : value.typeId();
    if (type != expected)
        Fatal::fail(QStringLiteral("the setting %1 holds %2, not %3").arg(key, kindName(value), kindName(expected)));
    return value;
}
} // namespace

SettingsStore::SettingsStore()
    : m_backend(new JsonSettingsBackend(JsonSettingsBackend::defaultPath()))
{
}

SettingsStore::~SettingsStore()
{
    // prezPath is written without a synchronise; keep it for the next run all the same.
    if (m_dirty)
        synchronize();
}

SettingsStore &SettingsStore::standard()
{
    static SettingsStore store;
    return store;
}

void SettingsStore::ensureLoaded() const
{
    if (m_loaded)
        return;
    m_loaded = true;
    if (m_backend)
        m_values = m_backend->load();
}

QVariant SettingsStore::object(const QString &key) const
{
    ensureLoaded();
    return m_values.value(key);
}

void SettingsStore::setObject(const QString &key, const QVariant &value)
{
    const int type = value.typeId();
    if (type != QMetaType::QString && type != QMetaType::QStringList && type != QMetaType::QByteArray)
        Fatal::fail(QStringLiteral("the setting %1 cannot hold %2").arg(key, kindName(value)));
    ensureLoaded();
    m_values.insert(key, value);
    m_ownChanges.insert(key);
    m_dirty = true;
}

void SettingsStore::setInteger(const QString &key, qint64 value)
{
    ensureLoaded();
    m_values.insert(key, QVariant::fromValue<qint64>(value));
    m_ownChanges.insert(key);
    m_dirty = true;
}

bool SettingsStore::synchronize()
{
    ensureLoaded();
    if (!m_backend)
        return true;
    // Changed elsewhere meanwhile (another session, an editor): this
    // process's own changes go on top of what is there now, not instead of it.
    if (m_backend->changedSinceLoad()) {
        QVariantMap current = m_backend->load();
        for (const QString &key : std::as_const(m_ownChanges))
            current.insert(key, m_values.value(key));
        m_values = current;
    }
    const bool ok = m_backend->save(m_values);
    if (ok) {
        m_dirty = false;
        m_ownChanges.clear();
    }
    return ok;
}

bool SettingsStore::contains(const QString &key) const
{
    ensureLoaded();
    return m_values.contains(key);
}

QString SettingsStore::string(const QString &key, const QString &fallback) const
{
    return contains(key) ? ofKind(key, object(key), QMetaType::QString).toString() : fallback;
}

QString SettingsStore::requiredString(const QString &key) const
{
    requireKey(key);
    return string(key, QString());
}

qint64 SettingsStore::integer(const QString &key, qint64 fallback) const
{
    return contains(key) ? ofKind(key, object(key), QMetaType::LongLong).toLongLong() : fallback;
}

QStringList SettingsStore::stringList(const QString &key, const QStringList &fallback) const
{
    return contains(key) ? ofKind(key, object(key), QMetaType::QStringList).toStringList() : fallback;
}

QByteArray SettingsStore::requiredData(const QString &key) const
{
    requireKey(key);
    return ofKind(key, object(key), QMetaType::QByteArray).toByteArray();
}

void SettingsStore::requireKey(const QString &key) const
{
    if (!contains(key))
        Fatal::fail(QStringLiteral("the setting %1 is missing").arg(key));
}

QString SettingsStore::switchText(const QString &key, const QString &whenAbsent) const
{
    if (!contains(key))
        return whenAbsent;
    // A number reads as the platform's string reader gives it ("1" for 1,
    // for a truth too): never "true", so off. Anything else not a string is a damaged file.
    const QVariant value = object(key);
    switch (value.typeId()) {
    case QMetaType::LongLong:
    case QMetaType::Int:
        return QString::number(value.toLongLong());
    case QMetaType::Double:
        return QString::number(value.toDouble());
    case QMetaType::Bool:
        return QString::number(int(value.toBool()));
    default:
        return ofKind(key, value, QMetaType::QString).toString();
    }
}

bool SettingsStore::isOn(const QString &key, bool whenAbsent) const
{
    return switchText(key, whenAbsent ? QStringLiteral("true") : QStringLiteral("false")) == QLatin1String("true");
}

void SettingsStore::useBackend(std::unique_ptr<SettingsBackend> backend)
{
    m_backend = std::move(backend);
    m_values.clear();
    m_ownChanges.clear();
    m_loaded = false;
    m_dirty = false;
}

void SettingsStore::useFile(const QString &path)
{
    useBackend(std::make_unique<JsonSettingsBackend>(path));
}

void SettingsStore::useMemory(const QVariantMap &values)
{
    useBackend(nullptr);
    m_values = values;
    m_loaded = true;
}

QString SettingsStore::location() const
{
    return m_backend ? m_backend->location() : QStringLiteral("(memory)");
}
