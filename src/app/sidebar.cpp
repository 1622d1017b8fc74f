#include "sidebar.h"
#include "util/settings.h"

#include "browser/appstate.h"

#include <QDir>
#include <QFileInfo>
#include <QFileSystemModel>
#include <QHash>
#include <QHeaderView>
#include <QLabel>
#include <QListWidget>
#include <QTreeView>
#include <QVBoxLayout>

namespace {
QLabel *sectionTitle(const QString &text, QWidget *parent)
{
    auto *l = new QLabel(text.toUpper(), parent);
    QFont f = l->font();
    f.setPointSizeF(f.pointSizeF() * 0.82);
    f.setBold(true);
    f.setLetterSpacing(QFont::PercentageSpacing, 106);
    l->setFont(f);
    l->setForegroundRole(QPalette::PlaceholderText);
    l->setContentsMargins(10, 8, 8, 2);
    return l;
}
} // namespace

Sidebar::Sidebar(AppState &state, QWidget *parent)
    : QWidget(parent)
    , _state(state)
    , _recents(new QListWidget(this))
    , _tree(new QTreeView(this))
    , _fs(new QFileSystemModel(this))
{
    setObjectName(QStringLiteral("sidebar"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    layout->addWidget(sectionTitle(QStringLiteral("Recientes"), this));
    _recents->setObjectName(QStringLiteral("recents"));
    _recents->setFrameShape(QFrame::NoFrame);
    _recents->setTextElideMode(Qt::ElideMiddle);
    _recents->setFocusPolicy(Qt::ClickFocus);
    layout->addWidget(_recents);

    layout->addWidget(sectionTitle(QStringLiteral("Carpetas"), this));
    _fs->setFilter(QDir::AllDirs | QDir::NoDotAndDotDot | QDir::Drives);
    _fs->setReadOnly(true);
    _fs->setRootPath(QDir::rootPath());
    _tree->setObjectName(QStringLiteral("folderTree"));
    _tree->setModel(_fs);
    _tree->setRootIndex(_fs->index(QDir::rootPath()));
    for (int c = 1; c < _fs->columnCount(); ++c)
        _tree->hideColumn(c);
    _tree->setHeaderHidden(true);
    _tree->setFrameShape(QFrame::NoFrame);
    _tree->setAnimated(false);
    _tree->setUniformRowHeights(true);
    _tree->setIndentation(14);
    _tree->setFocusPolicy(Qt::ClickFocus);
    layout->addWidget(_tree, 1);
    reveal(QDir::homePath());

    connect(_tree, &QTreeView::clicked, this, [this](const QModelIndex &idx) {
        emit folderChosen(_fs->filePath(idx));
    });
    connect(_recents, &QListWidget::itemClicked, this, [this](QListWidgetItem *item) {
        emit folderChosen(item->data(Qt::UserRole).toString());
    });
    connect(&state, &AppState::folderChanged, this, [this] {
        refreshRecents();
        if (!_state.folder().isEmpty())
            reveal(_state.folder());
    });
    refreshRecents();
}

QString Sidebar::focusedFolder() const
{
    if (_tree->hasFocus() && _tree->currentIndex().isValid())
        return _fs->filePath(_tree->currentIndex());
    if (_recents->hasFocus() && _recents->currentItem())
        return _recents->currentItem()->data(Qt::UserRole).toString();
    return {};
}

void Sidebar::reveal(const QString &folder)
{
    const QModelIndex idx = _fs->index(folder);
    if (!idx.isValid())
        return;
    for (QModelIndex p = idx.parent(); p.isValid(); p = p.parent())
        _tree->expand(p);
    _tree->setCurrentIndex(idx);
    _tree->scrollTo(idx, QAbstractItemView::PositionAtCenter);
}

void Sidebar::refreshRecents()
{
    _recents->clear();
    QStringList recent = Settings::recentFolders.get();
    recent.removeIf([](const QString &path) { return !QFileInfo(path).isDir(); });   // unplugged cards, deleted folders
    QHash<QString, int> nameCount;
    for (const QString &path : std::as_const(recent))
        ++nameCount[QFileInfo(path).fileName()];
    for (const QString &path : std::as_const(recent)) {
        const QFileInfo info(path);
        QString label = info.fileName().isEmpty() ? path : info.fileName();
        // Two "Tarjeta 1" folders from different days must not look the same.
        if (nameCount.value(info.fileName()) > 1)
            label += QStringLiteral("  ·  ") + QFileInfo(info.absolutePath()).fileName();
        auto *item = new QListWidgetItem(label, _recents);
        item->setData(Qt::UserRole, path);
        item->setToolTip(path);
    }
    // As tall as its rows, up to six: the folder tree below gets the rest.
    const int rows = qBound(1, _recents->count(), 6);
    const int rowHeight = _recents->sizeHintForRow(0) > 0 ? _recents->sizeHintForRow(0) : fontMetrics().height() + 4;
    _recents->setFixedHeight(rows * rowHeight + 2 * _recents->frameWidth() + 4);
}
