#include "support/FatalTrap.h"

#include "core/Fatal.h"

void FatalTrap::install()
{
    Fatal::setTerminator([](const QString &reason) { throw FatalError(reason); });
}
