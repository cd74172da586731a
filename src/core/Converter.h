#pragma once

#include <QString>

#include <memory>

class FileUtils;

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
    };

    // The largest decompressed document taken: far above any real deck's,
    // far below what would strain memory.
    static constexpr qint64 documentSizeLimit = 256LL * 1024 * 1024;

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

    // Whether a path came from a name that cannot be represented as text
    // (not UTF-8): such a package is refused, never copied under a mangled name.
    static bool cannotRepresent(const QString &path);

    // outputPath is the output folder as a plain path, used to find a free name;
    // the file itself goes to the folder kept under the setting bookmarkData.
    virtual void doConvert(const QString &outputPath);

protected:
    virtual std::unique_ptr<FileUtils> createFileUtils(const QString &prezOrigPath);
    // Writes the archive into the folder under outputPrezName, whole or not
    // at all, never over anything; a name taken meanwhile gets the next
    // number (outputPrezName follows). False with errorReason set otherwise.
    virtual bool writeOutput(const QString &archivePath, const QString &folder);

private:
    void post(const QString &eventName);
    QString numberedName(qint64 n) const;

    QString m_prezOrigPath;
    QString m_outputPrezName;
    qint64 m_errorOccurred = NoError;
    QString m_errorReason;
    QString m_prezNameWithoutExt;
    qint64 m_number = 0;
};
