#pragma once
#include <QString>

// Natural order of names, as a photographer reads them: digit runs compare by value
// ("IMG_2" before "IMG_10"), letters without regard to case or accents. Returns <0, 0, >0.
int naturalCompare(const QString &a, const QString &b);
inline bool naturalLess(const QString &a, const QString &b) { return naturalCompare(a, b) < 0; }
