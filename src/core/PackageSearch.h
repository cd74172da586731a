#pragma once

#include <QList>
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
    // What a path given holds, one item each: its packages, and the folders
    // that could not be searched.
    struct Item
    {
        enum Kind { Package, NoPackages, Unreadable };
        Kind kind = Package;
        QString path;  // a package, or the folder the other kinds are about
        int error = 0; // why an Unreadable folder could not be read
        // The folders between the folder given and a package found in it
        // ("2008/Misc" for Decks/2008/Misc/Talk.key from Decks); empty at its top.
        QString folder;

        QString problem() const { return PackageSearch::problem(kind, error); }
    };
    // What a command says of a folder: "no Keynote packages in it", or that
    // it could not be read and why. Empty for a package.
    static QString problem(Item::Kind kind, int error = 0);

    // The items for one path, in name order as file managers sort (Talk 2
    // before Talk 10, by the person's locale; bytes settle a tie), a subfolder's among them
    // where its name falls: the path itself when it is no folder to search, a
    // folder without packages as one NoPackages item. A folder given is
    // searched even when named through a link; a link found inside one is
    // passed over.
    static QList<Item> search(const QString &path);

    // The packages for these paths, in their order, each once; folders that
    // hold none or could not be read add nothing. folders, when given, gets
    // each package's Item::folder, in step.
    static QStringList expand(const QStringList &paths, QStringList *folders = nullptr);

    // Whether a folder of this name is a package: it ends in ".key", in any
    // letter case (the converter then refuses any but ".key" by its name).
    static bool isPackageName(const QString &name);

    // How to name a package that expand found for one path: from that path
    // as the person gave it ("Decks/Old/A.key" for "Decks/"), so that what is
    // printed reads like what was typed; the package itself otherwise.
    static QString shownPath(const QString &given, const QString &found);
};
