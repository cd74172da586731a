#pragma once

#include "core/ChildProcess.h"

#include <QString>

class FileUtils;

// The document of a Keynote package, index.apxl.gz, and what makes it one
// Deckwright converts: it decompresses within the size limit, it is UTF-8
// text, and it carries the Keynote '08 version tag. The converter and
// `deckwright check` both judge it here, so that they give the same verdict
// in the same words.
class KeynoteDocument
{
public:
    // The largest decompressed document taken: far above any real deck's,
    // far below what would strain memory.
    static constexpr qint64 sizeLimit = 256LL * 1024 * 1024;

    enum class Version { KeynoteFour, KeynoteFive, None };

    // Decompresses the index.apxl.gz at gzPath into index.apxl beside it
    // (gunzip -f, run through tools); no file gunzip writes may outgrow the
    // size limit. A document that would is found by decompressing it first
    // in memory, a piece at a time, up to the limit: then gunzip is not run,
    // and the result reads as that of a gunzip stopped at the size limit.
    static ChildProcess::Result unpack(FileUtils &tools, const QString &gzPath);
    // Whether unpack found no index.apxl.gz to decompress.
    static bool wasMissing(const ChildProcess::Result &gunzip);

    // Reads what unpack left at indexPath as UTF-8 text into text. Returns
    // why the document cannot be taken; empty when it can.
    static QString read(const ChildProcess::Result &gunzip, const QString &indexPath, QString *text);

    static Version version(const QString &text);
    // Why a document of this version is not converted; empty for Keynote '08.
    static QString versionProblem(Version version);
    // Turns every Keynote '08 version tag, in any letter case, into the Keynote '09 one.
    static void rewriteVersionTag(QString &text);

    // The slides of a Keynote '08 or '09 document, master slides not among them.
    static int slideCount(const QString &text);

    // Whether the file at path starts as a zip archive does, which is how
    // Keynote '09 keeps a presentation. Never through a link; readable is
    // cleared when the file cannot be opened.
    static bool isZipArchive(const QString &path, bool *readable = nullptr);
    // Why a .key that is a single file is not converted.
    static QString singleFileProblem(const QString &path);

    // Whether a compressed document of this size is over the limit: gzip
    // never shrinks a document into more bytes than it had, so one this large
    // is refused before it is copied or decompressed.
    static bool compressedTooLarge(qint64 bytes) { return bytes > sizeLimit; }
    // The same test on the package's index.apxl.gz, never through a link: the reason, or empty.
    static QString compressedSizeProblem(const QString &packagePath);

    static QString missingReason();
    static QString damagedReason();
    static QString tooLargeReason();
};
