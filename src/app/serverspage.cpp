#include "serverspage.h"

#include "camera/camerahub.h"
#include "upload/secretstore.h"
#include "upload/uploadservers.h"
#include "upload/uploadtexts.h"
#include "util/settings.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>
#include <QtConcurrent>

ServersPage::ServersPage(CameraHub *hub, QWidget *parent)
    : QWidget(parent)
    , _hub(hub)
    , _list(new QListWidget(this))
    , _name(new QLineEdit(this))
    , _host(new QLineEdit(this))
    , _folder(new QLineEdit(this))
    , _user(new QLineEdit(this))
    , _password(new QLineEdit(this))
    , _port(new QSpinBox(this))
    , _lowSpeed(new QSpinBox(this))
    , _security(new QComboBox(this))
    , _passive(new QCheckBox(QStringLiteral("Modo pasivo"), this))
    , _verify(new QCheckBox(QStringLiteral("Comprobar el certificado"), this))
    , _tempName(new QCheckBox(QStringLiteral("Enviar con un nombre temporal y renombrar al terminar"), this))
    , _pinned(new QLabel(this))
    , _checkResult(new QLabel(this))
    , _warning(new QLabel(this))
    , _save(new QPushButton(QStringLiteral("Guardar"), this))
    , _check(new QPushButton(QStringLiteral("Comprobar"), this))
    , _trust(new QPushButton(QStringLiteral("Confiar en este certificado"), this))
    , _add(new QPushButton(QStringLiteral("Añadir"), this))
    , _remove(new QPushButton(QStringLiteral("Quitar"), this))
    , _forward(new QComboBox(this))
{
    setObjectName(QStringLiteral("serversPage"));
    _password->setEchoMode(QLineEdit::Password);
    _port->setRange(0, 65535);
    _port->setSpecialValueText(QStringLiteral("el habitual"));
    _lowSpeed->setRange(5, 600);
    _lowSpeed->setSuffix(QStringLiteral(" s"));
    _security->addItem(QStringLiteral("FTP"));
    _security->addItem(QStringLiteral("FTPS explícito"));
    _security->addItem(QStringLiteral("FTPS implícito"));
    _folder->setPlaceholderText(QStringLiteral("fotos/hoy"));
    for (QLabel *l : {_pinned, _checkResult, _warning})
        l->setWordWrap(true);
    _warning->setStyleSheet(QStringLiteral("color: #e0a040"));
    _trust->hide();

    auto *left = new QVBoxLayout;
    left->addWidget(_list, 1);
    auto *listButtons = new QHBoxLayout;
    listButtons->addWidget(_add);
    listButtons->addWidget(_remove);
    left->addLayout(listButtons);

    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("Nombre"), _name);
    form->addRow(QStringLiteral("Servidor"), _host);
    form->addRow(QStringLiteral("Puerto"), _port);
    form->addRow(QStringLiteral("Carpeta"), _folder);
    form->addRow(QStringLiteral("Usuario"), _user);
    form->addRow(QStringLiteral("Contraseña"), _password);
    form->addRow(QStringLiteral("Seguridad"), _security);
    form->addRow(QString(), _passive);
    form->addRow(QString(), _verify);
    form->addRow(QString(), _pinned);
    form->addRow(QStringLiteral("Parada como máximo"), _lowSpeed);
    form->addRow(QString(), _tempName);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(_check);
    buttons->addWidget(_trust);
    buttons->addStretch();
    buttons->addWidget(_save);
    auto *right = new QVBoxLayout;
    right->addLayout(form);
    right->addLayout(buttons);
    right->addWidget(_checkResult);
    right->addWidget(_warning);
    auto *forward = new QFormLayout;
    forward->addRow(QStringLiteral("Enviar lo que llega de la cámara a"), _forward);
    right->addLayout(forward);
    right->addStretch();

    auto *body = new QHBoxLayout(this);
    body->addLayout(left, 1);
    body->addLayout(right, 2);

    connect(_list, &QListWidget::currentRowChanged, this, &ServersPage::showServer);
    connect(_add, &QPushButton::clicked, this, &ServersPage::addServer);
    connect(_remove, &QPushButton::clicked, this, &ServersPage::removeServer);
    connect(_save, &QPushButton::clicked, this, &ServersPage::saveServer);
    connect(_check, &QPushButton::clicked, this, &ServersPage::checkServer);
    connect(_trust, &QPushButton::clicked, this, &ServersPage::trustCertificate);
    connect(&_checking, &QFutureWatcher<CheckResult>::finished, this, &ServersPage::checkDone);
    connect(_forward, &QComboBox::activated, this, [this] {
        const QString id = _forward->currentData().toString();
        if (_hub)
            _hub->setAutoServer(id);
        else if (id.isEmpty())
            Settings::camAutoServer.clear();
        else
            Settings::camAutoServer.set(id);
    });
    reload();
}

