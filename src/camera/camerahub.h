#pragma once
// The owner of live reception and of what the camera window shows. For wifi it starts and stops
// the FTP receiver, turns its events into status texts, counts what arrives and hands each stored
// file on through `fileReceived` (the browser groups it into the open folder, marked new). GUI thread only; the
// receiver's events reach it queued. (The USB cable path comes later; its fields stay off.)
#include "ftpevent.h"
#include "ftplimits.h"

#include <QHostAddress>
#include <QObject>
#include <QString>
#include <memory>

class FTPReceiver;

class CameraHub : public QObject
{
    Q_OBJECT
public:
    // `destination` is where files go until setDestination says otherwise (the open folder).
    explicit CameraHub(const QString &destination = {}, QObject *parent = nullptr);
    ~CameraHub() override;

    bool usbOn() const { return _usbOn; }
    QString usbStatus() const { return _usbStatus; }
    bool wifiOn() const { return _wifiOn; }
    QString wifiStatus() const { return _wifiStatus; }
    int port() const { return _port; }
    QString user() const { return _user; }
    QString password() const { return _password; }
    bool passwordRenewed() const { return _passwordRenewed; }
    QString destination() const { return _destination; }
    int received() const { return _received; }
    QString lastName() const { return _lastName; }
    QString autoServer() const { return _autoServer; }
    // Uploads that were not kept (cut short, empty, no room…) and the last one, "NAME: reason".
    int refused() const { return _refused; }
    QString lastRefusal() const { return _lastRefusal; }
    // The port the receiver listens on once it is ready (the system's choice for port 0).
    quint16 listeningPort() const;

    // Turns wifi reception on or off; on needs a destination folder. The switch is remembered
    // ("cam.wifiOn"), and so is the destination ("cam.destination"), for the next start.
    void setWifiOn(bool on);
    // Turns wifi on when it was on when Corvane last ended (called once at start).
    void restoreReception();
    // Stored under "cam.ftpPort" unless `remember` is false (a port for this run only); a
    // running receiver moves to the new port.
    void setPort(int port, bool remember = true);
    // Where received files go; a running receiver moves to the new folder.
    void setDestination(const QString &folder);
    // The upload server (its id) that received files are forwarded to, stored under
    // "cam.autoServer"; empty: none.
    void setAutoServer(const QString &serverId);
    // A new password, stored under "cam.ftpPassword" (for one that was seen by someone else); a
    // running receiver takes it at once, so the camera must be given it too.
    void renewPassword();

    // For the tests: short time-outs, a loopback-only listener.
    void setLimits(const FTPLimits &limits) { _limits = limits; }
    void setListenAddress(const QHostAddress &address) { _address = address; }

signals:
    void changed();
    // Every status text as it is set, even when it repeats the one before (the command line
    // prints each).
    void wifiStatusChanged(const QString &text);
    void fileReceived(const QString &path);

private:
    void restartIfOn();
    void startReceiver();
    void stopReceiver();
    void handle(quint64 generation, const FTPEvent &event);
    void setWifiStatus(const QString &text);

    // Fields in the order of the design.
    bool _usbOn = false;
    QString _usbStatus;
    bool _wifiOn = false;
    QString _wifiStatus;
    int _port = 21;
    QString _user = QStringLiteral("corvane");
    QString _password;
    bool _passwordRenewed = false;
    QString _destination;
    int _received = 0;
    QString _lastName;
    QString _autoServer;
    std::unique_ptr<FTPReceiver> _receiver;
    int _refused = 0;
    QString _lastRefusal;

    FTPLimits _limits;
    QHostAddress _address = QHostAddress::Any;
    quint64 _generation = 0;   // status events of a receiver that was replaced are dropped
};
