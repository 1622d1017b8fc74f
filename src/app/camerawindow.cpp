#include "camerawindow.h"

#include "camera/camerahub.h"
#include "camera/ftppassword.h"
#include "camera/localaddresses.h"
#include "browser/appstate.h"

#include <QCheckBox>
#include <QClipboard>
#include <QDir>
#include <QFileDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

namespace {
QLabel *selectable(QWidget *parent, const QString &name)
{
    auto *l = new QLabel(parent);
    l->setObjectName(name);
    l->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return l;
}
} // namespace

CameraWindow::CameraWindow(CameraHub &hub, AppState &state, QWidget *parent)
    : QWidget(parent, Qt::Window)
    , _hub(hub)
    , _state(state)
{
    setObjectName(QStringLiteral("cameraWindow"));
    setWindowTitle(QStringLiteral("Cámara"));
    setAttribute(Qt::WA_DeleteOnClose, false);

    auto *layout = new QVBoxLayout(this);

    _wifi = new QCheckBox(QStringLiteral("Recibir por wifi (FTP)"), this);
    _wifi->setObjectName(QStringLiteral("wifiSwitch"));
    layout->addWidget(_wifi);
    _status = new QLabel(this);
    _status->setObjectName(QStringLiteral("wifiStatus"));
    _status->setWordWrap(true);
    layout->addWidget(_status);

    // What the photographer types into the camera's FTP menu.
    auto *camera = new QGroupBox(QStringLiteral("En el menú FTP de la cámara"), this);
    auto *form = new QFormLayout(camera);
    _addresses = selectable(camera, QStringLiteral("addresses"));
    _addresses->setWordWrap(true);
    form->addRow(QStringLiteral("Servidor:"), _addresses);
    _port = new QSpinBox(camera);
    _port->setObjectName(QStringLiteral("port"));
    _port->setRange(1, 65535);
    _port->setKeyboardTracking(false);
    auto *portRow = new QHBoxLayout;
    portRow->addWidget(_port);
    portRow->addStretch();   // a port is five digits, not the window's width
    form->addRow(QStringLiteral("Puerto:"), portRow);
    _portHint = new QLabel(QStringLiteral("En Linux, un puerto por debajo de 1024 necesita un permiso especial; "
                                          "si no se abre, usa 2121."),
                           camera);
    _portHint->setObjectName(QStringLiteral("portHint"));
    _portHint->setWordWrap(true);
    form->addRow(QString(), _portHint);
    _user = selectable(camera, QStringLiteral("user"));
    form->addRow(QStringLiteral("Usuario:"), _user);
    auto *pwRow = new QHBoxLayout;
    _password = selectable(camera, QStringLiteral("password"));
    QFont mono = _password->font();
    mono.setFamily(QStringLiteral("monospace"));
    mono.setStyleHint(QFont::Monospace);
    _password->setFont(mono);
    _copy = new QPushButton(QStringLiteral("Copiar"), camera);
    _copy->setObjectName(QStringLiteral("copyPassword"));
    pwRow->addWidget(_password);
    pwRow->addWidget(_copy);
    pwRow->addStretch();
    form->addRow(QStringLiteral("Contraseña:"), pwRow);
    _renewed = new QLabel(FTPPassword::renewalNotice(), camera);
    _renewed->setObjectName(QStringLiteral("passwordRenewed"));
    _renewed->setWordWrap(true);
    form->addRow(QString(), _renewed);
    form->addRow(QString(), new QLabel(QStringLiteral("Modo pasivo; sin cifrado (FTP normal)."), camera));
    layout->addWidget(camera);

    // Where the files go.
    auto *dest = new QGroupBox(QStringLiteral("Carpeta de destino"), this);
    auto *destLayout = new QVBoxLayout(dest);
    _destination = selectable(dest, QStringLiteral("destination"));
    _destination->setWordWrap(true);
    destLayout->addWidget(_destination);
    auto *destButtons = new QHBoxLayout;
    _choose = new QPushButton(QStringLiteral("Elegir…"), dest);
    _choose->setObjectName(QStringLiteral("chooseDestination"));
    _useOpenFolder = new QPushButton(QStringLiteral("Usar la carpeta abierta"), dest);
    _useOpenFolder->setObjectName(QStringLiteral("useOpenFolder"));
    destButtons->addWidget(_choose);
    destButtons->addWidget(_useOpenFolder);
    destButtons->addStretch();
    destLayout->addLayout(destButtons);
    layout->addWidget(dest);

    // What has arrived.
    auto *arrivals = new QFormLayout;
    _received = new QLabel(this);
    _received->setObjectName(QStringLiteral("received"));
    arrivals->addRow(QStringLiteral("Recibidas:"), _received);
    _lastName = selectable(this, QStringLiteral("lastName"));
    arrivals->addRow(QStringLiteral("Última:"), _lastName);
    layout->addLayout(arrivals);
    // Uploads that were not kept: the camera thinks they were sent.
    _refused = selectable(this, QStringLiteral("refused"));
    _refused->setWordWrap(true);
    layout->addWidget(_refused);
    _openInBrowser = new QPushButton(QStringLiteral("Ver la carpeta de destino en Corvane"), this);
    _openInBrowser->setObjectName(QStringLiteral("openInBrowser"));
    layout->addWidget(_openInBrowser, 0, Qt::AlignLeft);
    layout->addStretch();

    connect(_wifi, &QCheckBox::toggled, this, [this](bool on) {
        _hub.setWifiOn(on);
        refresh();   // a switch that could not turn on goes back off
    });
    connect(_port, &QSpinBox::valueChanged, this, [this](int port) { _hub.setPort(port); });
    connect(_copy, &QPushButton::clicked, this, [this] { QGuiApplication::clipboard()->setText(_hub.password()); });
    connect(_choose, &QPushButton::clicked, this, &CameraWindow::chooseDestination);
    connect(_useOpenFolder, &QPushButton::clicked, this, [this] { _hub.setDestination(_state.folder()); });
    connect(_openInBrowser, &QPushButton::clicked, this, [this] {
        if (!_hub.destination().isEmpty() && _hub.destination() != _state.folder())
            _state.openFolder(_hub.destination());
    });
    connect(&_hub, &CameraHub::changed, this, &CameraWindow::refresh);
    connect(&_state, &AppState::folderChanged, this, &CameraWindow::refresh);

    refreshAddresses();
    refresh();
    resize(520, sizeHint().height());
}

