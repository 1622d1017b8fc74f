#pragma once
// The grid of cells. Current cell and selection live in AppState; this view mirrors them both
// ways and implements the photographer's selection gestures itself (click, Shift+click for a
// range in reading order, Ctrl+click to toggle, arrows move the current shot), because
// QListView's rubber-band selection selects rectangles of a wrapped flow, not ranges.
// Thumbnails are asked for when scrolling settles (or at least every few hundred milliseconds
// of continuous scrolling): the cells on screen and one screen ahead; painting only reads memory.
// GUI thread only.
#include <QElapsedTimer>
#include <QListView>

class AppState;
class GridDelegate;
class GridModel;
class ThumbnailSource;
class QTimer;

class GridView : public QListView
{
    Q_OBJECT
public:
    static constexpr int kMinThumb = 96;
    static constexpr int kMaxThumb = 384;

    explicit GridView(AppState &state, QWidget *parent = nullptr);

    GridModel *gridModel() const { return _model; }
    GridDelegate *gridDelegate() const { return _delegate; }
    void setThumbnailSource(ThumbnailSource *source);

    int thumbSize() const;
    void setThumbSize(int px);

    // The subfolder under the cursor when the current cell is one, else empty.
    QString currentFolder() const;
    // Moves the cursor to a row as a plain keyboard move would (tests, menus).
    void moveCursorTo(int row);
    // Rows whose cells are on screen, first and last; -1, -1 when none.
    std::pair<int, int> visibleRows() const;
    // Asks the source again for what is on screen (after the caches were emptied).
    void refreshThumbnails();

signals:
    void folderActivated(const QString &path);
    void photoActivated();
    void thumbSizeChanged(int px);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void keyboardSearch(const QString &) override {}   // letters are mark keys, never "jump to name"
    void currentChanged(const QModelIndex &current, const QModelIndex &previous) override;
    void resizeEvent(QResizeEvent *event) override;
    bool viewportEvent(QEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    void fitColumns();
    void moveTo(int row, Qt::KeyboardModifiers mods, bool keyboard);
    void setCursorRow(int row);
    void syncCurrentFromState();
    void syncSelectionFromState();
    void afterReset();
    void scheduleThumbnails();
    void requestThumbnails();

    AppState &_state;
    GridModel *_model;
    GridDelegate *_delegate;
    int _anchor = -1;        // start of Shift ranges
    int _lastStateIndex = -1;   // AppState's current index as last seen
    bool _syncing = false;   // applying AppState's state to the view
    QTimer *_thumbTimer;
    QElapsedTimer _thumbsPending;   // since the first change not yet asked for
    int _scrollValue = 0;
    int _scrollDirection = 1;
};
