#include "settingsdialog.h"
#include "util/settings.h"

#include "datasize.h"
#include "markssettingspage.h"
#include "settingstext.h"
#include "serverspage.h"

#include "camera/camerahub.h"
#include "imaging/diskimagecache.h"
#include "browser/appstate.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QGuiApplication>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <QtConcurrent>

using SettingsText::explanation;
using SettingsText::heading;

SettingsDialog::SettingsDialog(AppState &state, CameraHub *hub, QWidget *parent)
    : QDialog(parent)
    , _state(state)
    , _hub(hub)
    , _pages(new QListWidget(this))
    , _stack(new QStackedWidget(this))
{
    setObjectName(QStringLiteral("settingsDialog"));
    setWindowTitle(QStringLiteral("Ajustes"));
    resize(660, 420);

    auto *outer = new QVBoxLayout(this);
    auto *body = new QHBoxLayout;
    body->setSpacing(14);
    _pages->setFixedWidth(150);
    _pages->setObjectName(QStringLiteral("settingsPages"));
    body->addWidget(_pages);
    body->addWidget(_stack, 1);
    outer->addLayout(body, 1);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    buttons->button(QDialogButtonBox::Close)->setText(QStringLiteral("Cerrar"));
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    outer->addWidget(buttons);

    QList<QPair<QString, QWidget *>> pages = {
        {QStringLiteral("General"), generalPage()},
        {QStringLiteral("Marcas"), marksPage()},
        {QStringLiteral("Imagen"), imagePage()},
        {QStringLiteral("Nitidez"), sharpnessPage()},
    };
    if (_hub)
        pages.append({QStringLiteral("Cámara"), cameraPage()});
    pages.append({QStringLiteral("Servidores"), new ServersPage(_hub, this)});
    for (const auto &[title, page] : pages) {
        _pages->addItem(title);
        _stack->addWidget(page);
    }
    connect(_pages, &QListWidget::currentRowChanged, _stack, &QStackedWidget::setCurrentIndex);
    _pages->setCurrentRow(0);
}

QStringList SettingsDialog::pageTitles() const
{
    QStringList out;
    for (int i = 0; i < _pages->count(); ++i)
        out << _pages->item(i)->text();
    return out;
}

void SettingsDialog::showPage(const QString &title)
{
    const int i = int(pageTitles().indexOf(title));
    if (i >= 0)
        _pages->setCurrentRow(i);
}

QWidget *SettingsDialog::generalPage()
{
    auto *page = new QWidget(this);
    auto *layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 0, 0);

    _autoAdvance = new QCheckBox(QStringLiteral("Avanzar al marcar"), page);
    _autoAdvance->setObjectName(QStringLiteral("autoAdvance"));
    _autoAdvance->setChecked(_state.autoAdvance());
    connect(_autoAdvance, &QCheckBox::toggled, &_state, &AppState::setAutoAdvance);
    layout->addWidget(_autoAdvance);
    layout->addWidget(explanation(
        QStringLiteral("Tras poner un color, unas estrellas o la bandera, pasa a la imagen siguiente: "
                       "un repaso entero con una tecla por foto."),
        page, 22));
    layout->addSpacing(14);

    layout->addWidget(heading(QStringLiteral("Carpeta al iniciar"), page));
    const QString fixed = Settings::startFolder.get();
    _startLast = new QRadioButton(QStringLiteral("La última que abrí"), page);
    _startFixed = new QRadioButton(QStringLiteral("Siempre esta carpeta:"), page);
    auto *group = new QButtonGroup(page);
    group->addButton(_startLast);
    group->addButton(_startFixed);
    layout->addWidget(_startLast);
    auto *row = new QHBoxLayout;
    row->addWidget(_startFixed);
    _startFolder = new QLineEdit(fixed, page);
    _startFolder->setObjectName(QStringLiteral("startFolder"));
    _startFolder->setPlaceholderText(QStringLiteral("Ninguna"));
    row->addWidget(_startFolder, 1);
    auto *choose = new QPushButton(QStringLiteral("Elegir…"), page);
    row->addWidget(choose);
    layout->addLayout(row);
    (fixed.isEmpty() ? _startLast : _startFixed)->setChecked(true);
    _startFolder->setEnabled(!fixed.isEmpty());

    auto store = [this] {
        Settings::startFolder.set(_startFixed->isChecked() ? _startFolder->text().trimmed() : QString());
    };
    connect(_startFixed, &QRadioButton::toggled, this, [this, store](bool on) {
        _startFolder->setEnabled(on);
        store();
    });
    connect(_startFolder, &QLineEdit::editingFinished, this, store);
    connect(choose, &QPushButton::clicked, this, [this, store] {
        const QString dir = QFileDialog::getExistingDirectory(this, QStringLiteral("Carpeta al iniciar"), _startFolder->text());
        if (dir.isEmpty())
            return;
        _startFolder->setText(dir);
        _startFixed->setChecked(true);
        store();
    });
    layout->addStretch(1);
    return page;
}

