#pragma once
// Finds the JPEG previews cameras embed in RAW files, by parsing the container (TIFF and its
// Panasonic/Olympus variants, Fuji's header) and, as a last resort, by searching the bytes.
// Reads headers and marker segments only; never decodes pixels. Bounded work on hostile input.
// Pure functions: safe on any thread.
#include <QByteArray>
#include <QList>
#include <QString>
#include <cstdint>
#include <optional>

namespace RawPreview {

struct Candidate {
    qint64 start = 0, end = 0;      // half-open byte range inside the file (end of file: end unknown)
    int width = 0, height = 0;      // from the JPEG's own frame header
    std::optional<int> exifOrientation;
    bool hasKnownEnd = false;       // end from a declared length; else found by walking the JPEG
    int longSide() const { return width > height ? width : height; }
};

inline constexpr int kFloor = 200;           // a thumbnail this small never serves as a preview
inline constexpr int kWorkBudget = 20000;

QList<Candidate> findCandidates(const uint8_t *data, qint64 size);
std::optional<Candidate> largest(const QList<Candidate> &candidates);
std::optional<Candidate> bestFit(const QList<Candidate> &candidates, int minLong);
// The longest complete JPEG found by scanning for FF D8 FF; [start, end).
std::optional<std::pair<qint64, qint64>> searchJPEG(const uint8_t *data, qint64 size);
// Where the JPEG starting at `start` ends (walking its markers and entropy data), or absent.
std::optional<qint64> jpegEnd(const uint8_t *data, qint64 size, qint64 start);

struct Embedded {
    QByteArray jpeg;                 // the chosen JPEG's bytes
    QString label;                   // "JPEG del RAW" or "JPEG del RAW (búsqueda)"
    std::optional<int> orientation;  // the container's orientation for it
    int longSide = 0;                // of the pick (0 for the byte search)
};
// embeddedJPEG()'s pick on bytes already in memory: the candidate with its end resolved, and the
// label. For the byte search the size comes from the JPEG's frame header, and longSide is 0.
struct Choice {
    Candidate candidate;
    QString label;
    int longSide = 0;
};
std::optional<Choice> choose(const uint8_t *data, qint64 size, int viewSize, int minLong, bool fit, bool allowSearch);

// The embedded JPEG to show at `size`: the best fit (or the largest), at least `minLong` pixels
// (or the 200-pixel floor when minLong ≤ 200); the byte search when allowed and nothing fits.
// Memory-maps the file.
std::optional<Embedded> embeddedJPEG(const QString &path, int size, int minLong, bool fit, bool allowSearch);

} // namespace RawPreview
