#pragma once
// An exFAT file system, as on a memory card (names compared without regard to case), mounted over
// FUSE from a loop device in a temporary folder. Needs root, /dev/fuse, a free loop device and
// exfat-fuse/exfatprogs; `path()` is empty when the machine cannot, and the test skips.
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

class ExfatCard
{
public:
    explicit ExfatCard(int megabytes = 64)
    {
        if (QStandardPaths::findExecutable("mkfs.exfat").isEmpty() || QStandardPaths::findExecutable("mount.exfat-fuse").isEmpty()
            || QStandardPaths::findExecutable("losetup").isEmpty())
            return;
        const QString image = _dir.filePath("card.img");
        const QString mountPoint = _dir.filePath("card");
        QDir().mkpath(mountPoint);
        if (!run("truncate", {"-s", QStringLiteral("%1M").arg(megabytes), image}) || !run("mkfs.exfat", {image}))
            return;
        QProcess lo;
        lo.start("losetup", {"-f", "--show", image});
        if (!lo.waitForFinished(10000) || lo.exitCode() != 0)
            return;
        _loop = QString::fromLocal8Bit(lo.readAllStandardOutput()).trimmed();
        if (!run("mount.exfat-fuse", {_loop, mountPoint}))
            return;
        _path = mountPoint;
    }
    ~ExfatCard()
    {
        if (!_path.isEmpty())
            run("umount", {_path});
        if (!_loop.isEmpty())
            run("losetup", {"-d", _loop});
    }
    ExfatCard(const ExfatCard &) = delete;
    ExfatCard &operator=(const ExfatCard &) = delete;

    QString path() const { return _path; }

private:
    static bool run(const QString &program, const QStringList &args)
    {
        QProcess p;
        p.start(program, args);
        return p.waitForFinished(20000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
    }

    QTemporaryDir _dir;
    QString _loop, _path;
};
