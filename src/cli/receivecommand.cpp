#include "receivecommand.h"

#include "argparser.h"

#include "camera/camerahub.h"
#include "camera/ftppassword.h"
#include "camera/localaddresses.h"
#include "util/quitsignals.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <csignal>
#include <cstdio>

namespace {

void out(const QString &line)
{
    std::printf("%s\n", line.toUtf8().constData());
    std::fflush(stdout);
}

void err(const QString &line) { std::fprintf(stderr, "%s\n", line.toUtf8().constData()); }

} // namespace

int receiveCommand(const QStringList &args)
{
    ArgParser p({}, {"to", "port"});
    if (!p.parse(args) || !p.positional().isEmpty() || !p.has("to")) {
        if (!p.error().isEmpty())
            err(p.error());
        return 2;
    }
    int port = -1;
    if (p.has("port")) {
        bool ok = false;
        port = p.value("port").toInt(&ok);
        if (!ok || port < 0 || port > 65535) {
            err(QStringLiteral("El puerto debe ser un número entre 0 y 65535."));
            return 2;
        }
    }
    const QString folder = QDir::cleanPath(QFileInfo(p.value("to")).absoluteFilePath());
    if (!QFileInfo(folder).isDir() && !QDir().mkpath(folder)) {
        err(QStringLiteral("No se puede crear la carpeta «%1».").arg(folder));
        return 1;
    }

    ::signal(SIGPIPE, SIG_IGN);
    CameraHub hub;
    if (port >= 0)
        hub.setPort(port, false);
    hub.setDestination(folder);

    out(QStringLiteral("Recibiendo imágenes por wifi (FTP) en «%1»").arg(folder));
    const QStringList addresses = LocalAddresses::forCameras();
    out(QStringLiteral("Dirección de este ordenador: %1")
            .arg(addresses.isEmpty() ? QStringLiteral("ninguna (¿estás conectado a una red?)") : addresses.join(QStringLiteral(", "))));
    out(QStringLiteral("Puerto: %1").arg(hub.port()));
    out(QStringLiteral("Usuario: %1").arg(hub.user()));
    out(QStringLiteral("Contraseña: %1").arg(hub.password()));
    if (hub.passwordRenewed())
        out(FTPPassword::renewalNotice());
    out(QStringLiteral("Pulsa Ctrl+C para terminar."));

    int status = 0;
    const auto printing = QObject::connect(&hub, &CameraHub::wifiStatusChanged, &hub, [&](const QString &text) {
        if (!hub.wifiOn()) {   // the receiver could not start
            err(text);
            status = 1;
            QCoreApplication::quit();
            return;
        }
        out(text);
    });
    // A refused upload is worth a line of its own: the camera may show it as sent.
    int refusedShown = 0;
    const auto refusals = QObject::connect(&hub, &CameraHub::changed, &hub, [&] {
        if (hub.refused() == refusedShown)
            return;
        refusedShown = hub.refused();
        err(QStringLiteral("Rechazada: %1").arg(hub.lastRefusal()));
    });
    // Through the event loop, so the receiver closes its sessions and removes unfinished files.
    QuitSignals::install();
    hub.setWifiOn(true);
    if (status == 0 && hub.wifiOn())
        QCoreApplication::exec();
    QObject::disconnect(printing);
    QObject::disconnect(refusals);
    hub.setWifiOn(false);
    if (status == 0) {
        out(QStringLiteral("Recibidas en esta sesión: %1").arg(hub.received()));
        if (hub.refused() > 0)
            out(QStringLiteral("Rechazadas en esta sesión: %1").arg(hub.refused()));
    }
    return status;
}
