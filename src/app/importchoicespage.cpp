#include "importchoicespage.h"

#include "blockeditor.h"
#include "datasize.h"
#include "importlabels.h"

#include "ingest/cardscanner.h"
#include "ingest/importedrecord.h"
#include "util/canceltoken.h"
#include "ingest/ingestphase.h"
#include "ingest/ingestplan.h"
#include "ingest/ingestsettings.h"
#include "ingest/ingeststructure.h"
#include "metadata/iptclibrary.h"
#include "model/filekinds.h"
#include "util/settings.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QScrollArea>
#include <QTimer>
#include <QVBoxLayout>
#include <QtConcurrent>

#include <algorithm>

namespace {

const QString kTitle = QStringLiteral("Importar imágenes");
const QString kKeepNames = QStringLiteral("Se mantiene el nombre que puso la cámara (p. ej. DSC_0001.NEF).");
const QString kOneRead = QStringLiteral("La tarjeta se lee una sola vez y se escribe en los dos discos.");
const QString kReading = ingestPhaseText(IngestPhase::scanning);
const QString kNothingToDo = QStringLiteral("Todo lo de la tarjeta ya está importado");
const QString kChooseWorking = QStringLiteral("Elige el disco de trabajo");
const QString kChooseBackup = QStringLiteral("Elige el disco de la copia de seguridad");
constexpr int kPreviewLines = 6;

QString canonical(const QString &path)
{
    const QString c = QFileInfo(path).canonicalFilePath();
    return c.isEmpty() ? QDir::cleanPath(path) : c;
}

QString defaultPick(QWidget *parent, const QString &title, const QString &accept, const QString &start)
{
    QFileDialog dialog(parent, title, start);
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    dialog.setLabelText(QFileDialog::Accept, accept);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return {};
    return dialog.selectedFiles().constFirst();
}

} // namespace

ImportChoicesPage::ImportChoicesPage(QWidget *parent)
    : QWidget(parent)
    , _findCards([] { return CardFinder::findCards(); })
{
    _pickFolder = [this](const QString &title, const QString &accept, const QString &start) {
        return defaultPick(this, title, accept, start);
    };
    _previewDelay = new QTimer(this);
    _previewDelay->setSingleShot(true);
    _previewDelay->setInterval(120);
    connect(_previewDelay, &QTimer::timeout, this, &ImportChoicesPage::updatePreview);

    build();
    connectChoices();
    loadSettings();
    updateRenameState();
    updatePreview();
}

ImportChoicesPage::~ImportChoicesPage()
{
    if (_readCancel)
        _readCancel->cancel();
    _readFuture.waitForFinished();
}

