#pragma once

#include "cli/ConvertOutcome.h"

#include <QElapsedTimer>
#include <QList>
#include <QString>

#include <vector>

class QTextStream;

// What a `deckwright convert` batch tells as it goes: each item's result on
// standard output, a line of text or a JSON object, in the order given; on a
// terminal, one line on standard error that rewrites itself with where the
// batch is and how long it may still take, taken away before each result so
// that the two never mix; and at the end a summary there.
class ConvertReport
{
public:
    struct Options
    {
        bool json = false;
        bool progress = false;     // standard error is a terminal, and no --quiet
        bool summary = false;      // no --quiet
        bool skipExisting = false; // the summary then tells what was already done
        int width = 80;            // of the terminal
    };
    struct Item
    {
        QString shown;
        qint64 bytes = 0; // of the package
    };

    ConvertReport(QTextStream &out, QTextStream &err, const QString &outputFolder, const Options &options);

    // The batch's items, before any of them starts: the clock starts.
    void begin(const QList<Item> &items);
    // How far an item's conversion is, from 0 as it starts to 1.
    void advance(int item, double share);
    // Prints an item's result; the caller keeps the order. False when it
    // cannot be written, for this line and every one after it.
    bool print(int item, const ConvertOutcome &outcome);
    // Takes the progress line away and prints the summary.
    void end();
    // Takes the progress line away, for an ending without a summary.
    void clear();
    // 0 when every item printed was converted or had nothing to do, 1 otherwise.
    int status() const { return m_allDone ? 0 : 1; }

    // "0.4 s", "12 s", "3 min 12 s", "1 h 5 min".
    static QString duration(double seconds);

private:
    void draw(bool now);
    int currentItem() const; // -1: none under way
    QString progressLine(int current) const;

    QTextStream &m_out;
    QTextStream &m_err;
    QString m_outputFolder;
    Options m_options;
    QList<Item> m_items;
    std::vector<double> m_shares; // -1 until the item starts
    std::vector<bool> m_counted;  // its bytes are work to do: not yet printed as anything but converted
    int m_printed = 0;
    int m_converted = 0, m_alreadyDone = 0, m_skipped = 0, m_failed = 0;
    bool m_allDone = true;
    QElapsedTimer m_clock, m_sinceDraw;
    int m_drawnItem = -1;
    bool m_lineShown = false;
};
