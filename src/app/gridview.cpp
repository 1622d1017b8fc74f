#include "gridview.h"

#include "griddelegate.h"
#include "gridmodel.h"
#include "thumbnailsource.h"

#include "marks/marks.h"
#include "browser/appstate.h"

#include <QHelpEvent>
#include <QKeyEvent>
#include <QScrollBar>
#include <QTimer>
#include <QToolTip>

namespace {
// Scrolling is taken as settled after this long without a move; a long steady scroll still
// asks at least this often, so cells fill in on the way.
constexpr int kSettleMs = 60;
constexpr int kMaxWaitMs = 300;
} // namespace

GridView::GridView(AppState &state, QWidget *parent)
    : QListView(parent)
    , _state(state)
    , _model(new GridModel(state, this))
    , _delegate(new GridDelegate(this))
    , _thumbTimer(new QTimer(this))
{
    setObjectName(QStringLiteral("grid"));
    // A wrapped left-to-right flow of fixed cells. With every cell the same size the list-mode
    // layout is arithmetic: 20,000 cells lay out in one pass in well under 100 ms, so End, the
    // scroll bar and scrollTo() are right at once (batched layout leaves the tail unplaced for a
    // while, and icon mode keeps a spatial tree of every cell).
    setViewMode(QListView::ListMode);
    setFlow(QListView::LeftToRight);
    setWrapping(true);
    setMovement(QListView::Static);
    setResizeMode(QListView::Adjust);
    setUniformItemSizes(true);
    setLayoutMode(QListView::SinglePass);
    setSpacing(0);
    setSelectionMode(QAbstractItemView::NoSelection);   // gestures are ours; see the header
    setDragEnabled(false);
    setAcceptDrops(false);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setFrameShape(QFrame::NoFrame);
    setMouseTracking(false);
    setFocusPolicy(Qt::StrongFocus);
    setItemDelegate(_delegate);
    setModel(_model);
    setThumbSize(168);

    _thumbTimer->setSingleShot(true);
    _thumbTimer->setInterval(kSettleMs);
    connect(_thumbTimer, &QTimer::timeout, this, &GridView::requestThumbnails);
    connect(verticalScrollBar(), &QScrollBar::valueChanged, this, [this](int value) {
        if (value != _scrollValue)
            _scrollDirection = value > _scrollValue ? 1 : -1;
        _scrollValue = value;
        scheduleThumbnails();
    });
    connect(_model, &QAbstractItemModel::modelReset, this, &GridView::afterReset);
    connect(_model, &QAbstractItemModel::modelReset, this, &GridView::scheduleThumbnails);
    connect(&state, &AppState::currentChanged, this, &GridView::syncCurrentFromState);
    connect(&state, &AppState::selectionChanged, this, &GridView::syncSelectionFromState);
}

void GridView::setThumbnailSource(ThumbnailSource *source)
{
    _model->setThumbnailSource(source);
    scheduleThumbnails();
}

// ----- Thumbnails

std::pair<int, int> GridView::visibleRows() const
{
    const int rows = _model->rowCount();
    const QRect area = viewport()->rect();
    const QSize grid = gridSize().isValid() ? gridSize() : _delegate->cellSize();
    if (rows == 0 || area.isEmpty() || grid.isEmpty())
        return {-1, -1};
    // Cells sit at the left of their grid slots with gaps between them: look for one at the
    // left edge of each slot along a line, from the left or from the right.
    const int columns = qMax(1, area.width() / grid.width());
    auto rowOnLine = [this, columns, grid](int y, bool fromRight) {
        for (int i = 0; i < columns; ++i) {
            const int column = fromRight ? columns - 1 - i : i;
            if (const QModelIndex idx = indexAt(QPoint(column * grid.width() + 2, y)); idx.isValid())
                return idx.row();
        }
        return -1;
    };
    const int first = rowOnLine(1, false);
    if (first < 0)
        return {-1, -1};
    int last = rowOnLine(area.height() - 2, true);
    if (last < 0)
        last = rows - 1;   // the content ends above the bottom edge
    // Never more than the lines that fit, whatever the layout did.
    last = qMin(last, first + columns * (area.height() / grid.height() + 2) - 1);
    return {first, qMax(first, last)};
}

