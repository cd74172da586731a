#pragma once

#include "core/Fatal.h"

#include <QString>

// Turns the program's fatal ending into an exception carrying its reason, so
// that a test can check that a condition is fatal, and why.
struct FatalTrap
{
    static void install()
    {
        Fatal::setTerminator([](const QString &reason) { throw reason; });
    }
};

// Checks that the statement ends in a fatal condition whose reason contains the text.
#define QVERIFY_FATAL(statement, text)                                                                                 \
    do {                                                                                                               \
        bool fatalRaised_ = false;                                                                                     \
        try {                                                                                                          \
            statement;                                                                                                 \
        } catch (const QString &reason_) {                                                                             \
            fatalRaised_ = true;                                                                                       \
            QVERIFY2(reason_.contains(QStringLiteral(text)), qPrintable(reason_));                                     \
        }                                                                                                              \
        QVERIFY2(fatalRaised_, "expected a fatal condition: " #statement);                                             \
    } while (false)
