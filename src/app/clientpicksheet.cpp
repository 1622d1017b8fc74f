#include "clientpicksheet.h"

#include "labelcolors.h"
#include "markglyphs.h"
#include "thumbnailsource.h"

#include "browser/appstate.h"
#include "marks/marks.h"

#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPainter>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QTimer>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>

using namespace ClientSelection;

namespace {
constexpr int kReadDelayMs = 150;
constexpr int kIconSize = 40;
constexpr int kMaxShownShots = 100;   // per line of several
constexpr int kIdRole = Qt::UserRole;

QLabel *quiet(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}
} // namespace

ClientPickSheet::ClientPickSheet(AppState &state, ThumbnailSource *thumbnails, QWidget *parent)
    : QDialog(parent)
    , _state(state)
    , _thumbnails(thumbnails)
{
    setObjectName(QStringLiteral("seleccion-cliente"));
    setWindowTitle(QStringLiteral("Selección del cliente"));
    resize(900, 580);

    auto *title = new QLabel(QStringLiteral("Selección del cliente"), this);
    QFont big = title->font();
    big.setPointSizeF(big.pointSizeF() * 1.3);
    big.setBold(true);
    title->setFont(big);
    auto *intro = quiet(QStringLiteral("Pega el mensaje del cliente tal cual: Corvane encuentra las imágenes por su número"), this);

    // Left: the message.
    auto *fieldTitle = new QLabel(QStringLiteral("MENSAJE DEL CLIENTE"), this);
    QFont small = fieldTitle->font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    small.setBold(true);
    fieldTitle->setFont(small);
    _message = new QPlainTextEdit(this);
    _message->setObjectName(QStringLiteral("clientMessage"));
    _message->setPlaceholderText(
        QStringLiteral("Por ejemplo:\n«Hola! Me quedo con la 0412, 415, 433,\nDSC_0533 y de la 600 a la 605»"));
    auto *help = quiet(QStringLiteral("Vale cualquier formato: con o sin DSC_, con o sin ceros delante, con extensión, "
                                      "separados por comas, espacios o líneas, y rangos como 600-605."),
                       this);
    auto *left = new QVBoxLayout;
    left->addWidget(fieldTitle);
    left->addWidget(_message, 1);
    left->addWidget(help);

    // Right: the lines, or the empty state.
    _right = new QStackedWidget(this);
    _empty = quiet(QStringLiteral("Pega el mensaje a la izquierda"), _right);
    _empty->setAlignment(Qt::AlignCenter);
    _lines = new QTreeWidget(_right);
    _lines->setObjectName(QStringLiteral("clientLines"));
    _lines->setColumnCount(2);
    _lines->header()->hide();
    _lines->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    _lines->setIconSize(QSize(kIconSize, kIconSize));
    _lines->setSelectionMode(QAbstractItemView::NoSelection);
    _lines->setRootIsDecorated(true);
    _right->addWidget(_empty);
    _right->addWidget(_lines);
    _copyMissing = new QPushButton(QStringLiteral("Copiar las que no están"), this);
    _copyMissing->setAutoDefault(false);
    _copied = quiet(QString(), this);
    auto *copyRow = new QHBoxLayout;
    copyRow->addWidget(_copyMissing);
    copyRow->addWidget(_copied, 1);
    auto *right = new QVBoxLayout;
    right->addWidget(_right, 1);
    right->addLayout(copyRow);

    auto *columns = new QHBoxLayout;
    columns->addLayout(left, 1);
    columns->addLayout(right, 1);

    // Bottom: what to do with them.
    _color = new QComboBox(this);
    for (int n = 1; n <= LabelColors::kCount; ++n)
        _color->addItem(MarkGlyphs::colorDot(LabelColors::color(n)), LabelColors::name(n), n);
    _selectThem = new QCheckBox(QStringLiteral("Seleccionarlas"), this);
    _selectThem->setChecked(true);
    _filterThem = new QCheckBox(QStringLiteral("Mostrar solo estas"), this);
    _filterThem->setToolTip(QStringLiteral("Filtra por el color elegido"));
    auto *cancel = new QPushButton(QStringLiteral("Cancelar"), this);
    cancel->setAutoDefault(false);
    _apply = new QPushButton(this);
    _apply->setObjectName(QStringLiteral("clientApply"));
    _apply->setDefault(true);
    auto *actions = new QHBoxLayout;
    actions->addWidget(new QLabel(QStringLiteral("Marcar con"), this));
    actions->addWidget(_color);
    actions->addSpacing(16);
    actions->addWidget(_selectThem);
    actions->addWidget(_filterThem);
    QLabel *filterHelp = quiet(QStringLiteral("Filtra por el color elegido"), this);
    filterHelp->setWordWrap(false);
    actions->addWidget(filterHelp);
    actions->addStretch(1);
    actions->addWidget(cancel);
    actions->addWidget(_apply);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(title);
    layout->addWidget(intro);
    layout->addLayout(columns, 1);
    layout->addLayout(actions);

    _delay = new QTimer(this);
    _delay->setSingleShot(true);
    _delay->setInterval(kReadDelayMs);
    connect(_message, &QPlainTextEdit::textChanged, this, &ClientPickSheet::scheduleRead);
    connect(_delay, &QTimer::timeout, this, &ClientPickSheet::startRead);
    connect(&_reader, &QFutureWatcherBase::finished, this, [this] {
        _reading = false;
        if (_readAgain) {
            startRead();
            return;
        }
        QList<ClientMatch> read = _reader.result();
        for (ClientMatch &m : read)
            m.include = !_offTokens.contains(m.token);
        _matches = std::move(read);
        fillLines();
        updateApply();
        emit matchesChanged();
    });
    // Shots that arrive or go while the sheet is open (the camera, the folder watcher).
    // The visible list is rebuilt for many reasons (analysis results, the filter): read again
    // only when the folder's shots or their files changed.
    const auto reread = [this] {
        if (takeShots())
            scheduleRead();
    };
    connect(&_state, &AppState::loaded, this, reread);
    connect(&_state, &AppState::photosChanged, this, reread);
    connect(_lines, &QTreeWidget::itemChanged, this, &ClientPickSheet::onItemChanged);
    connect(_copyMissing, &QPushButton::clicked, this, &ClientPickSheet::copyMissing);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(_apply, &QPushButton::clicked, this, &ClientPickSheet::apply);
    if (_thumbnails)
        connect(_thumbnails, &ThumbnailSource::thumbnailReady, this, [this](const QUuid &id) {
            const QList<QTreeWidgetItem *> items = _shotItems.value(id);
            if (items.isEmpty())
                return;
            const QImage image = _thumbnails->thumbnail(id, int(kIconSize * devicePixelRatio()));
            for (QTreeWidgetItem *item : items)
                item->setIcon(1, QIcon(QPixmap::fromImage(image)));
        });

    takeShots();
    fillLines();
    updateApply();
}