QWidget *SettingsDialog::marksPage()
{
    _marks = new MarksSettingsPage(_state, this);
    connect(_marks, &MarksSettingsPage::exportRequested, this, &SettingsDialog::exportRequested);
    connect(_marks, &MarksSettingsPage::labelsChanged, this, &SettingsDialog::labelsChanged);
    return _marks;
}

QWidget *SettingsDialog::imagePage()
{
    auto *page = new QWidget(this);
    auto *layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 0, 0);

    layout->addWidget(heading(QStringLiteral("Resolución de las vistas previas"), page));
    _previewResolution = new QComboBox(page);
    _previewResolution->setObjectName(QStringLiteral("previewResolution"));
    _previewResolution->addItem(QStringLiteral("Pantalla"), QStringLiteral("screen"));
    for (const char *px : {"2560", "3840", "5120"})
        _previewResolution->addItem(QString::fromLatin1(px), QString::fromLatin1(px));
    const int current = _previewResolution->findData(Settings::previewResolution.get());
    _previewResolution->setCurrentIndex(qMax(0, current));
    auto *row = new QHBoxLayout;
    row->addWidget(_previewResolution);
    row->addStretch(1);
    layout->addLayout(row);
    layout->addWidget(explanation(
        QStringLiteral("«Pantalla» hace las vistas previas del tamaño de la ventana: lo más rápido. Un tamaño fijo "
                       "mayor da más detalle en monitores grandes a cambio de más memoria y más tiempo."),
        page));
    connect(_previewResolution, &QComboBox::currentIndexChanged, this, [this] {
        Settings::previewResolution.set(_previewResolution->currentData().toString());
        emit previewSettingsChanged();
    });
    layout->addSpacing(10);

    auto *ahead = new QHBoxLayout;
    ahead->addWidget(new QLabel(QStringLiteral("Precargar por delante"), page));
    _prefetchAhead = new QSpinBox(page);
    _prefetchAhead->setObjectName(QStringLiteral("prefetchAhead"));
    _prefetchAhead->setRange(1, 10);
    _prefetchAhead->setValue(qBound(1, Settings::prefetchAhead.get(), 10));
    ahead->addWidget(_prefetchAhead);
    ahead->addWidget(new QLabel(QStringLiteral("imágenes"), page));
    ahead->addStretch(1);
    layout->addLayout(ahead);
    layout->addWidget(explanation(
        QStringLiteral("Cuántas imágenes siguientes se preparan mientras miras una, para pasar sin esperas."), page));
    connect(_prefetchAhead, &QSpinBox::valueChanged, this, [this](int n) {
        Settings::prefetchAhead.set(n);
        emit previewSettingsChanged();
    });
    layout->addSpacing(10);

    layout->addWidget(heading(QStringLiteral("Caché"), page));
    auto *days = new QHBoxLayout;
    days->addWidget(new QLabel(QStringLiteral("Conservar la caché"), page));
    _cacheDays = new QSpinBox(page);
    _cacheDays->setObjectName(QStringLiteral("cacheDays"));
    _cacheDays->setRange(0, 3650);
    _cacheDays->setSuffix(QStringLiteral(" días"));
    _cacheDays->setSpecialValueText(QStringLiteral("sin límite de días"));
    _cacheDays->setValue(qBound(0, DiskImageCache::cacheDaysSetting(), 3650));
    days->addWidget(_cacheDays);
    days->addStretch(1);
    layout->addLayout(days);
    layout->addWidget(explanation(
        QStringLiteral("Al abrir Corvane se borran las miniaturas y vistas previas que no se han mirado en ese tiempo."),
        page));
    connect(_cacheDays, &QSpinBox::valueChanged, this, [](int n) { Settings::cacheDays.set(n); });

    auto *sizes = new QHBoxLayout;
    _cacheSizes = new QLabel(page);
    _cacheSizes->setObjectName(QStringLiteral("cacheSizes"));
    sizes->addWidget(_cacheSizes, 1);
    _emptyCaches = new QPushButton(QStringLiteral("Vaciar cachés"), page);
    _emptyCaches->setObjectName(QStringLiteral("emptyCaches"));
    _emptyCaches->setAutoDefault(false);
    sizes->addWidget(_emptyCaches);
    layout->addLayout(sizes);
    connect(_emptyCaches, &QPushButton::clicked, this, &SettingsDialog::emptyCaches);
    measureCaches();

    layout->addStretch(1);
    return page;
}

void SettingsDialog::measureCaches()
{
    _cacheSizes->setText(QStringLiteral("Calculando el tamaño de la caché…"));
    // Walking a large cache folder takes a while: never on this thread.
    QtConcurrent::run([] {
        return std::pair(DiskImageCache::thumbs().totalSize(), DiskImageCache::previews().totalSize());
    }).then(this, [this](std::pair<qint64, qint64> sizes) {
        _cacheSizes->setText(QStringLiteral("Miniaturas: %1 · Vistas previas: %2")
                                 .arg(dataSizeText(sizes.first), dataSizeText(sizes.second)));
        emit cacheSizesShown();
    });
}

