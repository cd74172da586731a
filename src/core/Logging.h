#pragma once

#include <QLoggingCategory>
#include <QString>

Q_DECLARE_LOGGING_CATEGORY(lcDeckwright)

// The developers' debug log. Every diagnostic line of the program passes
// through Logging::log; nothing reaches the user, the console or a file unless
// a developer turns the category "deckwright" on, e.g.
//   QT_LOGGING_RULES="deckwright.debug=true" deckwright
// The lines' texts are kept as they have always been written, odd ones and
// all, so that old and new logs can be read side by side.
class Logging
{
public:
    static void log(const QString &message, const char *function, const char *file, int line);
};

// Fills in the caller's function, source unit and line.
#define DW_LOG(message) Logging::log((message), Q_FUNC_INFO, __FILE__, __LINE__)
