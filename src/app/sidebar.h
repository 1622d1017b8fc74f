#pragma once
// The left column: recent folders and the folder tree (directories only, from the file
// system's root, opened at home). A click opens a folder. GUI thread only.
#include <QWidget>

class AppState;
class QFileSystemModel;
class QListWidget;
class QTreeView;

class Sidebar : public QWidget
{
    Q_OBJECT
public:
    explicit Sidebar(AppState &state, QWidget *parent = nullptr);

    QTreeView *tree() const { return _tree; }
    QListWidget *recents() const { return _recents; }
    // The folder under the cursor of whichever list has the keyboard focus, else empty.
    QString focusedFolder() const;
    // Shows `folder` in the tree (expanding its parents) without opening anything.
    void reveal(const QString &folder);

signals:
    void folderChosen(const QString &folder);

private:
    void refreshRecents();

    AppState &_state;
    QListWidget *_recents;
    QTreeView *_tree;
    QFileSystemModel *_fs;
};
