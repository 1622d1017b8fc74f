// The kind of disk under a folder: mountinfo parsing and the mount lookup on made-up text, the
// sysfs walk on a made-up /sys, and the real system's own volumes.
#include "imaging/diskkind.h"
#include "testenv.h"

#include <QtTest>

namespace {

const QByteArray kMountInfo =
    "21 26 0:20 / /proc rw,relatime - proc proc rw\n"
    "26 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw,errors=remount-ro\n"
    "40 26 0:50 / /mnt/nas rw,relatime shared:5 - nfs4 server:/export rw,vers=4.2\n"
    "41 26 0:51 / /home/ana/My\\040Photos rw,nosuid shared:7 master:2 - fuse.sshfs ana@host:/photos rw\n"
    "42 26 8:17 / /media/ana/CARD rw,nosuid master:3 - vfat /dev/sdb1 rw\n"
    "43 42 8:18 / /media/ana/CARD rw - exfat /dev/sdb2 rw\n"
    "44 26 0:52 / /mnt/nasty rw - cifs //srv/share rw\n"
    "this line is not a mount\n"
    "46 26 x:y / /broken rw - ext4 /dev/sdz rw\n"
    "\n"
    "45 26 259:2 / /data rw,noatime - xfs /dev/nvme0n1p2 rw\n";

MountEntry mount(const QString &type, unsigned major, unsigned minor, const QString &source = QString())
{
    MountEntry m;
    m.mountPoint = QStringLiteral("/x");
    m.fsType = type;
    m.source = source;
    m.major = major;
    m.minor = minor;
    return m;
}

bool write(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

} // namespace

class TestDiskKind : public QObject
{
    Q_OBJECT

    QTemporaryDir sys;   // a made-up /sys

private slots:
    void initTestCase()
    {
        TestEnv::isolate();
        QVERIFY(sys.isValid());
        const QString s = sys.path();
        // A spinning SATA disk with a partition, an NVMe SSD with one, a device-mapper volume,
        // and a disk whose flag can't be read.
        QVERIFY(write(s + "/devices/pci0/ata1/block/sda/queue/rotational", "1\n"));
        QVERIFY(write(s + "/devices/pci0/ata1/block/sda/sda1/partition", "1\n"));
        QVERIFY(write(s + "/devices/pci1/nvme/block/nvme0n1/queue/rotational", "0\n"));
        QVERIFY(write(s + "/devices/pci1/nvme/block/nvme0n1/nvme0n1p2/partition", "2\n"));
        QVERIFY(write(s + "/devices/virtual/block/dm-0/queue/rotational", "0\n"));
        QVERIFY(write(s + "/devices/pci2/block/sdc/queue/rotational", "maybe\n"));
        QDir().mkpath(s + "/dev/block");
        QVERIFY(QFile::link("../../devices/pci0/ata1/block/sda", s + "/dev/block/8:0"));
        QVERIFY(QFile::link("../../devices/pci0/ata1/block/sda/sda1", s + "/dev/block/8:1"));
        QVERIFY(QFile::link("../../devices/pci1/nvme/block/nvme0n1/nvme0n1p2", s + "/dev/block/259:2"));
        QVERIFY(QFile::link("../../devices/virtual/block/dm-0", s + "/dev/block/254:0"));
        QVERIFY(QFile::link("../../devices/pci2/block/sdc", s + "/dev/block/8:32"));
    }

    void parse()
    {
        const QList<MountEntry> mounts = parseMountInfo(kMountInfo);
        QCOMPARE(mounts.size(), 8);
        QCOMPARE(mounts[1].major, 8u);
        QCOMPARE(mounts[1].minor, 1u);
        QCOMPARE(mounts[1].source, QStringLiteral("/dev/sda1"));
        QCOMPARE(mounts[3].source, QStringLiteral("ana@host:/photos"));   // after two optional fields
        QCOMPARE(mounts[7].major, 259u);
        QVERIFY(parseMountInfo(QByteArray()).isEmpty());
        QVERIFY(parseMountInfo("1 2 3\n- - -\n\\\\\\").isEmpty());
    }

    void lookup_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("mountPoint");
        QTest::addColumn<QString>("type");
        QTest::newRow("home") << "/home/ana/Pictures" << "/" << "ext4";
        QTest::newRow("inside the share") << "/mnt/nas/2024/boda" << "/mnt/nas" << "nfs4";
        QTest::newRow("a longer name is not inside") << "/mnt/nasty/x" << "/mnt/nasty" << "cifs";
        QTest::newRow("prefix of a name is not inside") << "/mnt/na" << "/" << "ext4";
        QTest::newRow("space in the mount point") << "/home/ana/My Photos/2024" << "/home/ana/My Photos" << "fuse.sshfs";
        QTest::newRow("mounted on top wins") << "/media/ana/CARD/DCIM" << "/media/ana/CARD" << "exfat";
    }
    void lookup()
    {
        QFETCH(QString, path);
        QFETCH(QString, mountPoint);
        QFETCH(QString, type);
        const auto m = mountFor(parseMountInfo(kMountInfo), path);
        QVERIFY(m.has_value());
        QCOMPARE(m->mountPoint, mountPoint);
        QCOMPARE(m->fsType, type);
        QVERIFY(!mountFor({}, path).has_value());
    }

    void blockDevices_data()
    {
        QTest::addColumn<unsigned>("major");
        QTest::addColumn<unsigned>("minor");
        QTest::addColumn<int>("kind");
        QTest::newRow("spinning disk") << 8u << 0u << int(DiskKind::rotational);
        QTest::newRow("its partition") << 8u << 1u << int(DiskKind::rotational);
        QTest::newRow("nvme partition") << 259u << 2u << int(DiskKind::ssd);
        QTest::newRow("device mapper") << 254u << 0u << int(DiskKind::ssd);
        QTest::newRow("unreadable flag") << 8u << 32u << int(DiskKind::unknown);
        QTest::newRow("no such device") << 9u << 9u << int(DiskKind::unknown);
        QTest::newRow("anonymous device") << 0u << 40u << int(DiskKind::unknown);
    }
    void blockDevices()
    {
        QFETCH(unsigned, major);
        QFETCH(unsigned, minor);
        QFETCH(int, kind);
        QCOMPARE(int(diskKindOfMount(mount("ext4", major, minor), sys.path())), kind);
    }

    void realSystem()
    {
        QCOMPARE(diskKindFor("/proc"), DiskKind::unknown);
        QCOMPARE(diskKindFor("/proc/self"), DiskKind::unknown);
        if (QFileInfo("/dev/shm").isDir())
            QCOMPARE(diskKindFor("/dev/shm"), DiskKind::unknown);   // tmpfs
        // The build folder's own disk: any kind, but an answer.
        const DiskKind here = diskKindFor(QCoreApplication::applicationDirPath());
        QVERIFY(QStringList({"ssd", "rotational", "network", "unknown"}).contains(diskKindName(here)));
        QCOMPARE(diskKindFor(QCoreApplication::applicationDirPath() + "/no/such/folder"), here);
        diskKindFor(QString());
        diskKindFor("relative/path");
    }
};

QTEST_GUILESS_MAIN(TestDiskKind)
#include "tst_diskkind.moc"
