#pragma once
// Memory cards: mounted volumes under /media, /run/media/$USER or /mnt that are not the root file
// system and hold a top-level "DCIM" (any case). Pure functions: safe on any thread.
#include <QList>
#include <QString>
#include <QStringList>

struct CardVolume {
    QString root;                 // mount point, e.g. "/media/ana/EOS_DIGITAL"
    QString name;                 // the volume's label, else the mount point's last component
    QString device;               // "/dev/sdb1" when known (for ejecting)
};

struct MountInfo {
    QString root;                 // mount point
    QString name;                 // label ("" when none)
    QString device;
    bool isRoot = false;          // the root file system
    bool ready = true;
};

namespace CardFinder {

// The mounted volumes as QStorageInfo reports them.
QList<MountInfo> mountedVolumes();
// Where the desktop mounts removable volumes.
inline const QStringList kRemovableRoots{QStringLiteral("/media"), QStringLiteral("/run/media"), QStringLiteral("/mnt")};

// The cards among `mounts` (the real mounts by default), in mount-point order. Only mount points
// inside `removableRoots` are considered.
QList<CardVolume> findCards(const QList<MountInfo> &mounts, const QStringList &removableRoots = kRemovableRoots);
QList<CardVolume> findCards();
// Whether a mount point lies inside one of `removableRoots`.
bool isRemovableMountPoint(const QString &root, const QStringList &removableRoots = kRemovableRoots);
// Whether `folder` holds an entry named DCIM (names compared in upper case).
bool hasDcim(const QString &folder);

inline constexpr char kNoCardText[] = "No hay ninguna tarjeta conectada.";

} // namespace CardFinder
