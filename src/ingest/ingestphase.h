#pragma once
// Where one import stands. `scanning` covers reading the card and comparing it with the
// destinations ("Leyendo la tarjeta…"); verification runs only when asked for.
#include <QMetaType>
#include <QString>

enum class IngestPhase { idle, scanning, copying, verifying, finished };

// The progress line the screen and the terminal show for a phase ("" for idle and finished).
QString ingestPhaseText(IngestPhase phase);
