#pragma once
// One run's choices. A plain value; the screen builds it from IngestSettings, the command line
// from its arguments.
#include "ingeststructure.h"
#include "namepattern.h"

#include <QString>

struct IngestOptions {
    IngestStructure structure = IngestStructure::yearDate;
    QString session;              // "Nombre de la sesión"
    bool rename = false;          // "Renombrar los archivos"; off keeps the camera's names
    NamePattern pattern = NamePattern::defaultPattern();
    qint64 start = 1;             // "Número: empezar en"
    qint64 digits = 4;            // the number's width
    bool skipImported = true;     // "No volver a importar lo ya importado"

    // Run switches kept beside the naming choices ("ingest.video", "ingest.fullVerify",
    // "ingest.eject").
    bool video = false;           // take videos too
    bool verify = true;           // "Verificar las copias": re-read every copy from its disk
    bool eject = false;           // "Expulsar la tarjeta al terminar" (only when nothing failed)
};
