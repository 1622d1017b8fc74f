#include "renamesheet.h"

#include "blockeditor.h"

#include "browser/appstate.h"
#include "browser/browsersession.h"
#include "marks/marksbook.h"
#include "marks/marksstore.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QStackedWidget>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <QtConcurrent>

namespace {
QLabel *wrapped(const QString &text, QWidget *parent)
{
    auto *l = new QLabel(text, parent);
    l->setWordWrap(true);
    return l;
}

QString extsText(const QStringList &exts)
{
    QStringList shown;
    for (const QString &e : exts)
        shown.append(QLatin1Char('.') + e);
    return shown.join(QLatin1Char(' '));
}
} // namespace

RenameSheet::RenameSheet(BrowserSession &session, QWidget *parent)
    : QDialog(parent)
    , _session(session)
    , _pages(new QStackedWidget(this))
{
    setObjectName(QStringLiteral("renombrar"));
    setWindowTitle(QStringLiteral("Renombrar"));
    resize(820, 640);

    // The shots, in the grid's order, with everything their names are computed from.
    AppState &state = session.state();
    for (const Photo *p : state.targets()) {
        if (p->dirPath != state.folder())
            continue;   // a recursive view: only the open folder's own shots
        RenameShot s;
        s.mainFile = p->url();
        s.files = RenameShot::companions(p->files());
        s.date = p->captureDate().value_or(QDateTime());
        if (p->meta() && !p->meta()->cameraName().isEmpty())
            s.camera = p->meta()->cameraName();
        _shots.append(s);
    }
    _folderFiles = QDir(state.folder()).entryList(QDir::Files | QDir::Hidden | QDir::System);
    const RenameOptions saved = RenameOptions::load();

    // ----- Editing
    auto *edit = new QWidget(_pages);
    auto *layout = new QVBoxLayout(edit);
    layout->addWidget(wrapped(QStringLiteral("También se renombran la pareja RAW/JPG y el .xmp. Las marcas se conservan."), edit));

    _simple = new QRadioButton(QStringLiteral("Nombre y número"), edit);
    _custom = new QRadioButton(QStringLiteral("Con bloques: texto, fecha, hora…"), edit);
    auto *modes = new QButtonGroup(this);
    modes->addButton(_simple);
    modes->addButton(_custom);
    auto *modeRow = new QHBoxLayout;
    modeRow->addWidget(_simple);
    modeRow->addWidget(_custom);
    modeRow->addStretch(1);
    layout->addLayout(modeRow);

    _modePages = new QStackedWidget(edit);
    auto *simplePage = new QWidget(_modePages);
    auto *form = new QFormLayout(simplePage);
    _name = new QLineEdit(simplePage);
    _name->setObjectName(QStringLiteral("renameName"));
    _name->setPlaceholderText(QStringLiteral("Por ejemplo: Boda Ana y Luis"));
    form->addRow(QStringLiteral("Nombre"), _name);
    _separator = new QComboBox(simplePage);
    for (const QString &sep : {QStringLiteral("_"), QStringLiteral("-"), QStringLiteral(" "), QString()})
        _separator->addItem(sep == QLatin1String(" ") ? QStringLiteral("espacio") : sep.isEmpty() ? QStringLiteral("ninguno") : sep, sep);
    _separator->setCurrentIndex(qMax(0, _separator->findData(saved.separator)));
    form->addRow(QStringLiteral("Separador"), _separator);
    _start = new QSpinBox(simplePage);
    _start->setRange(0, 99999999);
    _start->setValue(saved.start);
    form->addRow(QStringLiteral("Inicio de numeración"), _start);
    _digits = new QSpinBox(simplePage);
    _digits->setRange(1, 8);
    _digits->setValue(saved.digits);
    form->addRow(QStringLiteral("Cifras del número"), _digits);
    _modePages->addWidget(simplePage);

    auto *customPage = new QWidget(_modePages);
    auto *customLayout = new QVBoxLayout(customPage);
    customLayout->setContentsMargins(0, 0, 0, 0);
    _template = new QComboBox(customPage);
    _template->setObjectName(QStringLiteral("renameTemplate"));
    _template->addItem(QStringLiteral("Plantillas…"));
    for (const RenameTemplate &t : RenameTemplate::all())
        _template->addItem(t.title, t.id);
    customLayout->addWidget(_template);
    _blocks = new BlockEditor(customPage);
    _blocks->setPattern(saved.pattern.value_or(RenameTemplate::all().first().pattern(saved.separator)));
    _blocks->setStart(saved.start);
    _blocks->setDigits(qMin(saved.digits, 6));
    if (!_shots.isEmpty()) {
        NameValues sample = NameValues::sample();
        sample.original = QFileInfo(_shots.first().mainFile).completeBaseName();
        if (_shots.first().date.isValid())
            sample.date = _shots.first().date;
        sample.camera = _shots.first().camera;
        _blocks->setSampleValues(sample);
        _blocks->setSampleExtension(QLatin1Char('.') + QFileInfo(_shots.first().mainFile).suffix());
    }
    customLayout->addWidget(_blocks);
    _modePages->addWidget(customPage);
    layout->addWidget(_modePages);

    _caseOn = new QCheckBox(QStringLiteral("Cambiar mayúsculas y minúsculas"), edit);
    _caseOn->setChecked(saved.caseOn);
    _nameCase = new QComboBox(edit);
    _extCase = new QComboBox(edit);
    for (NameCase c : {NameCase::keep, NameCase::lower, NameCase::upper}) {
        _nameCase->addItem(NameCases::nameLabel(c), NameCases::rawValue(c));
        _extCase->addItem(NameCases::extensionLabel(c), NameCases::rawValue(c));
    }
    _nameCase->setCurrentIndex(_nameCase->findData(NameCases::rawValue(saved.nameCase)));
    _extCase->setCurrentIndex(_extCase->findData(NameCases::rawValue(saved.extCase)));
    auto *caseRow = new QHBoxLayout;
    caseRow->addWidget(_caseOn);
    caseRow->addWidget(new QLabel(QStringLiteral("Nombre"), edit));
    caseRow->addWidget(_nameCase);
    caseRow->addWidget(new QLabel(QStringLiteral("Extensión"), edit));
    caseRow->addWidget(_extCase);
    caseRow->addStretch(1);
    layout->addLayout(caseRow);

    _repeats = wrapped(RenamePlan::repeatsNote(), edit);
    layout->addWidget(_repeats);
    _preview = new QTreeWidget(edit);
    _preview->setObjectName(QStringLiteral("renamePreview"));
    _preview->setRootIsDecorated(false);
    _preview->setHeaderLabels({QStringLiteral("Ahora"), QStringLiteral("Nuevo nombre"), QString()});
    _preview->header()->setSectionResizeMode(QHeaderView::Stretch);
    layout->addWidget(_preview, 1);

    _footer = new QLabel(edit);
    _footer->setObjectName(QStringLiteral("renameFooter"));
    _rename = new QPushButton(edit);
    _rename->setObjectName(QStringLiteral("renameButton"));
    _rename->setDefault(true);
    auto *cancel = new QPushButton(QStringLiteral("Cancelar"), edit);
    auto *bottom = new QHBoxLayout;
    bottom->addWidget(_footer, 1);
    bottom->addWidget(cancel);
    bottom->addWidget(_rename);
    layout->addLayout(bottom);
    _pages->addWidget(edit);

    // ----- Running
    auto *running = new QWidget(_pages);
    auto *runLayout = new QVBoxLayout(running);
    runLayout->addStretch(1);
    _running = new QLabel(running);
    runLayout->addWidget(_running);
    _progress = new QProgressBar(running);
    runLayout->addWidget(_progress);
    runLayout->addWidget(new QLabel(QStringLiteral("No cierres esta ventana hasta que termine."), running));
    runLayout->addStretch(1);
    _pages->addWidget(running);

    // ----- Result
    auto *result = new QWidget(_pages);
    auto *resultLayout = new QVBoxLayout(result);
    _resultTitle = new QLabel(result);
    QFont bold = _resultTitle->font();
    bold.setBold(true);
    bold.setPointSizeF(bold.pointSizeF() * 1.2);
    _resultTitle->setFont(bold);
    resultLayout->addWidget(_resultTitle);
    _resultBody = wrapped({}, result);
    resultLayout->addWidget(_resultBody);
    resultLayout->addStretch(1);
    auto *close = new QPushButton(QStringLiteral("Cerrar"), result);
    auto *closeRow = new QHBoxLayout;
    closeRow->addStretch(1);
    closeRow->addWidget(close);
    resultLayout->addLayout(closeRow);
    _pages->addWidget(result);

    auto *outer = new QVBoxLayout(this);
    outer->addWidget(_pages);

    // The page not shown takes no room: the simple mode is a few lines, the blocks a whole editor.
    const auto showMode = [this] {
        const int current = _custom->isChecked() ? 1 : 0;
        for (int i = 0; i < _modePages->count(); ++i)
            _modePages->widget(i)->setSizePolicy(QSizePolicy::Preferred, i == current ? QSizePolicy::Preferred : QSizePolicy::Ignored);
        _modePages->setCurrentIndex(current);
        _modePages->adjustSize();
    };
    (saved.mode == RenameOptions::Mode::custom ? _custom : _simple)->setChecked(true);
    showMode();
    connect(_simple, &QRadioButton::toggled, this, [this, showMode] {
        showMode();
        refresh();
    });
    connect(_template, &QComboBox::activated, this, [this](int index) {
        if (const auto t = RenameTemplate::byId(_template->itemData(index).toString()))
            _blocks->setPattern(t->pattern(_blocks->pattern().separator, _name->text().trimmed()));
        _template->setCurrentIndex(0);
    });
    connect(_blocks, &BlockEditor::edited, this, &RenameSheet::refresh);
    connect(_name, &QLineEdit::textChanged, this, &RenameSheet::refresh);
    connect(_separator, &QComboBox::currentIndexChanged, this, &RenameSheet::refresh);
    connect(_start, &QSpinBox::valueChanged, this, &RenameSheet::refresh);
    connect(_digits, &QSpinBox::valueChanged, this, &RenameSheet::refresh);
    connect(_caseOn, &QCheckBox::toggled, this, &RenameSheet::refresh);
    connect(_nameCase, &QComboBox::currentIndexChanged, this, &RenameSheet::refresh);
    connect(_extCase, &QComboBox::currentIndexChanged, this, &RenameSheet::refresh);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(close, &QPushButton::clicked, this, &QDialog::accept);
    connect(_rename, &QPushButton::clicked, this, &RenameSheet::start);
    connect(&_watcher, &QFutureWatcher<RenameOutcome>::finished, this, &RenameSheet::finished);
    refresh();
}