void ImportChoicesPage::build()
{
    auto *own = new QVBoxLayout(this);
    own->setContentsMargins(0, 0, 0, 0);
    auto *scroll = new QScrollArea(this);
    own->addWidget(scroll);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    auto *page = new QWidget(scroll);
    scroll->setWidget(page);
    auto *outer = new QVBoxLayout(page);
    outer->setContentsMargins(0, 8, 8, 0);
    auto *columns = new QHBoxLayout;
    columns->setSpacing(24);
    outer->addLayout(columns);
    outer->addStretch(1);   // spare height goes below the columns, never between their rows

    // Left: where from, where to, which folders, which options. A fixed width, so its wrapped
    // explanations are measured at the width they are drawn at.
    auto *leftPane = new QWidget(page);
    leftPane->setFixedWidth(440);
    auto *left = new QVBoxLayout(leftPane);
    left->setContentsMargins(0, 0, 0, 0);
    columns->addWidget(leftPane);

    left->addWidget(ImportLabels::section(QStringLiteral("Origen"), page));
    _sources = new QListWidget(page);
    _sources->setObjectName(QStringLiteral("importSources"));
    _sources->setMinimumHeight(80);
    _sources->setMaximumHeight(120);
    left->addWidget(_sources);
    _noCard = ImportLabels::dim(QString::fromUtf8(CardFinder::kNoCardText), page);
    left->addWidget(_noCard);
    auto *sourceRow = new QHBoxLayout;
    _chooseSource = new QPushButton(QStringLiteral("Elegir carpeta…"), page);
    sourceRow->addWidget(_chooseSource);
    sourceRow->addStretch();
    left->addLayout(sourceRow);
    _sourceInfo = ImportLabels::dim(QString(), page);
    left->addWidget(_sourceInfo);

    left->addWidget(ImportLabels::section(QStringLiteral("Destino"), page));
    auto *dest = new QFormLayout;
    dest->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    auto pathRow = [page](QLineEdit *&edit, QPushButton *&button) {
        auto *row = new QHBoxLayout;
        edit = new QLineEdit(page);
        edit->setClearButtonEnabled(true);
        button = new QPushButton(QStringLiteral("Elegir…"), page);
        row->addWidget(edit, 1);
        row->addWidget(button);
        return row;
    };
    dest->addRow(QStringLiteral("Disco de trabajo:"), pathRow(_working, _chooseWorking));
    _working->setPlaceholderText(kChooseWorking);
    _backupOn = new QCheckBox(QStringLiteral("Copia de seguridad:"), page);
    dest->addRow(_backupOn, pathRow(_backup, _chooseBackup));
    _backup->setPlaceholderText(kChooseBackup);
    left->addLayout(dest);
    _backupNote = ImportLabels::dim(kOneRead, page);
    left->addWidget(_backupNote);

    left->addWidget(ImportLabels::section(QStringLiteral("Carpetas"), page));
    auto *folders = new QFormLayout;
    folders->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    _structure = new QComboBox(page);
    for (IngestStructure s : IngestStructures::all())
        _structure->addItem(IngestStructures::label(s), IngestStructures::rawValue(s));
    folders->addRow(QStringLiteral("Estructura:"), _structure);
    _session = new QLineEdit(page);
    _session->setPlaceholderText(QStringLiteral("p. ej. Boda Marta y Luis"));
    folders->addRow(QStringLiteral("Nombre de la sesión"), _session);
    left->addLayout(folders);

    left->addWidget(ImportLabels::section(QStringLiteral("Opciones"), page));
    _skipImported = addOption(left, QStringLiteral("No volver a importar lo ya importado"),
                              QStringLiteral("Reconoce las imágenes que ya copiaste de esta tarjeta aunque cambies carpetas o nombres."));
    _video = addOption(left, QStringLiteral("Importar también los vídeos"), QStringLiteral("MOV, MP4, MTS…"));
    _verify = addOption(left, QStringLiteral("Verificar las copias"),
                        QStringLiteral("Al terminar, lee de nuevo cada copia desde el disco y la compara con el original "
                                       "(huella SHA-256). Con SSD apenas añade tiempo; con disco de plato, casi lo mismo que la copia."));
    _eject = addOption(left, QStringLiteral("Expulsar la tarjeta al terminar"), QStringLiteral("Solo si no hubo errores."));
    _open = addOption(left, QStringLiteral("Abrir la carpeta en Corvane al terminar"), QString());
    left->addStretch();

    // Right: names and the preview of what the disks will hold.
    auto *rightPane = new QWidget(page);
    auto *right = new QVBoxLayout(rightPane);
    right->setContentsMargins(0, 0, 0, 0);
    columns->addWidget(rightPane, 1);
    right->addWidget(ImportLabels::section(QStringLiteral("Nombres"), page));
    _rename = new QCheckBox(QStringLiteral("Renombrar los archivos"), page);
    right->addWidget(_rename);
    _keepNames = ImportLabels::dim(kKeepNames, page);
    right->addWidget(_keepNames);
    _editor = new BlockEditor(page);
    right->addWidget(_editor);

    right->addWidget(ImportLabels::section(QStringLiteral("Así quedará"), page));
    _preview = new QLabel(page);
    _preview->setObjectName(QStringLiteral("importPreview"));
    _preview->setTextFormat(Qt::PlainText);
    _preview->setWordWrap(true);
    _preview->setTextInteractionFlags(Qt::TextSelectableByMouse);
    _preview->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    _preview->setMinimumHeight(120);
    _preview->setStyleSheet(QStringLiteral("#importPreview { background: #232323; border: 1px solid #3a3a3a; "
                                           "border-radius: 6px; padding: 8px; font-family: monospace; }"));
    right->addWidget(_preview);

    right->addWidget(ImportLabels::section(QStringLiteral("Plantilla IPTC"), page));
    _iptc = new QComboBox(page);
    _iptc->setObjectName(QStringLiteral("importIptcTemplate"));
    _iptc->setMinimumWidth(260);
    auto *iptcRow = new QHBoxLayout;
    iptcRow->addWidget(_iptc);
    iptcRow->addStretch(1);
    right->addLayout(iptcRow);
    right->addWidget(ImportLabels::dim(QStringLiteral("Plantilla que se pone en las imágenes copiadas (autor, copyright, evento…). "
                                                      "JPG: dentro del archivo; RAW: en su .xmp. Se aplica después de verificar."), page));
    right->addStretch();
    columns->setAlignment(leftPane, Qt::AlignTop);
    columns->setAlignment(rightPane, Qt::AlignTop);

    // The bottom row, outside the two columns.
    auto *bottom = new QHBoxLayout;
    _problem = new QLabel(page);
    _problem->setWordWrap(true);
    _problem->setStyleSheet(QStringLiteral("color: #e07a6a;"));
    bottom->addWidget(_problem, 1);
    _close = new QPushButton(QStringLiteral("Cerrar"), page);
    _start = new QPushButton(QStringLiteral("Importar"), page);
    _start->setDefault(true);
    _start->setMinimumWidth(260);
    bottom->addWidget(_close);
    bottom->addWidget(_start);
    outer->addLayout(bottom);
}

