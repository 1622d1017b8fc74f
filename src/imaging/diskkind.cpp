#include "diskkind.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace {

// mountinfo writes space, tab, newline and backslash in paths as \ooo.
QString unescape(const QByteArray &field)
{
    QByteArray out;
    out.reserve(field.size());
    for (qsizetype i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size()) {
            const QByteArray digits = field.mid(i + 1, 3);
            bool ok = false;
            const int code = digits.toInt(&ok, 8);
            if (ok && digits.size() == 3 && code < 256) {
                out.append(char(code));
                i += 3;
                continue;
            }
        }
        out.append(field[i]);
    }
    return QString::fromUtf8(out);
}

QByteArray readSmallFile(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.read(4096) : QByteArray();
}

} // namespace

QList<MountEntry> parseMountInfo(const QByteArray &text)
{
    QList<MountEntry> mounts;
    for (const QByteArray &line : text.split('\n')) {
        const QList<QByteArray> f = line.simplified().split(' ');
        // id parent major:minor root mount-point options [optional…] - type source super-options
        const qsizetype dash = f.indexOf(QByteArray("-"), 6);
        if (f.size() < 6 || dash < 0 || dash + 2 >= f.size())
            continue;
        const QList<QByteArray> device = f[2].split(':');
        if (device.size() != 2)
            continue;
        MountEntry m;
        bool okMajor = false, okMinor = false;
        m.major = device[0].toUInt(&okMajor);
        m.minor = device[1].toUInt(&okMinor);
        if (!okMajor || !okMinor)
            continue;
        m.mountPoint = unescape(f[4]);
        m.fsType = QString::fromUtf8(f[dash + 1]);
        m.source = unescape(f[dash + 2]);
        if (m.mountPoint.startsWith(QLatin1Char('/')))
            mounts.append(m);
    }
    return mounts;
}

std::optional<MountEntry> mountFor(const QList<MountEntry> &mounts, const QString &path)
{
    std::optional<MountEntry> best;
    for (const MountEntry &m : mounts) {
        const QString &mp = m.mountPoint;
        const bool holds = mp == QLatin1String("/") || path == mp
                           || (path.startsWith(mp) && path.size() > mp.size() && path[mp.size()] == QLatin1Char('/'));
        if (holds && (!best || mp.size() >= best->mountPoint.size()))
            best = m;
    }
    return best;
}

bool isNetworkFs(const QString &type)
{
    static const QSet<QString> network{
        QStringLiteral("nfs"),   QStringLiteral("nfs4"),  QStringLiteral("cifs"),      QStringLiteral("smb3"),
        QStringLiteral("smbfs"), QStringLiteral("sshfs"), QStringLiteral("fuse.sshfs"), QStringLiteral("9p"),
        QStringLiteral("afs"),   QStringLiteral("davfs"), QStringLiteral("glusterfs"), QStringLiteral("ceph"),
    };
    // FUSE file systems mostly front a remote store (gvfs, rclone, s3fs…); fuseblk is a local disk.
    return network.contains(type) || type.startsWith(QLatin1String("fuse."));
}

DiskKind diskKindOfMount(const MountEntry &m, const QString &sysRoot)
{
    if (isNetworkFs(m.fsType))
        return DiskKind::network;
    unsigned major = m.major, minor = m.minor;
    // btrfs reports an anonymous device (0:n); its source still names the disk.
    if (major == 0 && m.source.startsWith(QLatin1String("/dev/"))) {
        struct stat st {};
        if (::stat(QFile::encodeName(m.source).constData(), &st) == 0 && S_ISBLK(st.st_mode)) {
            major = ::major(st.st_rdev);
            minor = ::minor(st.st_rdev);
        }
    }
    if (major == 0)   // tmpfs, proc, overlay…: no disk of their own
        return DiskKind::unknown;

    QString device = QFileInfo(sysRoot + QStringLiteral("/dev/block/%1:%2").arg(major).arg(minor)).canonicalFilePath();
    if (device.isEmpty())
        return DiskKind::unknown;
    // A partition has no queue of its own: its disk is the folder above.
    if (QFileInfo::exists(device + QStringLiteral("/partition")))
        device = QFileInfo(device).absolutePath();
    const QByteArray rotational = readSmallFile(device + QStringLiteral("/queue/rotational")).trimmed();
    if (rotational == "1")
        return DiskKind::rotational;
    if (rotational == "0")
        return DiskKind::ssd;
    return DiskKind::unknown;
}

DiskKind diskKindFor(const QString &folder)
{
    QString path = QFileInfo(folder).canonicalFilePath();
    if (path.isEmpty())
        path = QDir::cleanPath(QFileInfo(folder).absoluteFilePath());
    QFile info(QStringLiteral("/proc/self/mountinfo"));
    if (!info.open(QIODevice::ReadOnly))
        return DiskKind::unknown;
    const auto mount = mountFor(parseMountInfo(info.readAll()), path);
    return mount ? diskKindOfMount(*mount) : DiskKind::unknown;
}

QString diskKindName(DiskKind k)
{
    switch (k) {
    case DiskKind::ssd: return QStringLiteral("ssd");
    case DiskKind::rotational: return QStringLiteral("rotational");
    case DiskKind::network: return QStringLiteral("network");
    case DiskKind::unknown: break;
    }
    return QStringLiteral("unknown");
}
