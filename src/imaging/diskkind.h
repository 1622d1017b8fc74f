#pragma once
#include <QByteArray>
#include <QList>
#include <QString>
#include <optional>

// The kind of disk that holds a folder; the pipeline sizes its queues from it.
enum class DiskKind { ssd, rotational, network, unknown };

// Decided from the volume under the folder: network and FUSE file systems (nfs, cifs, smb,
// sshfs…) are `network`; a block device is `rotational` or `ssd` by /sys/block/*/queue/rotational.
DiskKind diskKindFor(const QString &folder);
QString diskKindName(DiskKind k);

// The pieces, for tests: one line of /proc/self/mountinfo, the mount that holds a path (the
// longest mount point that is a whole-component prefix; the later line wins on equal ones, it is
// mounted on top), and a mount's kind with sysfs read from `sysRoot`.
struct MountEntry {
    QString mountPoint;   // octal escapes (\040 for a space) decoded
    QString fsType;       // "ext4", "nfs4", "fuse.sshfs", …
    QString source;       // "/dev/sda1", "server:/export", …
    unsigned major = 0, minor = 0;
};
QList<MountEntry> parseMountInfo(const QByteArray &text);
std::optional<MountEntry> mountFor(const QList<MountEntry> &mounts, const QString &absolutePath);
bool isNetworkFs(const QString &fsType);
DiskKind diskKindOfMount(const MountEntry &mount, const QString &sysRoot = QStringLiteral("/sys"));
