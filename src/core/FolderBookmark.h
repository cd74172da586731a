#pragma once

#include <QByteArray>
#include <QUrl>

#include <optional>

// A lasting handle on the output folder that the person chose, kept under the
// setting bookmarkData. Where the platform has security-scoped bookmarks it
// makes and resolves those; elsewhere an opaque token that names the folder.
class FolderBookmark
{
public:
    virtual ~FolderBookmark();

    // The implementation for this platform (defined beside it, in its own file).
    static FolderBookmark &platform();

    // Made with the security-scope option (value 2048); none when the folder cannot be reached.
    virtual std::optional<QByteArray> create(const QUrl &folder) = 0;
    // Resolved with the security-scope option (value 1024); none when it no longer leads to a folder.
    virtual std::optional<QUrl> resolve(const QByteArray &bookmark) = 0;
    virtual bool startAccessing(const QUrl &folder) = 0;
    virtual void stopAccessing(const QUrl &folder) = 0;

    static constexpr int creationOptions = 2048;
    static constexpr int resolutionOptions = 1024;
};