// The worker holds copies only; a read still running when the sheet closes ends on its own.
ClientPickSheet::~ClientPickSheet() = default;

bool ClientPickSheet::isReading() const { return _delay->isActive() || _reading; }

void ClientPickSheet::scheduleRead()
{
    _copied->clear();
    _delay->start();
    updateApply();
}

void ClientPickSheet::startRead()
{
    if (_reading) {
        _readAgain = true;
        return;
    }
    _reading = true;
    _readAgain = false;
    _reader.setFuture(QtConcurrent::run([text = _message->toPlainText(), shots = _shots] {
        return match(extractTokens(text), PhotoIndex(shots));
    }));
    updateApply();
}

bool ClientPickSheet::takeShots()
{
    QList<QPair<QUuid, QString>> shots;
    shots.reserve(_state.photos().size());
    for (const PhotoPtr &p : _state.photos())
        shots.append({p->id, p->url()});
    if (shots == _shots)
        return false;
    _shots = std::move(shots);
    return true;
}

void ClientPickSheet::fillLines()
{
    _filling = true;
    _lines->clear();
    _shotItems.clear();
    const auto showShot = [this](QTreeWidgetItem *item, const QUuid &id) {
        const Photo *p = _state.photo(id);
        item->setText(1, p ? p->name() : QString());
        item->setData(1, kIdRole, id);
        if (_thumbnails) {
            if (const QImage image = _thumbnails->thumbnail(id, int(kIconSize * devicePixelRatio())); !image.isNull())
                item->setIcon(1, QIcon(QPixmap::fromImage(image)));
        }
        _shotItems[id].append(item);
    };
    for (const ClientMatch &m : std::as_const(_matches)) {
        if (_lines->topLevelItemCount() == kMaxShownLines) {
            auto *more = new QTreeWidgetItem(_lines);
            more->setText(0, QStringLiteral("… y %1 más").arg(_matches.size() - kMaxShownLines));
            more->setFlags(Qt::NoItemFlags);
            break;
        }
        auto *line = new QTreeWidgetItem(_lines);
        line->setText(0, m.token);
        line->setData(0, kIdRole, m.id);
        if (m.photos.isEmpty()) {
            line->setText(1, problemOf(m));
            line->setForeground(1, palette().brush(QPalette::PlaceholderText));
            line->setFlags(Qt::ItemIsEnabled);
            continue;
        }
        line->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
        line->setCheckState(0, m.include ? Qt::Checked : Qt::Unchecked);
        if (m.photos.size() == 1) {
            showShot(line, m.photos.first());
            continue;
        }
        // Several shots: each can be left out on its own.
        line->setText(1, problemOf(m));
        for (const QUuid &id : m.photos.first(std::min<qsizetype>(m.photos.size(), kMaxShownShots))) {
            auto *shot = new QTreeWidgetItem(line);
            shot->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
            shot->setCheckState(1, _excluded.contains(id) ? Qt::Unchecked : Qt::Checked);
            showShot(shot, id);
        }
        line->setExpanded(true);
    }
    _right->setCurrentWidget(_matches.isEmpty() ? static_cast<QWidget *>(_empty) : _lines);
    _filling = false;
}

