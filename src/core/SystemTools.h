#pragma once

#include <QString>

// The system tools a conversion runs, at the fixed paths it has always run
// them from, and whether this machine has them: a package installs them as
// its dependencies, but a machine built otherwise may lack one, and then a
// conversion or a check says which instead of failing on the way.
class SystemTools
{
public:
    static QString gunzip() { return QStringLiteral("/usr/bin/gunzip"); }
    static QString zip() { return QStringLiteral("/usr/bin/zip"); }
    static QString mv() { return QStringLiteral("/bin/mv"); }

    // Why the tool at this path cannot be run, for a person ("the tool
    // /usr/bin/zip is not installed"); empty when it can.
    static QString problem(const QString &path);
    // The first such problem among the tools a conversion runs; empty when there is none.
    static QString conversionProblem();
};
