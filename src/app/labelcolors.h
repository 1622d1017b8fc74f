#pragma once
// The colour labels as the user sees them: Spanish names and the tints painted for c1…c8.
// Index 0 is "no colour". Colour is the only hue in the interface, so these stay saturated
// enough to read on the dark grey but never neon.
#include <QColor>
#include <QString>

namespace LabelColors {

inline constexpr int kCount = 8;

inline QString name(int n)
{
    switch (n) {
    case 1: return QStringLiteral("Rojo");
    case 2: return QStringLiteral("Naranja");
    case 3: return QStringLiteral("Amarillo");
    case 4: return QStringLiteral("Verde");
    case 5: return QStringLiteral("Azul");
    case 6: return QStringLiteral("Morado");
    case 7: return QStringLiteral("Rosa");
    case 8: return QStringLiteral("Gris");
    default: return QStringLiteral("Sin color");
    }
}

// Invalid for 0 (no label).
inline QColor color(int n)
{
    switch (n) {
    case 1: return QColor(0xe5, 0x48, 0x4d);
    case 2: return QColor(0xf0, 0x8c, 0x2e);
    case 3: return QColor(0xe8, 0xc3, 0x2a);
    case 4: return QColor(0x3f, 0xb9, 0x50);
    case 5: return QColor(0x3b, 0x82, 0xf6);
    case 6: return QColor(0xa3, 0x71, 0xf7);
    case 7: return QColor(0xf7, 0x78, 0xba);
    case 8: return QColor(0x9a, 0xa0, 0xa6);
    default: return QColor();
    }
}

} // namespace LabelColors
