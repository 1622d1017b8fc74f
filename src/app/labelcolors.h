#pragma once
// The colour labels as the window paints them, from the one table of names and tints.
#include "model/colorlabel.h"

#include <QColor>
#include <QString>

namespace LabelColors {

inline constexpr int kCount = ColorLabel::kCount;

inline QString name(int n) { return ColorLabel::name(n); }

// Invalid for 0 (no label).
inline QColor color(int n)
{
    if (n < 1 || n > kCount)
        return QColor();
    return QColor::fromRgb(QRgb(ColorLabel::kTable[size_t(n)].rgb));
}

} // namespace LabelColors