void GridView::refreshThumbnails()
{
    viewport()->update();
    requestThumbnails();
}

void GridView::scheduleThumbnails()
{
    if (!_model->thumbnailSource())
        return;
    if (!_thumbsPending.isValid())
        _thumbsPending.start();
    if (_thumbsPending.elapsed() >= kMaxWaitMs)
        requestThumbnails();
    else
        _thumbTimer->start();
}

void GridView::requestThumbnails()
{
    _thumbTimer->stop();
    _thumbsPending.invalidate();
    ThumbnailSource *source = _model->thumbnailSource();
    if (!source)
        return;
    const auto [first, last] = visibleRows();
    QList<QUuid> ids;
    if (first >= 0) {
        // What is on screen, then one screen further the way the user is scrolling.
        const int screen = last - first + 1;
        ids.reserve(2 * screen);
        auto add = [this, &ids](int row) {
            if (const Photo *p = _model->photoAt(row))
                ids.append(p->id);
        };
        for (int row = first; row <= last; ++row)
            add(row);
        if (_scrollDirection >= 0)
            for (int row = last + 1; row <= qMin(last + screen, _model->rowCount() - 1); ++row)
                add(row);
        else
            for (int row = first - 1; row >= qMax(0, first - screen); --row)
                add(row);
    }
    source->want(ids);
}

int GridView::thumbSize() const { return _delegate->thumbSize(); }

void GridView::setThumbSize(int px)
{
    px = qBound(kMinThumb, px, kMaxThumb);
    const bool changed = px != _delegate->thumbSize();
    _delegate->setThumbSize(px);
    fitColumns();
    scheduleThumbnails();
    verticalScrollBar()->setSingleStep(qMax(20, _delegate->cellSize().height() / 4));
    if (currentIndex().isValid())
        QTimer::singleShot(0, this, [this] { scrollTo(currentIndex(), QAbstractItemView::PositionAtCenter); });
    if (changed)
        emit thumbSizeChanged(px);
}

QString GridView::currentFolder() const
{
    return _model->folderAt(currentIndex().row());
}

void GridView::moveCursorTo(int row)
{
    moveTo(row, Qt::NoModifier, true);
}

// ----- AppState → view

void GridView::afterReset()
{
    _anchor = -1;
    syncCurrentFromState();
    syncSelectionFromState();
}

void GridView::syncCurrentFromState()
{
    const int i = _state.currentIndex();
    // Resting on a subfolder cell: AppState still names the last shot; only a real move of
    // that shot takes the cursor off the folder.
    const bool stay = _model->isFolder(currentIndex().row()) && i == _lastStateIndex;
    _lastStateIndex = i;
    if (stay)
        return;
    int row = _model->rowOfVisible(i);
    if (row < 0 && _model->rowCount() > 0 && !currentIndex().isValid())
        row = 0;   // a folder of subfolders only: the cursor still needs a home
    if (row < 0 || row >= _model->rowCount() || currentIndex().row() == row)
        return;
    _syncing = true;
    setCursorRow(row);
    _syncing = false;
    if (_state.selection().isEmpty())
        _anchor = row;
}

void GridView::syncSelectionFromState()
{
    QItemSelectionModel *sm = selectionModel();
    if (!sm)
        return;
    const QSet<QUuid> &sel = _state.selection();
    QItemSelection items;
    if (!sel.isEmpty()) {
        // Consecutive rows as one range: Ctrl+A over 20,000 shots is one range, not 20,000.
        const QList<PhotoPtr> &photos = _model->photos();
        const int base = _model->folderCount();
        int start = -1;
        for (int i = 0; i <= photos.size(); ++i) {
            const bool in = i < photos.size() && sel.contains(photos[i]->id);
            if (in && start < 0)
                start = i;
            if (!in && start >= 0) {
                items.select(_model->index(base + start), _model->index(base + i - 1));
                start = -1;
            }
        }
    }
    sm->select(items, QItemSelectionModel::ClearAndSelect);
}

