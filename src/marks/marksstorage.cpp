#include "marksstorage.h"

#include "util/settings.h"

namespace MarksStorageSetting {

MarksStorage get()
{
    return Settings::marksStorage.get() == QLatin1String("sidecar") ? MarksStorage::sidecar : MarksStorage::folderFile;
}

void set(MarksStorage storage)
{
    Settings::marksStorage.set(storage == MarksStorage::sidecar ? QStringLiteral("sidecar") : QStringLiteral("folderFile"));
}

std::optional<MarksStorage> fromOption(const QString &text)
{
    if (text == QLatin1String("json"))
        return MarksStorage::folderFile;
    if (text == QLatin1String("sidecar"))
        return MarksStorage::sidecar;
    return std::nullopt;
}

} // namespace MarksStorageSetting
