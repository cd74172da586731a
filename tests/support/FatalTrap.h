#pragma once

#include <QString>

#include <stdexcept>

// Turns the program's fatal ending into an exception a test can catch, so a
// test can check that a condition is fatal, and with which reason.
struct FatalError : std::runtime_error
{
    explicit FatalError(const QString &reason)
        : std::runtime_error(reason.toStdString())
        , reason(reason)
    {
    }
    QString reason;
};

class FatalTrap
{
public:
    static void install();
};

// Checks that the statement ends in a fatal condition whose reason contains the text.
#define QVERIFY_FATAL(statement, text)                                                                                 \
    do {                                                                                                               \
        bool fatalRaised_ = false;                                                                                     \
        try {                                                                                                          \
            statement;                                                                                                 \
        } catch (const FatalError &error_) {                                                                           \
            fatalRaised_ = true;                                                                                       \
            QVERIFY2(error_.reason.contains(QStringLiteral(text)), qPrintable(error_.reason));                         \
        }                                                                                                              \
        QVERIFY2(fatalRaised_, "expected a fatal condition: " #statement);                                             \
    } while (false)