QCheckBox *ImportChoicesPage::addOption(QVBoxLayout *layout, const QString &title, const QString &explanation, QLabel **note)
{
    auto *box = new QCheckBox(title, this);
    layout->addWidget(box);
    if (!explanation.isEmpty()) {
        QLabel *l = ImportLabels::dim(explanation, this);
        l->setContentsMargins(24, 0, 0, 4);
        layout->addWidget(l);
        if (note)
            *note = l;
    }
    connect(box, &QCheckBox::toggled, this, [this] {
        saveSettings();
        schedulePreview();
    });
    return box;
}

void ImportChoicesPage::connectChoices()
{
    connect(_sources, &QListWidget::itemSelectionChanged, this, &ImportChoicesPage::sourceSelectionChanged);
    connect(_chooseSource, &QPushButton::clicked, this, &ImportChoicesPage::chooseSource);
    connect(_chooseWorking, &QPushButton::clicked, this, [this] { chooseDestination(_working, kChooseWorking); });
    connect(_chooseBackup, &QPushButton::clicked, this, [this] { chooseDestination(_backup, kChooseBackup); });
    for (QLineEdit *e : {_working, _backup}) {
        connect(e, &QLineEdit::textChanged, this, &ImportChoicesPage::schedulePreview);
        connect(e, &QLineEdit::editingFinished, this, &ImportChoicesPage::saveSettings);
    }
    connect(_backupOn, &QCheckBox::toggled, this, [this](bool on) {
        _backup->setEnabled(on);
        _chooseBackup->setEnabled(on);
        _backupNote->setVisible(on);
        saveSettings();
        schedulePreview();
    });
    connect(_structure, &QComboBox::currentIndexChanged, this, [this] {
        saveSettings();
        schedulePreview();
    });
    connect(_session, &QLineEdit::textChanged, this, [this] {
        updateSampleValues();
        schedulePreview();
    });
    connect(_rename, &QCheckBox::toggled, this, [this] {
        updateRenameState();
        saveSettings();
        schedulePreview();
    });
    connect(_editor, &BlockEditor::edited, this, [this] {
        saveSettings();
        schedulePreview();
    });
    connect(_iptc, &QComboBox::activated, this, [this] { Settings::ingestIptc.set(_iptc->currentData().toString()); });
    connect(_start, &QPushButton::clicked, this, &ImportChoicesPage::startRequested);
    connect(_close, &QPushButton::clicked, this, &ImportChoicesPage::closeRequested);
}

