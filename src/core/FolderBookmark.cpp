#include "core/FolderBookmark.h"

FolderBookmark::~FolderBookmark() = default;
