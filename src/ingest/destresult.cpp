#include "destresult.h"

QString DestResult::statusText() const
{
    if (hasErrors())
        return QStringLiteral("Con errores");
    if (verifiedDone)
        return QStringLiteral("Correcta y verificada");
    return QStringLiteral("Correcta");
}