void GridView::setCursorRow(int row)
{
    const QModelIndex idx = _model->index(row);
    if (!idx.isValid())
        return;
    selectionModel()->setCurrentIndex(idx, QItemSelectionModel::NoUpdate);
    scrollTo(idx, QAbstractItemView::EnsureVisible);
}

// ----- view → AppState

void GridView::currentChanged(const QModelIndex &current, const QModelIndex &previous)
{
    QListView::currentChanged(current, previous);
    if (_syncing || !current.isValid())
        return;
    const int i = _model->visibleIndexOfRow(current.row());
    if (i >= 0) {
        _lastStateIndex = i;
        _state.setCurrentIndex(i);
    }
}

void GridView::moveTo(int row, Qt::KeyboardModifiers mods, bool keyboard)
{
    if (row < 0 || row >= _model->rowCount())
        return;
    const bool shift = mods & Qt::ShiftModifier;
    const bool ctrl = mods & Qt::ControlModifier;
    const int from = currentIndex().row();
    if (_anchor < 0 || _anchor >= _model->rowCount())
        _anchor = from >= 0 ? from : row;

    if (shift) {
        // A range in reading order from the anchor; Ctrl adds it to what was selected.
        QSet<QUuid> sel = ctrl ? _state.selection() : QSet<QUuid>();
        const int lo = qMin(_anchor, row), hi = qMax(_anchor, row);
        for (int r = lo; r <= hi; ++r)
            if (Photo *p = _model->photoAt(r))
                sel.insert(p->id);
        setCursorRow(row);
        _state.setSelection(sel);
    } else if (ctrl && keyboard) {
        setCursorRow(row);   // moves the cursor, keeps the selection
        _anchor = row;
    } else if (ctrl) {
        QSet<QUuid> sel = _state.selection();
        // The shot under the cursor counts as chosen when nothing is selected yet.
        if (sel.isEmpty())
            if (Photo *cur = _model->photoAt(from); cur && from != row)
                sel.insert(cur->id);
        if (Photo *p = _model->photoAt(row)) {
            if (sel.contains(p->id))
                sel.remove(p->id);
            else
                sel.insert(p->id);
        }
        setCursorRow(row);
        _state.setSelection(sel);
        _anchor = row;
    } else {
        setCursorRow(row);
        _state.clearSelection();
        _anchor = row;
    }
}

void GridView::mousePressEvent(QMouseEvent *event)
{
    const QModelIndex idx = indexAt(event->position().toPoint());
    if (event->button() != Qt::LeftButton && event->button() != Qt::RightButton) {
        QListView::mousePressEvent(event);
        return;
    }
    setFocus(Qt::MouseFocusReason);
    if (!idx.isValid()) {
        if (event->button() == Qt::LeftButton && !(event->modifiers() & (Qt::ShiftModifier | Qt::ControlModifier)))
            _state.clearSelection();
        event->accept();
        return;
    }
    // The flag box toggles that shot's flag and nothing else.
    if (event->button() == Qt::LeftButton && !_model->isFolder(idx.row())
        && _delegate->flagRect(visualRect(idx)).adjusted(-3, -3, 3, 3).contains(event->position().toPoint())) {
        if (Photo *p = _model->photoAt(idx.row())) {
            Marks m = Marks::fromPhoto(*p);
            m.t = p->tagged() ? std::nullopt : std::optional<bool>(true);
            _state.setMarks(p, m, QStringLiteral("bandera"));
        }
        event->accept();
        return;
    }
    if (event->button() == Qt::RightButton) {
        // A right click on an unselected cell makes it the current one, as a left click would.
        if (Photo *p = _model->photoAt(idx.row()); !p || !_state.selection().contains(p->id))
            moveTo(idx.row(), Qt::NoModifier, false);
        event->accept();
        return;
    }
    moveTo(idx.row(), event->modifiers(), false);
    event->accept();
}

