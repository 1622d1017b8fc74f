#pragma once
// The upload servers, set up and tested: a list on the left, the chosen server's fields on the
// right, "Comprobar" (a login and a listing of the folder, off the GUI thread), the offer to trust
// a self-signed certificate by its key, and where the camera's received files are forwarded.
// A page of Ajustes and the body of Herramientas › Servidores…. GUI thread only.
#include "upload/uploadserver.h"

#include <QFutureWatcher>
#include <QWidget>

class CameraHub;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QSpinBox;

class ServersPage : public QWidget
{
    Q_OBJECT
public:
    // `hub` may be null: the camera's forwarding is then kept in the settings only.
    explicit ServersPage(CameraHub *hub = nullptr, QWidget *parent = nullptr);

    // For the tests.
    QListWidget *list() const { return _list; }
    QLineEdit *nameEdit() const { return _name; }
    QLineEdit *hostEdit() const { return _host; }
    QSpinBox *portSpin() const { return _port; }
    QLineEdit *folderEdit() const { return _folder; }
    QLineEdit *userEdit() const { return _user; }
    QLineEdit *passwordEdit() const { return _password; }
    QComboBox *securityCombo() const { return _security; }
    QCheckBox *verifyBox() const { return _verify; }
    QPushButton *saveButton() const { return _save; }
    QPushButton *checkButton() const { return _check; }
    QPushButton *trustButton() const { return _trust; }
    QLabel *checkLabel() const { return _checkResult; }
    QLabel *warningLabel() const { return _warning; }
    QComboBox *forwardCombo() const { return _forward; }

signals:
    void serversChanged();

private:
    struct CheckResult {
        int code = 0;
        QString text;
        QByteArray key;   // the certificate's key, after a certificate failure
    };
    void reload(const QString &selectId = {});
    void showServer(int row);
    UploadServer fromFields() const;
    void saveServer();
    void addServer();
    void removeServer();
    void checkServer();
    void checkDone();
    void trustCertificate();
    void refreshWarning();

    CameraHub *_hub;
    QList<UploadServer> _servers;
    QString _currentId;
    QListWidget *_list;
    QLineEdit *_name, *_host, *_folder, *_user, *_password;
    QSpinBox *_port, *_lowSpeed;
    QComboBox *_security;
    QCheckBox *_passive, *_verify, *_tempName;
    QLabel *_pinned, *_checkResult, *_warning;
    QPushButton *_save, *_check, *_trust, *_add, *_remove;
    QComboBox *_forward;
    QByteArray _pinnedKey, _offeredKey;
    QFutureWatcher<CheckResult> _checking;
};