RenameOptions RenameSheet::options() const
{
    RenameOptions o;
    o.mode = _custom->isChecked() ? RenameOptions::Mode::custom : RenameOptions::Mode::simple;
    o.name = _name->text();
    o.separator = _separator->currentData().toString();
    o.pattern = _blocks->pattern();
    o.start = o.mode == RenameOptions::Mode::custom ? int(_blocks->start()) : _start->value();
    o.digits = o.mode == RenameOptions::Mode::custom ? _blocks->digits() : _digits->value();
    o.caseOn = _caseOn->isChecked();
    o.nameCase = NameCases::fromRaw(_nameCase->currentData().toString()).value_or(NameCase::keep);
    o.extCase = NameCases::fromRaw(_extCase->currentData().toString()).value_or(NameCase::keep);
    return o;
}

void RenameSheet::refresh()
{
    _nameCase->setEnabled(_caseOn->isChecked());
    _extCase->setEnabled(_caseOn->isChecked());
    _plan = planRename(_shots, options(), _folderFiles);
    _repeats->setVisible(_plan.numbersRepeats);
    _preview->clear();
    for (const RenameRow &r : _plan.rows) {
        auto *item = new QTreeWidgetItem(_preview);
        item->setText(0, r.oldName + QLatin1Char(' ') + extsText(r.oldExts));
        item->setText(1, r.newName + QLatin1Char(' ') + extsText(r.newExts));
        item->setText(2, r.problem);
        if (!r.problem.isEmpty())
            item->setForeground(2, QColor(0xe5, 0x48, 0x4d));
        else if (!r.changed)
            item->setForeground(1, palette().color(QPalette::PlaceholderText));
    }
    if (_shots.isEmpty()) {
        _footer->setText(QStringLiteral("No hay nada que renombrar."));
        _rename->setText(QStringLiteral("Renombrar"));
        _rename->setEnabled(false);
        return;
    }
    _footer->setText(_plan.footer());
    _rename->setText(_plan.buttonText());
    _rename->setEnabled(_plan.canRename());
}

