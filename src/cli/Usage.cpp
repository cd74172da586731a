#include "cli/Usage.h"

#include <QString>
#include <QTextStream>

int usageError(QTextStream &err, const QString &command, const QString &reason)
{
    const QString program = command.isEmpty() ? QStringLiteral("deckwright") : QStringLiteral("deckwright ") + command;
    err << program << ": " << reason << "\n"
        << "Try '" << program << " --help'.\n";
    err.flush();
    return 2;
}
