#pragma once
#include <QHashFunctions>

// A shot's colour label: none or c1…c8 (raw values 0…8).
enum class ColorClass : int { none = 0, c1, c2, c3, c4, c5, c6, c7, c8 };

inline size_t qHash(ColorClass c, size_t seed = 0) noexcept { return ::qHash(int(c), seed); }

inline ColorClass colorClassFromInt(int v) { return (v >= 1 && v <= 8) ? ColorClass(v) : ColorClass::none; }
