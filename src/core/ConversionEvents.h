#pragma once

#include <QString>

// The four events by which a conversion tells how it is going, and one more
// for a window that shows it. The object of each is the Converter that posts
// it; there is no payload.
namespace ConversionEvents {
inline const QString progress = QStringLiteral("com.bramblefox.deckwright.progress");
inline const QString finished = QStringLiteral("com.bramblefox.deckwright.finished");
inline const QString finishedWithErrorNotKeynote
    = QStringLiteral("com.bramblefox.deckwright.finishedWithErrorNotKeynote");
inline const QString finishedWithErrorNotKeynoteFour
    = QStringLiteral("com.bramblefox.deckwright.finishedWithErrorNotKeynoteFour");
// Within the copy and the zip, the two long stages: how far the stage is
// (Converter::stageShare), posted only while someone observes it.
inline const QString stageProgress = QStringLiteral("com.bramblefox.deckwright.stageProgress");
} // namespace ConversionEvents
