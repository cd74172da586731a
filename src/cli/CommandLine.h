#pragma once

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

// Reads a command's options as GNU programs read theirs, and says what is
// wrong in Deckwright's own words: "--output DIR", "--output=DIR", "-o DIR",
// "-oDIR", short flags in one word ("-qj2"), options anywhere among the
// arguments, and "--" before arguments that start with a dash. "-" alone is
// an argument. A flag may be repeated; an option with a value may be given
// once only, so that no value is silently dropped.
class CommandLine
{
public:
    struct Option
    {
        QString name;       // the long name, without "--"
        QString shortNames; // the letters that stand for it, none or several ("Vv")
        QString needs = {}; // what its value is, for "option '--output' needs a folder"; empty: a flag
    };

    explicit CommandLine(const QList<Option> &options);

    // False on the first mistake, which error() then tells.
    bool parse(const QStringList &arguments);
    QString error() const { return m_error; }

    bool isSet(const QString &name) const { return m_values.contains(name); }
    // The value given, or fallback when the option was not.
    QString value(const QString &name, const QString &fallback = {}) const { return m_values.value(name, fallback); }
    QStringList arguments() const { return m_arguments; }

private:
    const Option *find(const QString &name) const;
    const Option *findShort(QChar letter) const;
    // Takes a value for option, as typed, from the rest of its word or the next argument.
    bool take(const Option &option, const QString &typed, const QString &value);

    QList<Option> m_options;
    QMap<QString, QString> m_values;
    QStringList m_arguments;
    QString m_error;
};
