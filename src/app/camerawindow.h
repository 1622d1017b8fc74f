#pragma once
// "Cámara": live reception over wifi. What to type into the camera's FTP menu (this computer's
// addresses, port, user and password with a copy button), the destination folder, wifi on and
// off, and what is happening: the status, how many files arrived and the last one's name. A
// window of its own, not a dialog: reception goes on while the photographer culls, and the
// receiving itself belongs to the CameraHub, which outlives the window. GUI thread only.
#include <QWidget>

class AppState;
class CameraHub;
class QCheckBox;
class QLabel;
class QPushButton;
class QSpinBox;

class CameraWindow : public QWidget
{
    Q_OBJECT
public:
    CameraWindow(CameraHub &hub, AppState &state, QWidget *parent = nullptr);

    // The widgets a user reads and clicks, for the tests.
    QCheckBox *wifiSwitch() const { return _wifi; }
    QLabel *statusLabel() const { return _status; }
    QLabel *receivedLabel() const { return _received; }
    QLabel *lastNameLabel() const { return _lastName; }
    QLabel *refusedLabel() const { return _refused; }
    QLabel *passwordLabel() const { return _password; }
    QLabel *addressesLabel() const { return _addresses; }
    QLabel *destinationLabel() const { return _destination; }
    QPushButton *copyButton() const { return _copy; }
    QPushButton *openInBrowserButton() const { return _openInBrowser; }

protected:
    void showEvent(QShowEvent *event) override;

private:
    void refresh();
    void refreshAddresses();
    void chooseDestination();

    CameraHub &_hub;
    AppState &_state;
    QCheckBox *_wifi;
    QLabel *_status;
    QLabel *_addresses;
    QSpinBox *_port;
    QLabel *_user;
    QLabel *_password;
    QPushButton *_copy;
    QLabel *_renewed;
    QLabel *_portHint;
    QLabel *_destination;
    QPushButton *_choose;
    QPushButton *_useOpenFolder;
    QLabel *_received;
    QLabel *_lastName;
    QLabel *_refused;
    QPushButton *_openInBrowser;
};
