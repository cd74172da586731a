#pragma once

#include "core/FolderBookmark.h"

// Platforms without security-scoped bookmarks: the token is a versioned byte
// block naming the folder's absolute path, and it resolves back to the folder
// only while the folder exists. Scoped access needs no work there.
class PathFolderBookmark : public FolderBookmark
{
public:
    std::optional<QByteArray> create(const QUrl &folder) override;
    std::optional<QUrl> resolve(const QByteArray &bookmark) override;
    bool startAccessing(const QUrl &) override { return true; }
    void stopAccessing(const QUrl &) override {}

    static const QByteArray magic;
    static constexpr char version = 1;
};