void GridView::mouseMoveEvent(QMouseEvent *event) { event->accept(); }      // no rubber band, no drag
void GridView::mouseReleaseEvent(QMouseEvent *event) { event->accept(); }

void GridView::mouseDoubleClickEvent(QMouseEvent *event)
{
    const QModelIndex idx = indexAt(event->position().toPoint());
    if (event->button() != Qt::LeftButton || !idx.isValid()) {
        event->accept();
        return;
    }
    if (!_model->isFolder(idx.row())
        && _delegate->flagRect(visualRect(idx)).adjusted(-3, -3, 3, 3).contains(event->position().toPoint())) {
        mousePressEvent(event);   // a quick second click on the box is a second toggle
        return;
    }
    if (_model->isFolder(idx.row())) {
        emit folderActivated(_model->folderAt(idx.row()));
    } else {
        if (currentIndex() != idx)
            moveTo(idx.row(), Qt::NoModifier, false);
        emit photoActivated();
    }
    event->accept();
}

void GridView::keyPressEvent(QKeyEvent *event)
{
    CursorAction action;
    switch (event->key()) {
    case Qt::Key_Left: action = MoveLeft; break;
    case Qt::Key_Right: action = MoveRight; break;
    case Qt::Key_Up: action = MoveUp; break;
    case Qt::Key_Down: action = MoveDown; break;
    case Qt::Key_Home: action = MoveHome; break;
    case Qt::Key_End: action = MoveEnd; break;
    case Qt::Key_PageUp: action = MovePageUp; break;
    case Qt::Key_PageDown: action = MovePageDown; break;
    default:
        // Everything else belongs to the window's commands.
        event->ignore();
        return;
    }
    if (_model->rowCount() == 0) {
        event->accept();
        return;
    }
    QModelIndex next;
    if (action == MoveHome || !currentIndex().isValid())
        next = _model->index(0);
    else if (action == MoveEnd)
        next = _model->index(_model->rowCount() - 1);
    else
        next = moveCursor(action, event->modifiers());
    if (next.isValid())
        moveTo(next.row(), event->modifiers() & (Qt::ShiftModifier | Qt::ControlModifier), true);
    event->accept();
}

void GridView::fitColumns()
{
    // Whole columns, the spare width shared among them: no ragged gap on the right.
    const QSize cell = _delegate->cellSize();
    const int width = viewport()->width();
    const int columns = qMax(1, width / cell.width());
    const int extra = width > cell.width() ? (width - columns * cell.width()) / columns : 0;
    const QSize grid(cell.width() + extra, cell.height());
    if (gridSize() != grid)
        setGridSize(grid);
}

void GridView::resizeEvent(QResizeEvent *event)
{
    const bool wasVisible = currentIndex().isValid() && viewport()->rect().intersects(visualRect(currentIndex()));
    fitColumns();
    QListView::resizeEvent(event);
    scheduleThumbnails();
    if (wasVisible)
        QTimer::singleShot(0, this, [this] {
            if (currentIndex().isValid())
                scrollTo(currentIndex(), QAbstractItemView::EnsureVisible);
        });
}

void GridView::showEvent(QShowEvent *event)
{
    QListView::showEvent(event);
    scheduleThumbnails();
}

bool GridView::viewportEvent(QEvent *event)
{
    if (event->type() == QEvent::ToolTip) {
        auto *help = static_cast<QHelpEvent *>(event);
        const QModelIndex idx = indexAt(help->pos());
        if (idx.isValid() && !_model->isFolder(idx.row())
            && _delegate->flagRect(visualRect(idx)).contains(help->pos())) {
            QToolTip::showText(help->globalPos(), QStringLiteral("Bandera (T)"), viewport());
            return true;
        }
    }
    return QListView::viewportEvent(event);
}
