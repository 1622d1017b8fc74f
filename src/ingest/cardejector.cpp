#include "cardejector.h"

#include "cardfinder.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QStorageInfo>
#include <QVariantMap>

namespace CardEjector {
namespace {

const QString kService = QStringLiteral("org.freedesktop.UDisks2");

QString failure(const QString &why) { return QStringLiteral("No se pudo expulsar la tarjeta: %1.").arg(why); }

// UDisks2 names a block device's object after the kernel name, with every byte that is not a
// letter or digit written as "_xx" (hex).
QString blockObjectPath(const QString &device)
{
    const QString kernelName = QFileInfo(QFileInfo(device).canonicalFilePath()).fileName();
    QString escaped;
    for (const char c : kernelName.toUtf8()) {
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
            escaped += QLatin1Char(c);
        else
            escaped += QStringLiteral("_%1").arg(uint(uchar(c)), 2, 16, QLatin1Char('0'));
    }
    return QStringLiteral("/org/freedesktop/UDisks2/block_devices/") + escaped;
}

// "" on success; std::nullopt when UDisks2 is not there to ask.
std::optional<QString> ejectWithUDisks(const QString &device)
{
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected())
        return std::nullopt;
    const QString object = blockObjectPath(device);
    QDBusInterface fs(kService, object, QStringLiteral("org.freedesktop.UDisks2.Filesystem"), bus);
    if (!fs.isValid())
        return std::nullopt;
    fs.setTimeout(120000);   // unmounting waits for the card's pending writes
    const QDBusMessage unmount = fs.call(QStringLiteral("Unmount"), QVariantMap{});
    if (unmount.type() == QDBusMessage::ErrorMessage)
        return failure(unmount.errorMessage().isEmpty() ? unmount.errorName() : unmount.errorMessage());

    // Unmounted is already safe to pull out; powering the reader off is a courtesy.
    QDBusInterface block(kService, object, QStringLiteral("org.freedesktop.UDisks2.Block"), bus);
    const QDBusObjectPath drive = block.property("Drive").value<QDBusObjectPath>();
    if (drive.path().isEmpty() || drive.path() == QLatin1String("/"))
        return QString();
    QDBusInterface drv(kService, drive.path(), QStringLiteral("org.freedesktop.UDisks2.Drive"), bus);
    drv.setTimeout(60000);
    if (drv.property("CanPowerOff").toBool())
        drv.call(QStringLiteral("PowerOff"), QVariantMap{});
    else if (drv.property("Ejectable").toBool())
        drv.call(QStringLiteral("Eject"), QVariantMap{});
    return QString();
}

QString runTool(const QString &program, const QStringList &args)
{
    QProcess p;
    p.start(program, args);
    if (!p.waitForFinished(120000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        const QString err = QString::fromLocal8Bit(p.readAllStandardError()).trimmed();
        return err.isEmpty() ? QStringLiteral("«%1» no terminó bien").arg(program) : err;
    }
    return {};
}

} // namespace

QString eject(const QString &path)
{
    const QStorageInfo volume(path);
    if (!volume.isValid() || !volume.isReady())
        return failure(QStringLiteral("no se encuentra el volumen"));
    const QString device = QString::fromLocal8Bit(volume.device());
    const QString mountPoint = volume.rootPath();
    // Never unmount a system or data disk that only happens to hold the chosen folder.
    if (volume.isRoot() || !CardFinder::isRemovableMountPoint(mountPoint))
        return failure(QStringLiteral("la carpeta de origen no está en una tarjeta"));

    if (device.startsWith(QLatin1String("/dev/")))
        if (const std::optional<QString> r = ejectWithUDisks(device))
            return *r;

    // No D-Bus (a bare session): the command-line tools do the same through their own routes.
    if (device.startsWith(QLatin1String("/dev/")) && !QStandardPaths::findExecutable(QStringLiteral("udisksctl")).isEmpty()) {
        const QString err = runTool(QStringLiteral("udisksctl"), {QStringLiteral("unmount"), QStringLiteral("-b"), device});
        if (!err.isEmpty())
            return failure(err);
        runTool(QStringLiteral("udisksctl"), {QStringLiteral("power-off"), QStringLiteral("-b"), device});
        return {};
    }
    if (!QStandardPaths::findExecutable(QStringLiteral("gio")).isEmpty()) {
        const QString err = runTool(QStringLiteral("gio"), {QStringLiteral("mount"), QStringLiteral("-e"), mountPoint});
        return err.isEmpty() ? QString() : failure(err);
    }
    return failure(QStringLiteral("no hay ningún servicio de discos (UDisks2) que lo haga"));
}

} // namespace CardEjector