void CameraWindow::showEvent(QShowEvent *event)
{
    // A folder opened since the hub was made is the natural destination while none is chosen.
    if (_hub.destination().isEmpty() && !_state.folder().isEmpty())
        _hub.setDestination(_state.folder());
    refreshAddresses();   // the network may have changed (the camera's own wifi joined)
    refresh();
    QWidget::showEvent(event);
}

void CameraWindow::refreshAddresses()
{
    const QStringList addresses = LocalAddresses::forCameras();
    _addresses->setText(addresses.isEmpty() ? QStringLiteral("Sin red: conecta este ordenador a la wifi de la cámara.")
                                            : addresses.join(QStringLiteral("\n")));
}

void CameraWindow::refresh()
{
    const QSignalBlocker blockWifi(_wifi);
    const QSignalBlocker blockPort(_port);
    _wifi->setChecked(_hub.wifiOn());
    _status->setText(_hub.wifiStatus());
    if (_hub.port() >= 1)
        _port->setValue(_hub.port());
    _portHint->setVisible(_hub.port() < 1024);
    _user->setText(_hub.user());
    _password->setText(_hub.password());
    _renewed->setVisible(_hub.passwordRenewed());
    _destination->setText(_hub.destination().isEmpty() ? QStringLiteral("Sin elegir") : QDir::toNativeSeparators(_hub.destination()));
    _useOpenFolder->setEnabled(!_state.folder().isEmpty() && _state.folder() != _hub.destination());
    _received->setText(QString::number(_hub.received()));
    _lastName->setText(_hub.lastName().isEmpty() ? QStringLiteral("—") : _hub.lastName());
    _refused->setVisible(_hub.refused() > 0);
    _refused->setText(QStringLiteral("Rechazadas: %1 · %2").arg(_hub.refused()).arg(_hub.lastRefusal()));
    _openInBrowser->setEnabled(!_hub.destination().isEmpty() && _hub.destination() != _state.folder());
}

void CameraWindow::chooseDestination()
{
    const QString start = _hub.destination().isEmpty() ? QDir::homePath() : _hub.destination();
    const QString folder = QFileDialog::getExistingDirectory(this, QStringLiteral("Carpeta de destino"), start);
    if (!folder.isEmpty())
        _hub.setDestination(folder);
}
