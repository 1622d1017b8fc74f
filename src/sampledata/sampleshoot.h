#pragma once
// The sample shoot: a small generated wedding (JPEGs from four cameras, RAW+JPEG pairs, RAWs alone
// with a sidecar, HEIC, PNG, a short video, a subfolder and a stray text file) to try Corvane
// without a card at hand. Everything is drawn here, the same bytes on every run.
#include <QString>
#include <functional>

namespace SampleShoot {

// The hidden file that marks a folder as a sample shoot, so it can be generated again in place.
inline constexpr char kMarkerName[] = ".corvane-sample-shoot";

// Writes the sample shoot into `dir`, which is created when missing and must be empty or a previous
// sample shoot. `progress` runs on the calling thread after each step. Blocks for a few seconds.
// Returns an empty string on success, else one Spanish sentence saying what failed.
QString generate(const QString &dir, std::function<void(int done, int total)> progress = {});

} // namespace SampleShoot