void ServersPage::reload(const QString &selectId)
{
    _servers = UploadServers::all();
    const QSignalBlocker block(_list);
    _list->clear();
    int row = _servers.isEmpty() ? -1 : 0;
    for (int i = 0; i < _servers.size(); ++i) {
        _list->addItem(_servers[i].name);
        if (_servers[i].id == selectId)
            row = i;
    }
    _list->setCurrentRow(row);
    showServer(row);
    _forward->clear();
    _forward->addItem(QStringLiteral("No enviar"), QString());
    const QString autoServer = _hub ? _hub->autoServer() : Settings::camAutoServer.get();
    for (const UploadServer &s : std::as_const(_servers)) {
        _forward->addItem(s.name, s.id);
        if (s.id == autoServer)
            _forward->setCurrentIndex(_forward->count() - 1);
    }
    refreshWarning();
}

void ServersPage::showServer(int row)
{
    UploadServer s;
    if (row >= 0 && row < _servers.size()) {
        s = _servers[row];
        s.password = SecretStore::password(s.id);
    }
    _currentId = s.id;
    _name->setText(s.name);
    _host->setText(s.host);
    _port->setValue(s.port);
    _folder->setText(s.folder);
    _user->setText(s.user);
    _password->setText(s.password);
    _security->setCurrentIndex(int(s.security));
    _passive->setChecked(s.passive);
    _verify->setChecked(s.verifyCertificate);
    _lowSpeed->setValue(s.lowSpeedTime);
    _tempName->setChecked(s.tempName);
    _pinnedKey = s.pinnedKey;
    _pinned->setText(_pinnedKey.isEmpty() ? QString()
                                          : QStringLiteral("Se confía en el certificado de clave %1").arg(QString::fromLatin1(_pinnedKey)));
    _checkResult->clear();
    _trust->hide();
    _remove->setEnabled(!_currentId.isEmpty());
}

UploadServer ServersPage::fromFields() const
{
    UploadServer s;
    s.id = _currentId;
    s.name = _name->text().trimmed().isEmpty() ? _host->text().trimmed() : _name->text().trimmed();
    s.host = _host->text().trimmed();
    s.port = _port->value();
    s.folder = _folder->text().trimmed();
    s.user = _user->text();
    s.password = _password->text();
    s.security = UploadServer::Security(_security->currentIndex());
    s.passive = _passive->isChecked();
    s.verifyCertificate = _verify->isChecked();
    s.pinnedKey = _pinnedKey;
    s.lowSpeedTime = _lowSpeed->value();
    s.tempName = _tempName->isChecked();
    return s;
}

void ServersPage::saveServer()
{
    const UploadServer s = fromFields();
    if (s.host.isEmpty()) {
        _checkResult->setText(QStringLiteral("Falta la dirección del servidor."));
        return;
    }
    const QString id = UploadServers::save(s);
    reload(id);
    emit serversChanged();
}

void ServersPage::addServer()
{
    _list->setCurrentRow(-1);
    showServer(-1);
    _name->setFocus();
}

void ServersPage::removeServer()
{
    if (_currentId.isEmpty())
        return;
    UploadServers::remove(_currentId);
    if ((_hub ? _hub->autoServer() : Settings::camAutoServer.get()) == _currentId) {
        if (_hub)
            _hub->setAutoServer({});
        else
            Settings::camAutoServer.clear();
    }
    reload();
    emit serversChanged();
}

void ServersPage::checkServer()
{
    const UploadServer s = fromFields();
    if (s.host.isEmpty()) {
        _checkResult->setText(QStringLiteral("Falta la dirección del servidor."));
        return;
    }
    _check->setEnabled(false);
    _trust->hide();
    _checkResult->setText(QStringLiteral("Comprobando…"));
    _checking.setFuture(QtConcurrent::run([s] {
        CheckResult r;
        TransferShim::Connection connection = s.connection(s.folderUrl());
        connection.reuseConnection = false;   // a check logs in afresh
        const TransferShim::Outcome o = TransferShim::list(connection, nullptr);
        r.code = o.code;
        r.text = o.ok() ? QString() : UploadTexts::forResult(o.code, o.text);
        if (r.code == 35 || r.code == 60 || r.code == 90)
            r.key = TransferShim::serverKey(s.connection(s.folderUrl()));
        return r;
    }));
}

void ServersPage::checkDone()
{
    _check->setEnabled(true);
    const CheckResult r = _checking.result();
    _checkResult->setText(r.code == 0 ? QStringLiteral("Conexión correcta.") : r.text);
    _offeredKey = r.key;
    _trust->setVisible(!r.key.isEmpty());
}

void ServersPage::trustCertificate()
{
    const auto answer = QMessageBox::question(
        this, QStringLiteral("Confiar en este certificado"),
        QStringLiteral("El servidor presenta un certificado que ningún organismo confirma, con la clave:\n\n%1\n\n"
                       "Compárala con la que te dé quien gestiona el servidor. Si confías en ella, Corvane la aceptará "
                       "solo a ella y rechazará cualquier otro certificado.")
            .arg(QString::fromLatin1(_offeredKey)));
    if (answer != QMessageBox::Yes)
        return;
    _pinnedKey = _offeredKey;
    _pinned->setText(QStringLiteral("Se confía en el certificado de clave %1").arg(QString::fromLatin1(_pinnedKey)));
    _trust->hide();
    saveServer();
}

void ServersPage::refreshWarning()
{
    _warning->setText(SecretStore::anyInSettings() || !SecretStore::available()
                          ? QStringLiteral("No hay un almacén de contraseñas del escritorio: las contraseñas se guardan "
                                           "sin cifrar en el archivo de ajustes.")
                          : QString());
}
