#include "FatalTrap.h"

#include "Fatal.h"

void FatalTrap::install()
{
    Fatal::setTerminator([](const QString &reason) { throw FatalError(reason); });
}