void SettingsDialog::emptyCaches()
{
    _emptyCaches->setEnabled(false);
    _cacheSizes->setText(QStringLiteral("Vaciando la caché…"));
    QtConcurrent::run([] {
        // Writes already queued would land after the clear.
        DiskImageCache::thumbs().waitForWrites();
        DiskImageCache::previews().waitForWrites();
        DiskImageCache::thumbs().clear();
        DiskImageCache::previews().clear();
    }).then(this, [this] {
        _emptyCaches->setEnabled(true);
        emit cachesEmptied();
        measureCaches();
    });
}

QWidget *SettingsDialog::sharpnessPage()
{
    auto *page = new QWidget(this);
    auto *layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(heading(QStringLiteral("Sensibilidad"), page));
    _sensitivity = new QComboBox(page);
    _sensitivity->setObjectName(QStringLiteral("sensitivity"));
    _sensitivity->addItem(QStringLiteral("Estricta"), QStringLiteral("strict"));
    _sensitivity->addItem(QStringLiteral("Normal"), QStringLiteral("normal"));
    _sensitivity->addItem(QStringLiteral("Permisiva"), QStringLiteral("loose"));
    _sensitivity->setCurrentIndex(_sensitivity->findData(sharpSensitivityToString(_state.sensitivity())));
    auto *row = new QHBoxLayout;
    row->addWidget(_sensitivity);
    row->addStretch(1);
    layout->addLayout(row);
    layout->addWidget(explanation(
        QStringLiteral("Cuánto debe faltar de nitidez para marcar una foto como desenfocada. "
                       "«Estricta» señala más fotos; «Permisiva», solo las claramente movidas."),
        page));
    connect(_sensitivity, &QComboBox::currentIndexChanged, this, [this] {
        _state.setSensitivity(sharpSensitivityFromString(_sensitivity->currentData().toString()));
    });
    layout->addStretch(1);
    return page;
}

QWidget *SettingsDialog::cameraPage()
{
    auto *page = new QWidget(this);
    auto *layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(heading(QStringLiteral("Recepción por wifi (FTP)"), page));

    auto *portRow = new QHBoxLayout;
    portRow->addWidget(new QLabel(QStringLiteral("Puerto:"), page));
    _cameraPort = new QSpinBox(page);
    _cameraPort->setObjectName(QStringLiteral("cameraPort"));
    _cameraPort->setRange(1, 65535);
    _cameraPort->setKeyboardTracking(false);   // one restart of the server, not one per digit
    portRow->addWidget(_cameraPort);
    portRow->addStretch(1);
    layout->addLayout(portRow);
    layout->addWidget(explanation(
        QStringLiteral("El mismo que pongas en el menú FTP de la cámara. En Linux, un puerto por debajo de 1024 "
                       "necesita un permiso especial; si no se abre, usa 2121."),
        page));
    layout->addSpacing(14);

    auto *pwRow = new QHBoxLayout;
    pwRow->addWidget(new QLabel(QStringLiteral("Contraseña:"), page));
    _cameraPassword = new QLabel(page);
    _cameraPassword->setObjectName(QStringLiteral("cameraPassword"));
    _cameraPassword->setTextInteractionFlags(Qt::TextSelectableByMouse);
    QFont mono = _cameraPassword->font();
    mono.setFamily(QStringLiteral("monospace"));
    mono.setStyleHint(QFont::Monospace);
    _cameraPassword->setFont(mono);
    pwRow->addWidget(_cameraPassword);
    auto *copy = new QPushButton(QStringLiteral("Copiar"), page);
    copy->setObjectName(QStringLiteral("copyCameraPassword"));
    pwRow->addWidget(copy);
    _renewPassword = new QPushButton(QStringLiteral("Contraseña nueva"), page);
    _renewPassword->setObjectName(QStringLiteral("renewCameraPassword"));
    pwRow->addWidget(_renewPassword);
    pwRow->addStretch(1);
    layout->addLayout(pwRow);
    layout->addWidget(explanation(
        QStringLiteral("Usuario: corvane. Si alguien más ha visto la contraseña, pide una nueva y ponla otra vez "
                       "en la cámara: la anterior deja de valer al momento."),
        page));
    layout->addStretch(1);

    connect(_cameraPort, &QSpinBox::valueChanged, this, [this](int port) { _hub->setPort(port); });
    connect(copy, &QPushButton::clicked, this, [this] { QGuiApplication::clipboard()->setText(_hub->password()); });
    connect(_renewPassword, &QPushButton::clicked, _hub, &CameraHub::renewPassword);
    connect(_hub, &CameraHub::changed, this, &SettingsDialog::refreshCamera);
    refreshCamera();
    return page;
}

void SettingsDialog::refreshCamera()
{
    const QSignalBlocker block(_cameraPort);
    if (_hub->port() >= 1)
        _cameraPort->setValue(_hub->port());
    _cameraPassword->setText(_hub->password());
}
