#include "ingestsummary.h"

IngestSummary IngestSummary::make(IngestOutcome outcome, int destCount)
{
    const bool two = destCount >= 2;
    switch (outcome) {
    case IngestOutcome::verified:
        return {outcome,
                two ? QStringLiteral("Las dos copias están hechas y verificadas") : QStringLiteral("Copia hecha y verificada"),
                QStringLiteral("Cada copia se ha leído de nuevo del disco y es idéntica, byte a byte, al original de la "
                               "tarjeta (SHA-256). Ya puedes formatear la tarjeta.")};
    case IngestOutcome::copied:
        return {outcome, two ? QStringLiteral("Las dos copias están hechas") : QStringLiteral("Copia hecha"),
                QStringLiteral("Las copias tienen el tamaño correcto, pero no se han releído para compararlas con la "
                               "tarjeta. Si vas a formatear la tarjeta, pulsa «Verificar ahora».")};
    case IngestOutcome::errors:
        return {outcome, QStringLiteral("Importación con problemas"),
                QStringLiteral("Revisa abajo qué disco tiene errores. Las copias defectuosas se han borrado: vuelve a "
                               "importar y se copiarán solo esas. No formatees la tarjeta todavía.")};
    case IngestOutcome::cancelled:
        return {outcome, QStringLiteral("Importación cancelada"),
                QStringLiteral("Lo copiado hasta ahora se queda en los discos; lo que estaba a medias se ha borrado. Al "
                               "volver a importar se continúa donde se dejó.")};
    case IngestOutcome::planned:
        return {outcome, QStringLiteral("Simulación: no se ha copiado nada"),
                QStringLiteral("Así quedaría la importación. Nada se ha escrito en los discos ni en la lista de lo ya importado.")};
    case IngestOutcome::nothingToDo:
        return {outcome, QStringLiteral("Todo lo de la tarjeta ya está importado"),
                QStringLiteral("No hay nada nuevo que copiar: cada archivo de la tarjeta ya está en los discos.")};
    }
    return {outcome, {}, {}};
}