// ----- Settings

void ImportChoicesPage::loadSettings()
{
    _loading = true;
    const IngestSettings s = IngestSettings::load();
    _working->setText(s.dest);
    _backupOn->setChecked(s.backupOn);
    _backup->setText(s.backup);
    _backup->setEnabled(s.backupOn);
    _chooseBackup->setEnabled(s.backupOn);
    _backupNote->setVisible(s.backupOn);
    _structure->setCurrentIndex(qMax(0, _structure->findData(IngestStructures::rawValue(s.structure))));
    _rename->setChecked(s.renameOn);
    _editor->setPattern(s.pattern());
    _editor->setStart(s.start);
    _editor->setDigits(int(std::clamp<qint64>(s.digits, 1, 6)));
    _skipImported->setChecked(s.skipImported);
    _video->setChecked(s.video);
    _verify->setChecked(s.fullVerify);
    _eject->setChecked(s.eject);
    _open->setChecked(s.open);
    reloadIptcTemplates();
    _loading = false;
}

void ImportChoicesPage::saveSettings()
{
    if (_loading)
        return;
    IngestSettings s;
    s.dest = _working->text().trimmed();
    s.backupOn = _backupOn->isChecked();
    s.backup = _backup->text().trimmed();
    s.structure = IngestStructures::fromRawValue(_structure->currentData().toString()).value_or(IngestStructure::yearDate);
    s.renameOn = _rename->isChecked();
    s.namePattern = _editor->pattern().toJsonText();
    s.start = _editor->start();
    s.digits = _editor->digits();
    s.skipImported = _skipImported->isChecked();
    s.video = _video->isChecked();
    s.fullVerify = _verify->isChecked();
    s.eject = _eject->isChecked();
    s.open = _open->isChecked();
    s.save();
}

IngestOptions ImportChoicesPage::currentOptions() const
{
    IngestOptions o;
    o.structure = IngestStructures::fromRawValue(_structure->currentData().toString()).value_or(IngestStructure::yearDate);
    o.session = _session->text();
    o.rename = _rename->isChecked();
    o.pattern = _editor->pattern();
    o.start = _editor->start();
    o.digits = _editor->digits();
    o.skipImported = _skipImported->isChecked();
    o.video = _video->isChecked();
    o.verify = _verify->isChecked();
    o.eject = _eject->isChecked();
    return o;
}

// ----- The source

void ImportChoicesPage::setCardFinder(std::function<QList<CardVolume>()> finder)
{
    _findCards = std::move(finder);
    refreshCards();
}

void ImportChoicesPage::refreshCards()
{
    const QList<CardVolume> cards = _findCards ? _findCards() : QList<CardVolume>();
    bool same = cards.size() == _cards.size();
    for (int i = 0; same && i < cards.size(); ++i)
        same = cards[i].root == _cards[i].root && cards[i].name == _cards[i].name;
    if (!same) {
        _cards = cards;
        rebuildSourceList();
    }
    _noCard->setVisible(_cards.isEmpty());

    bool sourceListed = !_source.isEmpty() && _source == _chosenFolder;
    for (const CardVolume &c : std::as_const(_cards))
        sourceListed = sourceListed || c.root == _source;
    if (_source.isEmpty() && !_cards.isEmpty() && _current) {
        setSource(_cards.constFirst().root);   // a card just inserted is what the photographer means
    } else if (!_source.isEmpty() && !sourceListed) {
        // The card we were showing is gone.
        if (_readCancel)
            _readCancel->cancel();
        ++_readGeneration;
        _source.clear();
        _items.clear();
        _reading = false;
        _readError.clear();
        _sourceInfo->clear();
        schedulePreview();
    }
}

