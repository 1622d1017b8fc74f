#pragma once
// Where marks are kept: one hidden file per folder (".corvane.json", the default and the fastest)
// or a sidecar beside each shot that other photo tools read. The setting "marksStorage" stores
// "folderFile" or "sidecar"; the command line says "json" or "sidecar". Any thread.
#include <QString>
#include <optional>

enum class MarksStorage { folderFile, sidecar };

namespace MarksStorageSetting {

MarksStorage get();
void set(MarksStorage storage);
// "json" or "sidecar", as `--storage` takes them.
std::optional<MarksStorage> fromOption(const QString &text);

} // namespace MarksStorageSetting
