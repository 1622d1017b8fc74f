#pragma once
// Every setting Corvane keeps in ~/.config/Corvane/Corvane.conf, its key and its default, in one
// place. Each `Setting` reads and writes through its own QSettings object, so any thread may use
// it (QSettings is reentrant). A value that is absent or of the wrong type reads as the default.
// The ingest.* family lives with its record (IngestSettings), which reads and writes it whole.
#include <QByteArray>
#include <QSettings>
#include <QString>
#include <QStringList>
#include <QVariant>

template <typename T>
struct Setting {
    const char *key;
    T fallback;

    T get() const
    {
        const QVariant v = QSettings().value(QLatin1String(key));
        if (!v.isValid())
            return fallback;
        if constexpr (std::is_same_v<T, int>) {
            bool ok = false;
            const int n = v.toInt(&ok);
            return ok ? n : fallback;
        } else if constexpr (std::is_same_v<T, bool>) {
            return v.toBool();
        } else {
            return v.value<T>();
        }
    }
    void set(const T &value) const { QSettings().setValue(QLatin1String(key), value); }
    void clear() const { QSettings().remove(QLatin1String(key)); }
    QString name() const { return QLatin1String(key); }
};

namespace Settings {
// Browsing
inline const Setting<QString> sortKey{"sortKey", QStringLiteral("name")};
inline const Setting<bool> sortAscending{"sortAscending", true};
inline const Setting<bool> autoAdvance{"general.autoAdvance", false};          // "Avanzar al marcar"
inline const Setting<QString> lastFolder{"general.lastFolder", {}};
inline const Setting<QStringList> recentFolders{"general.recentFolders", {}};   // newest first
inline constexpr int kRecentFolders = 10;
inline const Setting<QString> startFolder{"general.startFolder", {}};           // empty: the last one
// Marks
inline const Setting<QString> marksStorage{"marksStorage", QStringLiteral("folderFile")};   // or "sidecar"
// The xmp:Label texts of colours 1…5; any count but 5 means the default (XmpLabels).
inline const Setting<QStringList> adobeLabels{"adobeLabels", {}};
// Images
inline const Setting<QString> previewResolution{"previewResolution", QStringLiteral("screen")};
inline const Setting<int> prefetchAhead{"prefetchAhead", 3};
inline const Setting<int> cacheDays{"cacheDays", 90};                            // 0: no limit
// Sharpness
inline const Setting<QString> sharpSensitivity{"sharpSensitivity", QStringLiteral("normal")};
// Camera
inline const Setting<int> camFtpPort{"cam.ftpPort", 21};
inline const Setting<QString> camFtpPassword{"cam.ftpPassword", {}};
inline const Setting<QString> camAutoServer{"cam.autoServer", {}};
inline const Setting<bool> camWifiOn{"cam.wifiOn", false};              // reception on at the last switch
inline const Setting<QString> camDestination{"cam.destination", {}};     // empty: the open folder
// Upload: the server list as JSON (passwords apart, see SecretStore) and transfers at a time
inline const Setting<QString> fileOpsCopyFolder{"fileops.copyFolder", {}};   // "Copiar a…" last destination
inline const Setting<QString> fileOpsMoveFolder{"fileops.moveFolder", {}};
inline const Setting<bool> fileOpsVerify{"fileops.verify", false};           // SHA-256 of every copy

inline const Setting<QString> uploadServers{"upload.servers", {}};
inline const Setting<int> uploadParallel{"upload.parallel", 2};
// The window
inline const Setting<QByteArray> uiGeometry{"ui.geometry", {}};
inline const Setting<QByteArray> uiSplitter{"ui.splitter", {}};
inline const Setting<bool> uiInfoPanel{"ui.infoPanel", false};
inline const Setting<bool> uiFilterBar{"ui.filterBar", true};
inline const Setting<int> uiThumbSize{"ui.thumbSize", 0};                        // 0: the grid's own
// IPTC templates, by name: the last one applied to a selection, and the import's (empty: none)
inline const Setting<QString> iptcLastTemplate{"iptc.lastTemplate", {}};
inline const Setting<QString> ingestIptc{"ingest.iptcTemplate", {}};
} // namespace Settings