void ImportChoicesPage::rebuildSourceList()
{
    // Cards first, then the folder chosen by hand; the selection follows the source.
    const QSignalBlocker block(_sources);
    _sources->clear();
    for (const CardVolume &c : std::as_const(_cards)) {
        auto *item = new QListWidgetItem(QStringLiteral("%1   —   %2").arg(c.name, c.root), _sources);
        item->setData(Qt::UserRole, c.root);
        item->setToolTip(c.root);
    }
    bool chosenIsCard = false;
    for (const CardVolume &c : std::as_const(_cards))
        chosenIsCard = chosenIsCard || c.root == _chosenFolder;
    if (!_chosenFolder.isEmpty() && !chosenIsCard) {
        auto *item = new QListWidgetItem(
            QStringLiteral("Carpeta: %1   —   %2").arg(QFileInfo(_chosenFolder).fileName(), _chosenFolder), _sources);
        item->setData(Qt::UserRole, _chosenFolder);
        item->setToolTip(_chosenFolder);
    }
    for (int i = 0; i < _sources->count(); ++i)
        if (_sources->item(i)->data(Qt::UserRole).toString() == _source)
            _sources->setCurrentRow(i);
    _sources->setVisible(_sources->count() > 0);
}

void ImportChoicesPage::sourceSelectionChanged()
{
    QListWidgetItem *item = _sources->currentItem();
    if (item && item->isSelected() && item->data(Qt::UserRole).toString() != _source)
        setSource(item->data(Qt::UserRole).toString());
}

void ImportChoicesPage::chooseSource()
{
    const QString start = _source.isEmpty() ? QDir::homePath() : _source;
    const QString folder = _pickFolder(kTitle, QStringLiteral("Importar desde aquí"), start);
    if (folder.isEmpty())
        return;
    setSource(folder);
}

void ImportChoicesPage::setSource(const QString &folder)
{
    const QString path = QDir::cleanPath(folder);
    bool isCard = false;
    for (const CardVolume &c : std::as_const(_cards))
        isCard = isCard || c.root == path;
    if (!isCard)
        _chosenFolder = path;
    const bool again = path == _source && (_reading || !_items.isEmpty());
    _source = path;
    rebuildSourceList();
    if (!again)
        readSource();
}

void ImportChoicesPage::readSource()
{
    if (_readCancel)
        _readCancel->cancel();
    const quint64 generation = ++_readGeneration;
    _items.clear();
    _readError.clear();
    _reading = true;
    _sourceInfo->setText(kReading);
    updatePreview();

    // Videos are always read, so the video option only filters and never reads the card again.
    auto cancel = std::make_shared<CancelToken>();
    _readCancel = cancel;
    const QString root = _source;
    QFuture<void> previous = _readFuture;
    _readFuture = QtConcurrent::run([this, cancel, generation, root, previous]() mutable {
        previous.waitForFinished();
        const CardScan scan = CardScanner::scan(root, true, cancel.get(), [this, cancel, generation](int done, int total) {
            if (cancel->isCancelled())
                return;
            QMetaObject::invokeMethod(this, [this, generation, done, total] {
                if (generation == _readGeneration && _reading)
                    _sourceInfo->setText(total > 0 ? QStringLiteral("%1 %2 de %3").arg(kReading).arg(done).arg(total)
                                                   : QStringLiteral("%1 %2 archivos").arg(kReading).arg(done));
            }, Qt::QueuedConnection);
        });
        if (scan.cancelled || cancel->isCancelled())
            return;
        const QSet<QString> imported = ImportedRecord::load();
        QMetaObject::invokeMethod(this, [this, generation, items = scan.items, error = scan.error, imported] {
            scanFinished(generation, items, error, imported);
        }, Qt::QueuedConnection);
    });
}

