#include "core/Logging.h"

#include <QFileInfo>

// Off unless a developer enables it: debug and info lines are filtered out by default.
Q_LOGGING_CATEGORY(lcDeckwright, "deckwright", QtWarningMsg)

void Logging::log(const QString &message, const char *function, const char *file, int line)
{
    if (!lcDeckwright().isDebugEnabled())
        return;
    const QString unit = QFileInfo(QString::fromUtf8(file)).completeBaseName();
    QMessageLogger(file, line, function, lcDeckwright().categoryName()).debug().noquote()
        << unit + QLatin1Char(':') + QString::number(line) + QLatin1Char(' ') + QString::fromUtf8(function)
               + QLatin1String(" ") + message;
}
