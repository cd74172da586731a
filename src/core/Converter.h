#pragma once

#include "core/KeynoteDocument.h"

#include <QString>

#include <functional>
#include <memory>
#include <optional>

class FileUtils;
class OutputFolder;

// Turns one Keynote '08 package into a Keynote '09 file in the output folder.
// Progress and outcome are told only through the conversion events, whose
// object is this converter, and through errorOccurred, errorReason and
// outputPrezName.
//
// Whatever the package holds and whatever happens meanwhile, a conversion
// reads nothing from outside the package, writes only into its own scratch
// folder and the output folder, removes only what it made, follows no link,
// and leaves nothing behind.
class Converter
{
public:
    enum Outcome : qint64 {
        NoError = 0,
        NotKeynote = 1,       // the name does not end in "key"
        NotKeynoteFour = 2,   // not a package that can be converted
        OutputNotWritten = 3, // converted, but the file could not be written
        Stopped = 4,          // the person stopped it
        AlreadyDone = 5,      // skipping existing files: its name is taken in its folder; nothing was done
    };

    // How the package's files are named inside the archive.
    enum class ArchiveLayout {
        // zip given the scratch folder by its full path, so the entries carry
        // that path; what Deckwright has always written.
        Reference,
        // zip run inside the package folder: index.apxl, Data/... at the
        // root, as Keynote '09 writes a single-file document. No path of the
        // person's machine leaks into the file, and LibreOffice opens it.
        PackageAtRoot,
    };
    // The layout the setting archiveLayout asks for; anything but "root" is the reference one.
    static ArchiveLayout archiveLayoutSetting();
    static QString layoutName(ArchiveLayout layout); // "reference", "root"

    // The largest decompressed document taken.
    static constexpr qint64 documentSizeLimit = KeynoteDocument::sizeLimit;
    // Room a conversion needs where it works, beyond the package twice over
    // (the copy and its archive side by side) and a tenth: the document grows
    // when decompressed, and the disk must not end up full to the last byte.
    static constexpr qint64 spareScratchBytes = 64LL * 1024 * 1024;

    Converter();
    explicit Converter(const QString &prezOrigPath);
    virtual ~Converter();

    virtual QString prezOrigPath() const;
    virtual void setPrezOrigPath(const QString &path);
    virtual QString outputPrezName() const;
    virtual void setOutputPrezName(const QString &name);
    virtual qint64 errorOccurred() const;
    virtual void setErrorOccurred(qint64 code);
    // Why the outcome is not NoError, in a few words a person understands.
    virtual QString errorReason() const;
    virtual void setErrorReason(const QString &reason);

    // How far the copy or the zip now under way is, from 0 to 1; see
    // ConversionEvents::stageProgress.
    double stageShare() const { return m_stageShare; }
    // The package's bytes, measured before the copy begins; -1 before that.
    qint64 packageBytes() const { return m_packageBytes; }
    // The progress events of a converted file, and after which of them the
    // two long stages run: what a bar needs to give each step its share.
    static constexpr int progressSteps = 8;
    static constexpr int copyStep = 1;
    static constexpr int zipStep = 6;

    // Whether a path came from a name that cannot be represented as text
    // (not UTF-8): such a package is refused, never copied under a mangled name.
    static bool cannotRepresent(const QString &path);
    // Why the converter refuses a package by its name alone, with the outcome
    // it ends in (NotKeynote or NotKeynoteFour); empty when the name is taken.
    // givenPath: the path as given, when path is what a link there named.
    static QString nameProblem(const QString &path, Outcome *outcome = nullptr, const QString &givenPath = QString());
    // The package a path names: a link in its last place is followed once,
    // here, so that the package is read as itself and never through a link.
    static QString resolvedPackagePath(const QString &path);

