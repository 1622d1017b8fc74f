#include "camerahub.h"

#include "ftppassword.h"
#include "ftpreceiver.h"
#include "util/settings.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>

CameraHub::CameraHub(const QString &destination, QObject *parent)
    : QObject(parent)
    , _destination(destination)
{
    QSettings settings;
    _port = Settings::camFtpPort.get();
    if (_port < 0 || _port > 65535)
        _port = 21;
    const FTPPassword::Loaded loaded = FTPPassword::load(settings);
    _password = loaded.password;
    _passwordRenewed = loaded.renewed;
    _autoServer = Settings::camAutoServer.get();
    // The folder chosen before wins over the open one.
    if (const QString chosen = Settings::camDestination.get(); !chosen.isEmpty())
        _destination = chosen;
    _wifiStatus = QStringLiteral("Wifi apagado.");
}

CameraHub::~CameraHub()
{
    stopReceiver();
}

quint16 CameraHub::listeningPort() const
{
    return _receiver ? _receiver->port() : 0;
}

void CameraHub::setWifiOn(bool on)
{
    if (on == _wifiOn)
        return;
    if (!on) {
        stopReceiver();
        _wifiOn = false;
        Settings::camWifiOn.set(false);
        setWifiStatus(QStringLiteral("Wifi apagado."));
        return;
    }
    if (_destination.isEmpty()) {
        setWifiStatus(QStringLiteral("Elige primero la carpeta donde guardar las imágenes."));
        return;
    }
    if (!QFileInfo(_destination).isDir() && !QDir().mkpath(_destination)) {
        setWifiStatus(QStringLiteral("No se puede crear la carpeta «%1».").arg(_destination));
        return;
    }
    _wifiOn = true;
    Settings::camWifiOn.set(true);
    startReceiver();
}

void CameraHub::restoreReception()
{
    if (Settings::camWifiOn.get())
        setWifiOn(true);
}

void CameraHub::setPort(int port, bool remember)
{
    if (port < 0 || port > 65535 || port == _port)
        return;
    _port = port;
    if (remember)
        Settings::camFtpPort.set(port);
    restartIfOn();
}

void CameraHub::setDestination(const QString &folder)
{
    const QString clean = folder.isEmpty() ? QString() : QDir::cleanPath(QFileInfo(folder).absoluteFilePath());
    if (clean == _destination)
        return;
    _destination = clean;
    Settings::camDestination.set(clean);
    restartIfOn();
}

void CameraHub::setAutoServer(const QString &serverId)
{
    if (serverId == _autoServer)
        return;
    _autoServer = serverId;
    if (serverId.isEmpty())
        Settings::camAutoServer.clear();
    else
        Settings::camAutoServer.set(serverId);
    emit changed();
}

void CameraHub::renewPassword()
{
    _password = FTPPassword::generate();
    Settings::camFtpPassword.set(_password);
    _passwordRenewed = false;   // that notice was about a password the user had not chosen to change
    restartIfOn();
}

// A running receiver is replaced by one with the new settings; otherwise they wait for wifi on.
void CameraHub::restartIfOn()
{
    if (_wifiOn) {
        stopReceiver();
        startReceiver();
    } else {
        emit changed();
    }
}

void CameraHub::startReceiver()
{
    const quint64 generation = ++_generation;
    _receiver = std::make_unique<FTPReceiver>(_destination, _user, _password, quint16(_port), _limits, _address);
    _receiver->onEvent = [this, generation](const FTPEvent &event) {
        QMetaObject::invokeMethod(this, [this, generation, event] { handle(generation, event); }, Qt::QueuedConnection);
    };
    _receiver->start();
    setWifiStatus(QStringLiteral("Abriendo el servidor FTP…"));
}

void CameraHub::stopReceiver()
{
    ++_generation;
    if (_receiver) {
        _receiver->stop();
        _receiver.reset();
    }
}

void CameraHub::handle(quint64 generation, const FTPEvent &event)
{
    // A receiver that was replaced (new port, folder or password) has nothing more to say, but
    // a file it stored before it went is in the folder all the same.
    if (generation != _generation && event.kind != FTPEvent::Kind::file)
        return;
    switch (event.kind) {
    case FTPEvent::Kind::ready:
        setWifiStatus(QStringLiteral("Esperando a la cámara en el puerto %1.").arg(listeningPort()));
        break;
    case FTPEvent::Kind::failed:
        stopReceiver();
        _wifiOn = false;
        setWifiStatus(event.text);
        break;
    case FTPEvent::Kind::client:
        setWifiStatus(QStringLiteral("Cámara conectada desde %1.").arg(event.text));
        break;
    case FTPEvent::Kind::warning:
        setWifiStatus(event.text);
        break;
    case FTPEvent::Kind::refused:
        ++_refused;
        _lastRefusal = event.text;
        emit changed();
        break;
    case FTPEvent::Kind::file: {
        ++_received;
        _lastName = QFileInfo(event.text).fileName();
        emit fileReceived(event.text);
        setWifiStatus(QStringLiteral("Recibida %1.").arg(_lastName));
        break;
    }
    }
}

void CameraHub::setWifiStatus(const QString &text)
{
    _wifiStatus = text;
    emit wifiStatusChanged(text);
    emit changed();
}
