#include "cli/CommandLine.h"

CommandLine::CommandLine(const QList<Option> &options)
    : m_options(options)
{
}

const CommandLine::Option *CommandLine::find(const QString &name) const
{
    for (const Option &option : m_options) {
        if (option.name == name)
            return &option;
    }
    return nullptr;
}

const CommandLine::Option *CommandLine::findShort(QChar letter) const
{
    for (const Option &option : m_options) {
        if (option.shortNames.contains(letter))
            return &option;
    }
    return nullptr;
}

bool CommandLine::take(const Option &option, const QString &typed, const QString &value)
{
    if (value.isEmpty()) {
        m_error = QStringLiteral("option '%1' needs %2").arg(typed, option.needs);
        return false;
    }
    if (m_values.contains(option.name)) {
        m_error = QStringLiteral("option '--%1' can be given only once").arg(option.name);
        return false;
    }
    m_values.insert(option.name, value);
    return true;
}

bool CommandLine::parse(const QStringList &arguments)
{
    m_values.clear();
    m_arguments.clear();
    m_error.clear();
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &word = arguments[i];
        const auto next = [&] { return ++i < arguments.size() ? arguments[i] : QString(); };
        if (word == QLatin1String("--")) {
            m_arguments += arguments.mid(i + 1);
            return true;
        }
        if (word.startsWith(QLatin1String("--"))) {
            const qsizetype equals = word.indexOf(QLatin1Char('='));
            const QString typed = word.left(equals);
            const Option *option = find(typed.mid(2));
            if (!option) {
                m_error = QStringLiteral("unknown option '%1'").arg(typed);
                return false;
            }
            if (option->needs.isEmpty()) {
                if (equals >= 0) {
                    m_error = QStringLiteral("option '%1' takes no value").arg(typed);
                    return false;
                }
                m_values.insert(option->name, QString());
            } else if (!take(*option, typed, equals >= 0 ? word.mid(equals + 1) : next())) {
                return false;
            }
        } else if (word.startsWith(QLatin1Char('-')) && word.size() > 1) {
            // Letters in one word: flags, up to one that takes the rest of the word or the next argument.
            for (qsizetype at = 1; at < word.size(); ++at) {
                const QString typed = QLatin1Char('-') + word[at];
                const Option *option = findShort(word[at]);
                if (!option) {
                    m_error = word.size() > 2 ? QStringLiteral("unknown option '%1' in '%2'").arg(typed, word)
                                              : QStringLiteral("unknown option '%1'").arg(typed);
                    return false;
                }
                if (option->needs.isEmpty()) {
                    m_values.insert(option->name, QString());
                    continue;
                }
                if (!take(*option, typed, at + 1 < word.size() ? word.mid(at + 1) : next()))
                    return false;
                break;
            }
        } else {
            m_arguments.append(word);
        }
    }
    return true;
}
