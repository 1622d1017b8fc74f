#include "ingestphase.h"

QString ingestPhaseText(IngestPhase phase)
{
    switch (phase) {
    case IngestPhase::scanning: return QStringLiteral("Leyendo la tarjeta…");
    case IngestPhase::copying: return QStringLiteral("Copiando…");
    case IngestPhase::verifying: return QStringLiteral("Verificando las copias…");
    case IngestPhase::idle:
    case IngestPhase::finished: break;
    }
    return {};
}