    // The file goes to the folder kept under the setting bookmarkData, opened
    // once at the start (OutputFolder) and named by the path it was opened at;
    // outputPath, the same folder as a plain path, names it where it cannot
    // be opened.
    virtual void doConvert(const QString &outputPath);
    // Converts into this folder, already open, instead: a batch opens its
    // output folder once for all its conversions.
    void useOutputFolder(std::shared_ptr<const OutputFolder> folder) { m_outputFolder = std::move(folder); }
    // Writes into this folder below the output folder ("2008/Misc") instead,
    // made when the file is written; names are numbered within it.
    void setOutputSubfolder(const QString &relative) { m_subfolder = relative; }
    QString outputSubfolder() const { return m_subfolder; }
    // A package whose own name is already taken in its folder is taken as
    // converted before: it ends as AlreadyDone, told by the event of a refusal
    // with outputPrezName the name found, before anything is copied, and no
    // numbered name is ever made for it.
    void setSkipExisting(bool on) { m_skipExisting = on; }

protected:
    virtual std::unique_ptr<FileUtils> createFileUtils(const QString &prezOrigPath);
    // Writes the archive into the folder under outputPrezName, whole or not
    // at all, never over anything; a name taken meanwhile gets the next
    // number (outputPrezName follows). False with errorReason set otherwise.
    virtual bool writeOutput(const QString &archivePath, const OutputFolder &folder);
    // Called by writeOutput once the archive is whole and on disk, just
    // before it takes its name in the output folder. Does nothing here; a
    // batch that converts several packages at once waits in it so that files
    // are named in the order they were given. A stop requested meanwhile
    // ends the conversion.
    virtual void waitForTurnToName();

private:
    // What one conversion carries from stage to stage.
    struct Job;

    void post(const QString &eventName);
    // Lets an observer of stageProgress follow the next command of the stage.
    void watchStage(Job &job, const std::function<double(const QByteArray &, qint64 processId)> &share);
    // Tells an observer of stageProgress that the stage is this far.
    void advanceStage(double share);
    QString numberedName(qint64 n) const;

    // The stages of doConvert, in order. Each posts its own progress events;
    // one that returns false has ended the conversion and told its outcome.

    // Refuses a name that is not valid UTF-8 or does not end in .key.
    bool checkPackageName(const QString &givenPath);
    // Refuses a compressed document too large to be real before anything is copied or placed.
    bool checkDocumentSize(Job &job);
    // Opens the output folder, unless one was given; refuses one that is the
    // package or lies inside it, whose files are never changed.
    bool openOutputFolder(Job &job, const QString &outputPath);
    // Refuses to start on a machine that lacks a tool the conversion runs.
    bool checkTools(Job &job);
    // Takes this run's own scratch folder and the names the copy goes under.
    bool openScratch(Job &job);
    // Works in the output folder when the package will not fit on the
    // scratch folder's disk; refuses it when it fits on neither.
    bool placeScratch(Job &job);
    // Copies the package into the scratch folder, refusing what it may not hold as it goes.
    bool copyToScratch(Job &job);
    // Refuses a package whose copy said why it is not whole.
    bool checkCopy(Job &job);
    // Decompresses index.apxl.gz in the copy, within the document size limit.
    bool unpackDocument(Job &job);
    // Reads the decompressed document as UTF-8 text.
    bool readDocument(Job &job, QString *document);
    // Turns every Keynote '08 version tag into the Keynote '09 one.
    bool rewriteVersionTag(Job &job, QString &document);
    // Writes the rewritten document over the one in the copy, then lets it go.
    bool writeDocumentBack(Job &job, QString &document);
    // Zips the copy and puts the archive where the copy was.
    bool packArchive(Job &job);
    // Ends as AlreadyDone when skipping existing files and the package's name is taken.
    bool skipIfDone(Job &job);
    // Sets outputPrezName to the first name not taken in the output folder
    // (or ends as AlreadyDone); false when the conversion has ended.
    bool chooseFreeName(Job &job);
    // Writes the archive into the folder kept under the setting bookmarkData.
    bool writeIntoOutputFolder(Job &job);

    // Removes the copy, under either of its names, from the scratch folder.
    void clearScratch(Job &job);
    // Ends the conversion with this outcome once the copy is removed.
    void failWith(Job &job, qint64 code, const QString &reason);
    // Logs why the package is refused and ends the conversion as NotKeynoteFour.
    void rejectPackage(Job &job, const QString &logText, const QString &reason);
    // Ends the conversion as Stopped if a stop is pending; true if it did.
    bool stopIfAsked(Job &job);

    QString m_prezOrigPath;
    QString m_outputPrezName;
    qint64 m_errorOccurred = NoError;
    QString m_errorReason;
    double m_stageShare = 0.0;
    qint64 m_packageBytes = -1;
    QString m_prezNameWithoutExt;
    qint64 m_number = 0;
    std::shared_ptr<const OutputFolder> m_outputFolder; // given by the batch
    QString m_subfolder;
    bool m_skipExisting = false;
};
