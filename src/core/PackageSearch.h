#pragma once

#include <QString>
#include <QStringList>

// Turns what a person hands over (dropped items, command line arguments) into
// the packages to convert. A package or anything that is not a folder is kept
// as it is, for the converter to take or refuse with its reason; a plain
// folder is searched for packages, through its subfolders but never into a
// package, never through a link, one folder at a time, so no tree a stranger
// built can loop it, exhaust it or lead it outside.
class PackageSearch
{
public:
    // The packages for these paths, in their order, each once. A folder's
    // packages come in name order (bytes), a subfolder's among them where its
    // name falls. A folder given here is searched even when named through a
    // link; a link found inside one is passed over, as is what cannot be read.
    static QStringList expand(const QStringList &paths);

    // Whether a folder of this name is a package: it ends in ".key".
    static bool isPackageName(const QString &name);

    // How to name a package that expand found for one path: from that path
    // as the person gave it ("Decks/Old/A.key" for "Decks/"), so that what is
    // printed reads like what was typed; the package itself otherwise.
    static QString shownPath(const QString &given, const QString &found);
};
