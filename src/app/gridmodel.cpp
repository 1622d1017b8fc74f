#include "gridmodel.h"

#include "markglyphs.h"
#include "thumbnailsource.h"

#include "browser/appstate.h"

#include <QFileInfo>

GridModel::GridModel(AppState &state, QObject *parent)
    : QAbstractListModel(parent)
    , _state(state)
{
    connect(&state, &AppState::folderChanged, this, &GridModel::reset);
    connect(&state, &AppState::loaded, this, &GridModel::reset);
    connect(&state, &AppState::photosChanged, this, &GridModel::reset);
    connect(&state, &AppState::photosUpdated, this, &GridModel::updateRows);
    reset();
}

void GridModel::reset()
{
    // The view's relayout after a reset is the costly part; skip it when nothing moved
    // (AppState reports a rebuilt list after loads and filter changes alike).
    if (_folders == _state.subfolders() && _photos == _state.visible())
        return;
    beginResetModel();
    _folders = _state.subfolders();
    _photos = _state.visible();
    _rows.clear();
    _rows.reserve(_photos.size());
    for (qsizetype i = 0; i < _photos.size(); ++i)
        _rows.insert(_photos[i]->id, int(_folders.size() + i));
    endResetModel();
}

void GridModel::updateRows(const QList<QUuid> &ids)
{
    // One signal over the span touched: a mark on a large selection stays one repaint.
    int first = -1, last = -1;
    for (const QUuid &id : ids) {
        const int row = rowOf(id);
        if (row < 0)
            continue;
        first = first < 0 ? row : qMin(first, row);
        last = qMax(last, row);
    }
    if (first >= 0)
        emit dataChanged(index(first), index(last));
}

void GridModel::setThumbnailSource(ThumbnailSource *source)
{
    if (_source)
        disconnect(_source, nullptr, this, nullptr);
    _source = source;
    if (source)
        connect(source, &ThumbnailSource::thumbnailReady, this, [this](const QUuid &id) {
            const int row = rowOf(id);
            if (row >= 0)
                emit dataChanged(index(row), index(row), {Qt::DecorationRole});
        });
    if (rowCount() > 0)
        emit dataChanged(index(0), index(rowCount() - 1), {Qt::DecorationRole});
}

int GridModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(_folders.size() + _photos.size());
}

Photo *GridModel::photoAt(int row) const
{
    const qsizetype i = row - _folders.size();
    return (i >= 0 && i < _photos.size()) ? _photos[i].get() : nullptr;
}

Qt::ItemFlags GridModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
}

QVariant GridModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const int row = index.row();
    if (isFolder(row)) {
        const QString &path = _folders.at(row);
        switch (role) {
        case Qt::DisplayRole: return QFileInfo(path).fileName();
        case Qt::ToolTipRole:
        case PathRole: return path;
        case CellKindRole: return FolderCell;
        default: return {};
        }
    }
    const Photo &p = *photoAt(row);
    switch (role) {
    case Qt::DisplayRole: return p.name();
    case Qt::ToolTipRole: {
        QString tip = p.name();
        const QString reason = sharpReason(p, _state.sensitivity());
        if (!reason.isEmpty())
            tip += QLatin1Char('\n') + reason;
        return tip;
    }
    case CellKindRole: return PhotoCell;
    case PathRole: return p.url();
    case PhotoIdRole: return p.id;
    case BadgeRole: return p.badge;
    case KindLabelRole: return MarkGlyphs::kindLabel(p);
    case ColorRole: return int(p.colorClass());
    case RatingRole: return p.rating();
    case TaggedRole: return p.tagged();
    case RotationRole: return p.rotation();
    case SharpRole: return sharpVerdict(p, _state.sensitivity());
    case SharpReasonRole: return sharpReason(p, _state.sensitivity());
    case NewRole: return p.isNew();
    case DamagedRole: return p.damaged();
    default: return {};
    }
}