void RenameSheet::start()
{
    if (!_plan.canRename() || _watcher.isRunning())
        return;
    options().save();
    // What is marked a moment ago is in the marks file before the files move with it.
    _session.store().flush();
    _running->setText(ShotRenamer::runningText(_plan.changedCount()));
    _progress->setRange(0, 0);
    _pages->setCurrentIndex(1);
    const RenamePlan plan = _plan;
    QPointer<QProgressBar> bar = _progress;
    _watcher.setFuture(QtConcurrent::run([plan, bar] {
        return ShotRenamer::run(plan, [bar](int done, int total) {
            QMetaObject::invokeMethod(bar, [bar, done, total] {
                if (bar) {
                    bar->setRange(0, total);
                    bar->setValue(done);
                }
            }, Qt::QueuedConnection);
        });
    }));
}

void RenameSheet::finished()
{
    _outcome = _watcher.result();
    // The folder is read again: its files and its marks file changed underneath.
    AppState &state = _session.state();
    _session.book().forget(state.folder());
    state.reload();
    _resultTitle->setText(_outcome.title());
    _resultBody->setText(_outcome.body());
    _pages->setCurrentIndex(2);
    emit renamed(_outcome);
}

void RenameSheet::closeEvent(QCloseEvent *event)
{
    if (_watcher.isRunning()) {
        event->ignore();   // the names are changing now: the sheet stays until they are done
        return;
    }
    QDialog::closeEvent(event);
}
