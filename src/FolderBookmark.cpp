#include "FolderBookmark.h"

#include "PathFolderBookmark.h"

FolderBookmark::~FolderBookmark() = default;

FolderBookmark &FolderBookmark::platform()
{
    static PathFolderBookmark bookmarks;
    return bookmarks;
}