void ClientPickSheet::onItemChanged(QTreeWidgetItem *item, int column)
{
    if (_filling)
        return;
    const bool on = item->checkState(column) == Qt::Checked;
    if (item->parent()) {
        const QUuid id = item->data(1, kIdRole).toUuid();
        if (on)
            _excluded.remove(id);
        else
            _excluded.insert(id);
    } else {
        const int index = item->data(0, kIdRole).toInt();
        if (index < 0 || index >= _matches.size())
            return;
        _matches[index].include = on;
        if (on)
            _offTokens.remove(_matches[index].token);
        else
            _offTokens.insert(_matches[index].token);
    }
    updateApply();
}

void ClientPickSheet::updateApply()
{
    const qsizetype count = chosenPhotos(_matches, _excluded).size();
    _apply->setText(count == 1 ? QStringLiteral("Aplicar a 1 imagen") : QStringLiteral("Aplicar a %1 imágenes").arg(count));
    // What is applied is what the list shows: never a list older than the message.
    _apply->setEnabled(count > 0 && !isReading());
    _copyMissing->setEnabled(!isReading() && !missingTokens(_matches).isEmpty());
}

void ClientPickSheet::copyMissing()
{
    const QStringList missing = missingTokens(_matches);
    QGuiApplication::clipboard()->setText(missing.join(QStringLiteral(", ")));
    _copied->setText(QStringLiteral("Copiado: %1 números que no están").arg(missing.size()));
}

void ClientPickSheet::apply()
{
    if (isReading())
        return;
    const QList<QUuid> ids = chosenPhotos(_matches, _excluded);
    const int color = _color->currentData().toInt();
    QList<QPair<Photo *, Marks>> marks;
    QSet<QUuid> chosen;
    for (const QUuid &id : ids)
        if (Photo *p = _state.photo(id)) {
            Marks m = Marks::fromPhoto(*p);
            m.c = color;
            marks.append({p, m});
            chosen.insert(id);
        }
    _state.setMarks(marks, QStringLiteral("selección del cliente"));
    if (_filterThem->isChecked()) {
        // Only these: no other criterion may hide one of them.
        PhotoFilter f;
        f.colors = {colorClassFromInt(color)};
        _state.setFilter(f);
    }
    if (_selectThem->isChecked())
        _state.setSelection(chosen);
    accept();
}