void ImportChoicesPage::scanFinished(quint64 generation, const QList<IngestItem> &items, const QString &error, const QSet<QString> &imported)
{
    if (generation != _readGeneration)
        return;
    _reading = false;
    _items = items;
    _imported = imported;
    _readError = error;
    updateSampleValues();
    updatePreview();
}

void ImportChoicesPage::chooseDestination(QLineEdit *field, const QString &title)
{
    const QString start = field->text().isEmpty() ? QDir::homePath() : field->text();
    const QString folder = _pickFolder(title, QStringLiteral("Elegir"), start);
    if (folder.isEmpty())
        return;
    field->setText(QDir::cleanPath(folder));
    saveSettings();
    schedulePreview();
}

// ----- Preview

void ImportChoicesPage::updateRenameState()
{
    const bool on = _rename->isChecked();
    _editor->setVisible(on);
    _keepNames->setVisible(!on);
}

void ImportChoicesPage::updateSampleValues()
{
    // The chips show the first file of the card when there is one.
    NameValues v = NameValues::sample();
    QString ext = QStringLiteral(".NEF");
    if (!_items.isEmpty()) {
        const IngestItem &first = _items.constFirst();
        v.date = first.date;
        v.camera = first.camera;
        v.original = FileKinds::baseNameOf(first.url);
        const QString e = QFileInfo(first.url).suffix();
        ext = e.isEmpty() ? QString() : QLatin1Char('.') + e;
        v.folder = QFileInfo(first.url).dir().dirName();
    }
    v.session = _session->text();
    _editor->setSampleValues(v);
    _editor->setSampleExtension(ext);
}

QString ImportChoicesPage::destinationProblem() const
{
    const QString working = _working->text().trimmed();
    if (working.isEmpty())
        return kChooseWorking;
    if (!QFileInfo(working).isDir())
        return QStringLiteral("No se encuentra la carpeta del disco de trabajo: %1").arg(working);
    if (_backupOn->isChecked()) {
        const QString backup = _backup->text().trimmed();
        if (backup.isEmpty())
            return QStringLiteral("Elige el disco de la copia de seguridad o desactiva la copia.");
        if (!QFileInfo(backup).isDir())
            return QStringLiteral("No se encuentra la carpeta de la copia de seguridad: %1").arg(backup);
        if (canonical(backup) == canonical(working))
            return QStringLiteral("La copia de seguridad tiene que ir a otra carpeta que la del disco de trabajo.");
    }
    if (!_source.isEmpty()) {
        const QString src = canonical(_source) + QLatin1Char('/');
        for (const QString &d : {working, _backupOn->isChecked() ? _backup->text().trimmed() : QString()})
            if (!d.isEmpty() && (canonical(d) + QLatin1Char('/')).startsWith(src))
                return QStringLiteral("El destino no puede estar dentro de la carpeta que se importa.");
    }
    return {};
}

void ImportChoicesPage::schedulePreview()
{
    _previewDelay->start();
}

