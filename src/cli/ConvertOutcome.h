#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

class Converter;

// What became of one item of a `deckwright convert` batch, and the line that
// says so. The command works it out itself or hears it from a worker, so it
// also travels as one line of plain ASCII.
class ConvertOutcome
{
public:
    enum Kind {
        Converted,      // detail: the name of the file written
        NotFound,       // nothing at that path
        NotKeynote,     // detail: why
        NotKeynoteFour, // detail: why
        Failed,         // could not finish (space, disks, writing), or its worker was lost; detail: why
        NoPackages,     // a folder that holds no package; detail: or why it could not be searched
    };

    ConvertOutcome() = default;
    ConvertOutcome(Kind kind, const QString &detail = {});

    Kind kind() const { return m_kind; }
    QString detail() const { return m_detail; }
    bool converted() const { return m_kind == Converted; }

    // The line printed for an item: a package or folder as the person gave
    // it, or a package as found in a folder.
    QString line(const QString &item, const QString &outputFolder) const;

    // Runs a converter, set up with its package, into the output folder.
    static ConvertOutcome convert(Converter &converter, const QString &outputFolder);

    // One word of printable ASCII, whatever the name or reason holds;
    // decode refuses anything else.
    QByteArray encode() const;
    static std::optional<ConvertOutcome> decode(const QByteArray &text);

    bool operator==(const ConvertOutcome &other) const;

private:
    Kind m_kind = Failed;
    QString m_detail;
};
