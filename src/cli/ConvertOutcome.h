#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <optional>

class Converter;

// What became of one item of a `deckwright convert` batch, and the line that
// says so. The command works it out itself or hears it from a worker, so it
// also travels as one line of plain ASCII.
class ConvertOutcome
{
public:
    enum Kind {
        Converted,      // detail: the file written, relative to the output folder
        NotFound,       // nothing at that path
        NotKeynote,     // detail: why
        NotKeynoteFour, // detail: why
        Failed,         // could not finish (space, disks, writing), or its worker was lost; detail: why
        NoPackages,     // a folder that holds no package; detail: or why it could not be searched
        AlreadyDone,    // its name was taken in its folder (skipping existing files); detail: that file, as Converted
    };

    ConvertOutcome() = default;
    ConvertOutcome(Kind kind, const QString &detail = {});

    Kind kind() const { return m_kind; }
    QString detail() const { return m_detail; }
    bool converted() const { return m_kind == Converted; }
    // Converted, or nothing to do: already in the Keynote '09 format, or converted before.
    bool done() const;
    // The converter's outcome code (Converter::Outcome); none when no converter told one.
    std::optional<qint64> code() const { return m_code; }
    // How long the conversion took.
    double seconds() const { return m_seconds; }

    // The line printed for an item: a package or folder as the person gave
    // it, or a package as found in a folder. A text holding control
    // characters is quoted, so that no name can forge a line.
    QString line(const QString &item, const QString &outputFolder) const;
    // The same as one JSON object, with the package's size.
    QByteArray json(const QString &item, const QString &outputFolder, qint64 bytes) const;
    // "converted", "skipped", "failed" or "already-done".
    QString word() const;

    // Runs a converter, set up with its package, into the output folder.
    // share, when given, hears how far the conversion is, from 0 to 1.
    static ConvertOutcome convert(Converter &converter, const QString &outputFolder,
                                  const std::function<void(double)> &share = {});

    // One word of printable ASCII, whatever the name or reason holds;
    // decode refuses anything else.
    QByteArray encode() const;
    static std::optional<ConvertOutcome> decode(const QByteArray &text);

    bool operator==(const ConvertOutcome &other) const;

    // As `ls --quoting-style=shell-escape` writes a name that holds control
    // characters: 'a'$'\n''b'. Any other text is left as it is.
    static QString quoted(const QString &text);

private:
    Kind m_kind = Failed;
    QString m_detail;
    std::optional<qint64> m_code;
    double m_seconds = 0.0;
};
