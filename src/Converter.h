#pragma once

#include <QString>

#include <memory>

class FileUtils;

// Turns one Keynote '08 package into a Keynote '09 file in the output folder.
// Progress and outcome are told only through the conversion events, whose
// object is this converter, and through errorOccurred and outputPrezName.
class Converter
{
public:
    enum Outcome : qint64 { NoError = 0, NotKeynote = 1, NotKeynoteFour = 2 };

    Converter();
    explicit Converter(const QString &prezOrigPath);
    virtual ~Converter();

    virtual QString prezOrigPath() const;
    virtual void setPrezOrigPath(const QString &path);
    virtual QString outputPrezName() const;
    virtual void setOutputPrezName(const QString &name);
    virtual qint64 errorOccurred() const;
    virtual void setErrorOccurred(qint64 code);

    // outputPath is the output folder as a plain path, used to find a free name;
    // the file itself goes to the folder kept under the setting bookmarkData.
    virtual void doConvert(const QString &outputPath);

protected:
    virtual std::unique_ptr<FileUtils> createFileUtils(const QString &prezOrigPath);
    // Copies the archive into place in bounded memory; the file appears whole
    // or not at all, and an existing file of that name is never replaced.
    virtual bool writeOutput(const QString &archivePath, const QString &destinationPath);

private:
    void post(const QString &eventName);

    QString m_prezOrigPath;
    QString m_outputPrezName;
    qint64 m_errorOccurred = NoError;
};