void ImportChoicesPage::updatePreview()
{
    const QString problem = destinationProblem();
    const IngestOptions options = currentOptions();
    const QString verifySuffix = options.verify ? QStringLiteral(" · con verificación") : QString();
    QString button = QStringLiteral("Importar") + verifySuffix;
    bool canStart = problem.isEmpty() && !_source.isEmpty() && !_reading && _readError.isEmpty();

    QList<IngestItem> items;
    for (const IngestItem &i : std::as_const(_items))
        if (!i.isVideo || options.video)
            items.append(i);

    QString preview;
    if (_source.isEmpty()) {
        preview = QStringLiteral("Elige una tarjeta o una carpeta de origen.");
    } else if (_reading) {
        preview = kReading;
    } else if (!_readError.isEmpty()) {
        preview = _readError;
        _sourceInfo->setText(_readError);
    } else if (items.isEmpty()) {
        preview = QStringLiteral("No hay imágenes que importar en esta carpeta.");
        _sourceInfo->setText(preview);
        canStart = false;
    } else {
        qint64 bytes = 0;
        int videos = 0;
        for (const IngestItem &i : std::as_const(items)) {
            bytes += i.size;
            videos += i.isVideo ? 1 : 0;
        }
        const int images = int(items.size()) - videos;
        QString info = images == 1 ? QStringLiteral("1 imagen") : QStringLiteral("%1 imágenes").arg(images);
        if (videos > 0)
            info += videos == 1 ? QStringLiteral(" y 1 vídeo") : QStringLiteral(" y %1 vídeos").arg(videos);
        _sourceInfo->setText(info + QStringLiteral(" · ") + dataSizeText(bytes));

        // The plan of this run alone: quick, and what the copy will do unless a destination
        // already holds a file of the same name.
        IngestPlanner::Input in;
        in.items = items;
        in.options = options;
        in.destRoots = QStringList{_working->text().trimmed().isEmpty() ? QStringLiteral("/") : _working->text().trimmed()};
        if (_backupOn->isChecked() && !_backup->text().trimmed().isEmpty())
            in.destRoots.append(_backup->text().trimmed());
        in.imported = _imported;
        in.check = IngestPlanner::DestinationCheck::none;
        const IngestPlan plan = IngestPlanner::plan(in);
        if (plan.nothingToDo()) {
            preview = kNothingToDo;
        } else {
            QStringList lines;
            for (int i = 0; i < plan.files.size() && i < kPreviewLines; ++i)
                lines << plan.files[i].relPath;
            if (plan.files.size() > kPreviewLines)
                lines << QStringLiteral("… y %1 más").arg(plan.files.size() - kPreviewLines);
            if (plan.skippedImported > 0)
                lines << QString() << (plan.skippedImported == 1 ? QStringLiteral("1 archivo ya importado se deja fuera.")
                                                                 : QStringLiteral("%1 archivos ya importados se dejan fuera.").arg(plan.skippedImported));
            preview = lines.join(QLatin1Char('\n'));
            const int n = int(plan.files.size());
            button = (n == 1 ? QStringLiteral("Importar 1 archivo") : QStringLiteral("Importar %1 archivos").arg(n)) + verifySuffix;
        }
    }
    if (_working->text().trimmed().isEmpty())
        button = kChooseWorking;
    _preview->setText(preview);
    _problem->setText(problem == kChooseWorking ? QString() : problem);
    _start->setText(button);
    _start->setEnabled(canStart);
}

// ----- Starting

std::optional<IngestRequest> ImportChoicesPage::request()
{
    _previewDelay->stop();
    updatePreview();
    if (!_start->isEnabled())
        return std::nullopt;
    saveSettings();
    IngestRequest request;
    request.source = _source;
    request.working = _working->text().trimmed();
    request.backup = _backupOn->isChecked() ? _backup->text().trimmed() : QString();
    request.options = currentOptions();
    request.known = _items;   // read for the preview: only new files are read again
    if (const QString name = _iptc->currentData().toString(); !name.isEmpty())
        request.iptc = IptcLibrary::find(name);
    return request;
}

void ImportChoicesPage::reloadIptcTemplates()
{
    // The remembered choice; a template deleted since counts as none.
    const QString chosen = Settings::ingestIptc.get();
    const QSignalBlocker block(_iptc);
    _iptc->clear();
    _iptc->addItem(QStringLiteral("Ninguna"), QString());
    for (const IptcTemplate &t : IptcLibrary::load())
        _iptc->addItem(t.name, t.name);
    _iptc->setCurrentIndex(qMax(0, _iptc->findData(chosen)));
}

void ImportChoicesPage::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    reloadIptcTemplates();   // edited in their own window meanwhile
}

bool ImportChoicesPage::openWhenDone() const
{
    return _open->isChecked();
}

void ImportChoicesPage::readAgain()
{
    refreshCards();
    if (!_source.isEmpty())
        readSource();
    else
        updatePreview();
}
