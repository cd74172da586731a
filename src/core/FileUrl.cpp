#include "core/FileUrl.h"

#include <QDir>
#include <QFileInfo>
#include <QStringDecoder>
#include <QUrl>

#include <cctype>

QString FileUrl::absoluteString(const QString &localPath)
{
    const QFileInfo info(localPath);
    QString path = QDir::cleanPath(info.absoluteFilePath());
    if (info.isDir() && !path.endsWith(QLatin1Char('/')))
        path += QLatin1Char('/');
    return QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded);
}

std::optional<QString> FileUrl::toPath(const QString &urlText)
{
    const QUrl url(urlText, QUrl::StrictMode);
    if (!url.isValid() || urlText.isEmpty())
        return std::nullopt;
    QString path = url.path(QUrl::FullyDecoded);
    if (path.isEmpty())
        return std::nullopt;
    while (path.size() > 1 && path.endsWith(QLatin1Char('/')))
        path.chop(1);
    return path;
}

QString FileUrl::addingPercentEscapes(const QString &text)
{
    static const QByteArray legal = QByteArrayLiteral("!$&'()*+,-./:;=?@_~#[]");
    const QByteArray utf8 = text.toUtf8();
    QString out;
    out.reserve(utf8.size());
    for (const char ch : utf8) {
        const auto c = static_cast<unsigned char>(ch);
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')
                           || (c < 0x80 && legal.contains(char(c)));
        if (plain)
            out += QLatin1Char(char(c));
        else
            out += QLatin1Char('%') + QString::number(c, 16).toUpper().rightJustified(2, QLatin1Char('0'));
    }
    return out;
}

std::optional<QString> FileUrl::removingPercentEncoding(const QString &text)
{
    QByteArray bytes;
    const QByteArray utf8 = text.toUtf8();
    bytes.reserve(utf8.size());
    for (qsizetype i = 0; i < utf8.size(); ++i) {
        if (utf8.at(i) != '%') {
            bytes.append(utf8.at(i));
            continue;
        }
        if (i + 2 >= utf8.size() || !isxdigit(uchar(utf8.at(i + 1))) || !isxdigit(uchar(utf8.at(i + 2))))
            return std::nullopt;
        bytes.append(char(utf8.mid(i + 1, 2).toInt(nullptr, 16)));
        i += 2;
    }
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString decoded = decoder(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return decoded;
}
