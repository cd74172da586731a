#pragma once

#include <QString>

#include <optional>

// File locations as URL text, the way settings keep them: the file scheme,
// percent escapes, and a folder (a package is a folder) ending in "/".
class FileUrl
{
public:
    static QString absoluteString(const QString &localPath);
    // The file-system path of a URL text, escapes decoded, without a trailing
    // "/"; none when the text is not a valid URL or has no path.
    static std::optional<QString> toPath(const QString &urlText);
    // Escapes every character that may not stand in a URL, "%" and the blank among them.
    static QString addingPercentEscapes(const QString &text);
    // Undoes percent escapes as UTF-8; none for a malformed escape or bytes that are not UTF-8.
    static std::optional<QString> removingPercentEncoding(const QString &text);
};
