#pragma once

#include <QString>

// Whether Deckwright can convert a package, found out without converting it
// and without changing anything: the converter's own tests, on the package
// where it is. Nothing in it is opened for writing and no link in it is
// followed; only its compressed document is copied, into a private scratch
// run, and decompressed there within the converter's size limit.
class PackageCheck
{
public:
    enum class Kind {
        KeynoteFourPackage,  // the one kind that converts
        KeynoteFivePackage,  // a package already in the Keynote '09 format
        KeynoteFiveDocument, // a Keynote '09 presentation kept in one zip archive
        NotConvertible,
    };

    struct Verdict
    {
        Kind kind = Kind::NotConvertible;
        QString reason;    // why it does not convert, in the converter's words; empty when it does
        qint64 bytes = -1; // its files' sizes, added up; -1 when not known
        int slides = -1;   // -1 when not known

        bool convertible() const { return kind == Kind::KeynoteFourPackage; }
    };

    // path: a package or a single .key file, named as a person names it.
    static Verdict check(const QString &path);
};
