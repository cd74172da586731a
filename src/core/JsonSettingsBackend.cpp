#include "core/JsonSettingsBackend.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QStandardPaths>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
const QLatin1String kBytesKey("base64");

// Far more than the program ever writes (a batch's refused names are the
// most of it). A larger file is none of ours, and reading it would cost the
// start several times its size in memory.
constexpr qint64 kMaxFileBytes = 8 * 1024 * 1024;

QString kindOf(mode_t mode)
{
    if (S_ISFIFO(mode))
        return QStringLiteral("it is a FIFO");
    if (S_ISSOCK(mode))
        return QStringLiteral("it is a socket");
    if (S_ISCHR(mode) || S_ISBLK(mode))
        return QStringLiteral("it is a device");
    return QStringLiteral("it is not a regular file");
}

// The file's bytes, read only from a regular file of a sane size; opening
// never waits (a FIFO would wait for a writer for ever). Otherwise why not,
// left empty when there is no file.
bool readSettingsFile(const QString &path, QByteArray *bytes, QString *why)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat st = {};
    if (::stat(name.constData(), &st) != 0) {
        if (errno != ENOENT)
            *why = QString::fromLocal8Bit(std::strerror(errno));
        return false;
    }
    const int fd = S_ISREG(st.st_mode) ? ::open(name.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC) : -1;
    if (S_ISREG(st.st_mode) && fd < 0) {
        *why = QString::fromLocal8Bit(std::strerror(errno));
        return false;
    }
    // Checked again on what was opened: the name may have changed hands meanwhile.
    const QString tooLarge = QStringLiteral("it is larger than %1 MB").arg(kMaxFileBytes / (1024 * 1024));
    if (fd < 0 || ::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        *why = kindOf(st.st_mode);
    } else if (st.st_size > kMaxFileBytes) {
        *why = tooLarge;
    } else {
        bytes->reserve(st.st_size);
        char chunk[65536];
        for (;;) {
            const ssize_t n = ::read(fd, chunk, sizeof chunk);
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0)
                *why = QString::fromLocal8Bit(std::strerror(errno));
            if (n <= 0)
                break;
            bytes->append(chunk, n);
            if (bytes->size() > kMaxFileBytes) { // it grew meanwhile
                *why = tooLarge;
                break;
            }
        }
    }
    if (fd >= 0)
        ::close(fd);
    return why->isEmpty();
}
} // namespace

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
    case QJsonValue::Null:
        return QVariant::fromValue(nullptr); // a kind of its own, named as such when it is read
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
    QByteArray bytes;
    QString why;
    QJsonParseError error{};
    QJsonDocument doc;
    if (readSettingsFile(m_path, &bytes, &why)) {
        doc = QJsonDocument::fromJson(bytes, &error);
        if (!doc.isObject())
            why = error.errorString();
    } else if (why.isEmpty()) {
        return values; // no settings yet
    }
    if (!why.isEmpty()) {
        // A damaged file must not cost the person their program: keep it aside and start afresh.
        const QByteArray aside = QFile::encodeName(m_path + QLatin1String(".damaged"));
        ::unlink(aside.constData());
        if (::rename(QFile::encodeName(m_path).constData(), aside.constData()) == 0)
            std::fprintf(stderr, "deckwright: the settings file %s could not be read (%s); it was kept as %s\n",
                         qPrintable(m_path), qPrintable(why), aside.constData());
        else
            std::fprintf(stderr,
                         "deckwright: the settings file %s could not be read (%s), nor kept aside; "
                         "it is replaced when settings are next saved\n",
                         qPrintable(m_path), qPrintable(why));
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
