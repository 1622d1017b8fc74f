#include "destresult.h"

QString DestResult::statusText() const
{
    if (hasErrors())
        return QStringLiteral("Con errores");
    // Only copies read back and found equal are "verificada": a disk that got nothing this run,
    // or whose verification did not reach every copy, is not.
    if (verifiedDone && copied > 0 && verifiedOK >= copied)
        return QStringLiteral("Correcta y verificada");
    return QStringLiteral("Correcta");
}
