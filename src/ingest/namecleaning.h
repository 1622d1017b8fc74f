#pragma once
// Cleaning of names made from user or camera text, so that no name can hide a file, climb out of
// its folder, reverse its text on screen or overflow a file system's name limit.
#include <QString>

namespace NameCleaning {

// Per Unicode scalar: drops controls (below U+0020, U+007F), the direction marks U+200E/U+200F,
// embeddings and overrides U+202A–U+202E and isolates U+2066–U+2069; turns "/" and ":" into "-";
// keeps everything else; then trims white space at both ends.
QString component(const QString &text);

// A whole name: component cleaning, leading dots removed, trimmed, and cut to at most
// kMaxNameBytes bytes of UTF-8 by removing whole characters (grapheme clusters) from the end.
QString name(const QString &text);

inline constexpr int kMaxNameBytes = 200;
// What a file system takes for one file name (ext4, XFS, Btrfs, exFAT in UTF-8…).
inline constexpr int kMaxFileNameBytes = 255;

int utf8Bytes(const QString &text);
// `text` cut to at most `maxBytes` bytes of UTF-8 by removing whole characters from the end.
QString fit(const QString &text, int maxBytes);

} // namespace NameCleaning
