#pragma once
// The cells of the grid: the open folder's subfolders first, then the visible shots. A snapshot
// of AppState's lists taken at each reset, so rows stay consistent between two signals.
// GUI thread only.
#include "thumbnailsource.h"

#include "model/photo.h"

#include <QAbstractListModel>
#include <QHash>
#include <QPointer>
#include <QStringList>

class AppState;

class GridModel : public QAbstractListModel
{
    Q_OBJECT
public:
    enum CellKind { FolderCell, PhotoCell };
    enum Role {
        CellKindRole = Qt::UserRole + 1,   // CellKind
        PathRole,                          // folder path, or the shot's main file
        PhotoIdRole,                       // QUuid (shots only)
        BadgeRole,                         // "NEF+JPG"
        KindLabelRole,                     // "RAW", "JPG", "VÍDEO"… shown on the placeholder
        ColorRole,                         // 0…8
        RatingRole,                        // 0…5
        TaggedRole,                        // bool
        RotationRole,                      // quarter turns 0…3
        SharpRole,                         // SharpLevel by the current sensitivity
        SharpReasonRole,                   // why a blurry shot is blurry, else empty
        NewRole,                           // bool
        DamagedRole,                       // bool: no file of the shot can be read
    };

    explicit GridModel(AppState &state, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

    int folderCount() const { return int(_folders.size()); }
    bool isFolder(int row) const { return row >= 0 && row < _folders.size(); }
    QString folderAt(int row) const { return isFolder(row) ? _folders.at(row) : QString(); }
    Photo *photoAt(int row) const;
    // Row of a shot, or -1 when it is not in the grid.
    int rowOf(const QUuid &id) const { return _rows.value(id, -1); }
    int rowOfVisible(int visibleIndex) const { return visibleIndex < 0 ? -1 : int(_folders.size()) + visibleIndex; }
    int visibleIndexOfRow(int row) const { return row < _folders.size() ? -1 : row - int(_folders.size()); }
    const QList<PhotoPtr> &photos() const { return _photos; }

    AppState &state() const { return _state; }
    void setThumbnailSource(ThumbnailSource *source);
    ThumbnailSource *thumbnailSource() const { return _source; }

private:
    void reset();
    void updateRows(const QList<QUuid> &ids);

    AppState &_state;
    QPointer<ThumbnailSource> _source;
    QStringList _folders;
    QList<PhotoPtr> _photos;
    QHash<QUuid, int> _rows;
};
