#pragma once
// The colour labels c1…c8: the name the window shows and the tint it paints, in one table that
// the window, the sidecar labels and the README follow. The order is the one Lightroom's and
// Bridge's label lists use for colours 1…5, so a shot marked yellow here arrives yellow there.
// Index 0 is "no colour". Pure data: safe on any thread.
#include <QString>
#include <array>

namespace ColorLabel {

inline constexpr int kCount = 8;

struct Entry {
    const char16_t *name;
    unsigned rgb;          // 0xRRGGBB; colour is the interface's only hue, saturated but never neon
};

inline constexpr std::array<Entry, kCount + 1> kTable = {{
    {u"Sin color", 0},
    {u"Rojo", 0xe5484d},
    {u"Amarillo", 0xe8c32a},
    {u"Verde", 0x3fb950},
    {u"Azul", 0x3b82f6},
    {u"Morado", 0xa371f7},
    {u"Naranja", 0xf08c2e},
    {u"Rosa", 0xf778ba},
    {u"Gris", 0x9aa0a6},
}};

// "Sin color" for 0 and anything out of range.
inline QString name(int n)
{
    return QString::fromUtf16(kTable[(n >= 1 && n <= kCount) ? size_t(n) : 0].name);
}

} // namespace ColorLabel
