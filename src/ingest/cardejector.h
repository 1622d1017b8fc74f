#pragma once
// Ejecting a card: UDisks2 over D-Bus (Filesystem.Unmount, then Drive.PowerOff or Drive.Eject);
// without D-Bus, `udisksctl` and then `gio mount -e`. Blocking; call from a worker thread.
#include <QString>

namespace CardEjector {

// Ejects the volume holding `path`. Returns "" on success, else one Spanish sentence
// ("No se pudo expulsar la tarjeta: …").
QString eject(const QString &path);

inline constexpr char kEjectedText[] = "Tarjeta expulsada";

} // namespace CardEjector
