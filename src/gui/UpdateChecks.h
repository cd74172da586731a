#pragma once

class QObject;
class SoftwareUpdater;

// Where the program meets its update checks. A build without them
// (DECKWRIGHT_UPDATER off, as a distribution that ships its own updates
// wants) compiles NoUpdateChecks.cpp in place of UpdateChecks.cpp and leaves
// the updater out: there is none, the windows offer no control for one, and
// nothing contacts the network.
class UpdateChecks
{
public:
    // The updater, with the dialog that shows its answers; nullptr in a build without update checks.
    static SoftwareUpdater *create(QObject *parent);
    // Gives the updater its interval in seconds and whether it checks on its own.
    static void configure(SoftwareUpdater *updater, double interval, bool automatic);
    // Lets the automatic checks begin.
    static void start(SoftwareUpdater *updater);
    // Checks now, for the person who asked through sender.
    static void checkNow(SoftwareUpdater *updater, QObject *sender);
};
