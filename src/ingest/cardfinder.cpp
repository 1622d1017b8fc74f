#include "cardfinder.h"

#include <QDir>
#include <QStorageInfo>

#include <algorithm>

namespace CardFinder {

QList<MountInfo> mountedVolumes()
{
    QList<MountInfo> out;
    const QList<QStorageInfo> volumes = QStorageInfo::mountedVolumes();
    for (const QStorageInfo &v : volumes) {
        MountInfo m;
        m.root = v.rootPath();
        m.name = v.name();
        m.device = QString::fromLocal8Bit(v.device());
        m.isRoot = v.isRoot();
        m.ready = v.isValid() && v.isReady();
        out.append(m);
    }
    return out;
}

bool isRemovableMountPoint(const QString &root, const QStringList &removableRoots)
{
    const QString r = QDir::cleanPath(root);
    for (const QString &base : removableRoots)
        if (r == base || r.startsWith(base + QLatin1Char('/')))
            return true;
    return false;
}

bool hasDcim(const QString &folder)
{
    const QStringList entries = QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    return std::any_of(entries.begin(), entries.end(),
                       [](const QString &e) { return e.toUpper() == QLatin1String("DCIM"); });
}

QList<CardVolume> findCards(const QList<MountInfo> &mounts, const QStringList &removableRoots)
{
    // A bind mount of the system disk under /mnt is still the root file system.
    QString rootDevice;
    for (const MountInfo &m : mounts)
        if (m.isRoot)
            rootDevice = m.device;

    QList<CardVolume> cards;
    for (const MountInfo &m : mounts) {
        if (m.isRoot || !m.ready || m.root == QLatin1String("/") || !isRemovableMountPoint(m.root, removableRoots))
            continue;
        if (!rootDevice.isEmpty() && m.device == rootDevice)
            continue;
        if (!hasDcim(m.root))
            continue;
        CardVolume c;
        c.root = QDir::cleanPath(m.root);
        c.name = m.name.isEmpty() ? c.root.mid(c.root.lastIndexOf(QLatin1Char('/')) + 1) : m.name;
        c.device = m.device;
        cards.append(c);
    }
    std::sort(cards.begin(), cards.end(), [](const CardVolume &a, const CardVolume &b) { return a.root < b.root; });
    return cards;
}

QList<CardVolume> findCards() { return findCards(mountedVolumes()); }

} // namespace CardFinder
