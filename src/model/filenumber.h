#pragma once
// The number a photographer reads in a file name: "DSC_0533" is shot 533.
#include <QStringView>
#include <optional>

// The last run of ASCII digits of `name`, at most its last 9 digits, as an integer; nothing when
// the name has no digit. "IMG_20240518_0012" → 12, "foto123456789012" → 456789012.
std::optional<int> fileNumber(QStringView name);
