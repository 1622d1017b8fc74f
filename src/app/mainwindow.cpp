#include "mainwindow.h"

#include "camerawindow.h"
#include "clientpicksheet.h"
#include "emptystate.h"
#include "question.h"
#include "fileopcontroller.h"
#include "renamesheet.h"
#include "filterbar.h"
#include "gridmodel.h"
#include "gridview.h"
#include "importwindow.h"
#include "infopanel.h"
#include "iptcapplysheet.h"
#include "iptctemplateswindow.h"
#include "labelcolors.h"
#include "markglyphs.h"
#include "pipelinethumbnailsource.h"
#include "settingsdialog.h"
#include "shortcutsdialog.h"
#include "sidebar.h"
#include "statusbar.h"
#include "singleview.h"
#include "toast.h"
#include "uploadwindows.h"
#include "windowactions.h"

#include "analysis/sharpnessanalyzer.h"
#include "camera/camerahub.h"
#include "imaging/imagepipeline.h"
#include "marks/marksbook.h"
#include "marks/marksstore.h"
#include "fileops/fileopjournal.h"
#include "fileops/fileopoutcome.h"
#include "metadata/xmplabels.h"
#include "metadata/xmpstore.h"
#include "util/settings.h"
#include "browser/appstate.h"
#include "browser/browsersession.h"

#include <QAbstractSpinBox>
#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QCloseEvent>
#include <QDialog>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressDialog>
#include <QMimeData>
#include <QPainter>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QSlider>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QTextEdit>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>
#include <QtConcurrent>

namespace {
constexpr int kThumbStep = 32;

bool isNavigationKey(int key)
{
    switch (key) {
    case Qt::Key_Left:
    case Qt::Key_Right:
    case Qt::Key_Up:
    case Qt::Key_Down:
    case Qt::Key_Home:
    case Qt::Key_End:
    case Qt::Key_PageUp:
    case Qt::Key_PageDown:
        return true;
    default:
        return false;
    }
}

bool isTextInput(const QWidget *w)
{
    return qobject_cast<const QLineEdit *>(w) || qobject_cast<const QAbstractSpinBox *>(w)
           || qobject_cast<const QTextEdit *>(w) || qobject_cast<const QPlainTextEdit *>(w);
}
} // namespace

MainWindow::MainWindow(BrowserSession &session, QWidget *parent)
    : QMainWindow(parent)
    , _session(session)
    , _state(session.state())
    , _store(session.store())
{
    AppState &state = _state;
    MarksStore &store = _store;
    setObjectName(QStringLiteral("mainWindow"));
    setAcceptDrops(true);
    buildActions();
    buildCentre();
    buildToolBar();
    buildMenus();
    new UploadWindows(this, _session, _actions);
    _fileOps = new FileOpController(_session, *_toast, this);
    connect(_actions.value(QStringLiteral("copyTo")), &QAction::triggered, this, [this] { _fileOps->showTransfer(FileOpJournal::Op::copy); });
    connect(_actions.value(QStringLiteral("moveTo")), &QAction::triggered, this, [this] { _fileOps->showTransfer(FileOpJournal::Op::move); });
    connect(_actions.value(QStringLiteral("trash")), &QAction::triggered, this, [this] { _fileOps->trashTargets(); });
    // Culling goes on from the keys once the files are where they were sent.
    connect(&_state, &AppState::fileOpUndoRequested, this, [this](const QString &id, const QString &) {
        if (id.startsWith(QLatin1String("iptc:")))
            undoIptc(id);
    });
    connect(_fileOps, &FileOpController::finished, this, [this] {
        activateWindow();
        focusView();
    });
    buildStatusBar();
    restoreLayout();


    connect(&state, &AppState::folderChanged, this, [this] {
        _state.setViewMode(ViewMode::grid);   // a folder opens on its grid
        updateCentre();
        updateTitle();
    });
    connect(&state, &AppState::loaded, this, [this] {
        updateCentre();
        updateTitle();
    });
    connect(&state, &AppState::photosChanged, this, [this] {
        updateCentre();
    });
    connect(&state, &AppState::filterChanged, this, [this] {
        _actions.value(QStringLiteral("damagedOnly"))->setChecked(_state.filter().damagedOnly);
        // Follow a filter cleared elsewhere, but never fight the user's typing.
        if (!_searchDelay->isActive() && _search->text() != _state.filter().text)
            _search->setText(_state.filter().text);
        updateCentre();
    });
    connect(&state, &AppState::viewModeChanged, this, [this](ViewMode mode) {
        _actions.value(mode == ViewMode::grid ? QStringLiteral("viewGrid") : QStringLiteral("viewSingle"))->setChecked(true);
        updateCentre();
        focusView();
    });
    connect(&state, &AppState::sortChanged, this, &MainWindow::updateSortChecks);
    connect(&state, &AppState::toastRequested, _toast, &Toast::showMessage);
    connect(&state, &AppState::bulkMarksChanged, this, [this](const QString &text) {
        _toast->showAction(text, QStringLiteral("Deshacer"), [this] { _state.undo(); });
    });
    connect(&state, &AppState::historyChanged, this, [this] {
        // A "Deshacer" offered for an older change would now undo a newer one.
        if (_toast->offersAction())
            _toast->dismiss();
        updateUndoActions();
    });
    connect(&store, &MarksStore::writeFailed, this, [this](const QString &message) { _toast->showMessage(message, true); });

    updateSortChecks();
    updateUndoActions();
    updateCentre();
    updateTitle();
    // A rename cut short by a crash is put right before anything is shown, and said once.
    if (const QString recovered = FileOpJournal::recoverAll().sentence(); !recovered.isEmpty())
        _toast->showMessage(recovered, true);
    // Reception that was on when Corvane last ended goes on again, into the same folder.
    if (Settings::camWifiOn.get())
        _session.cameraHub().restoreReception();
}

MainWindow::~MainWindow() = default;

void MainWindow::updateUndoActions()
{
    QAction *undo = _actions.value(QStringLiteral("undo"));
    QAction *redo = _actions.value(QStringLiteral("redo"));
    undo->setText(_state.undoText());
    undo->setEnabled(_state.canUndo());
    redo->setText(_state.redoText());
    redo->setEnabled(_state.canRedo());
}

void MainWindow::setThumbnailSource(ThumbnailSource *source)
{
    _grid->setThumbnailSource(source);
    _single->setThumbnailSource(source);
}

void MainWindow::usePipeline(ImagePipeline &pipeline)
{
    if (_pipeline)
        return;
    _pipeline = &pipeline;
    _pipelineSource = new PipelineThumbnailSource(_state, pipeline, this);
    setThumbnailSource(_pipelineSource);
    _single->setPipeline(&pipeline);
    _session.usePipeline(pipeline);
}

void MainWindow::afterCachesEmptied()
{
    if (_pipeline)
        _pipeline->clearMemory();
    if (_pipelineSource)
        _pipelineSource->reset();
    // On the next turn of the event loop: whoever heard the news first sees the caches empty.
    QTimer::singleShot(0, this, [this] {
        _grid->refreshThumbnails();
        _single->refresh();
    });
}

void MainWindow::raiseAndActivate()
{
    if (isMinimized())
        showNormal();
    else
        show();
    raise();
    activateWindow();
}

QWidget *MainWindow::centreWidget() const { return _stack->currentWidget(); }

// ----- Actions and menus

void MainWindow::buildActions()
{
    for (const WindowAction &spec : windowActions()) {
        auto *a = new QAction(spec.text, this);
        a->setObjectName(spec.name);
        if (!spec.keys.isEmpty()) {
            a->setShortcuts(spec.keys);
            a->setShortcutContext(Qt::WindowShortcut);
        }
        if (!spec.iconText.isEmpty())
            a->setIconText(spec.iconText);
        a->setCheckable(spec.checkable);
        if (spec.later) {
            a->setEnabled(false);
            a->setToolTip(QStringLiteral("Próximamente"));
            a->setStatusTip(QStringLiteral("Próximamente"));
        }
        // On the window itself, so the keys work with any menu closed, hidden or never built.
        addAction(a);
        _actions.insert(spec.name, a);
    }
    const auto on = [this](const char *name, auto &&slot) {
        connect(_actions.value(QLatin1String(name)), &QAction::triggered, this, std::forward<decltype(slot)>(slot));
    };
    // A mark applies only where marking makes sense (a shot is shown, no text field has the keys).
    const auto mark = [this](auto &&change) {
        return [this, change] {
            if (canMark())
                change();
        };
    };

    // Archivo
    on("openFolder", &MainWindow::openFolderDialog);
    on("import", &MainWindow::showImport);
    on("camera", &MainWindow::showCamera);
    on("quit", &QWidget::close);

    // Edición
    on("undo", [this] { _state.undo(); });
    on("redo", [this] { _state.redo(); });
    on("selectAll", [this] { _state.selectAll(); });
    on("invertSelection", [this] { _state.invertSelection(); });
    on("deselect", [this] { _state.clearSelection(); });
    on("find", [this] {
        _search->setFocus(Qt::ShortcutFocusReason);
        _search->selectAll();
    });
    on("settings", &MainWindow::showSettings);
    on("clientPick", &MainWindow::showClientPick);
    on("exportXmp", &MainWindow::exportSidecars);
    on("rename", &MainWindow::showRename);
    on("iptcTemplates", &MainWindow::showIptcTemplates);
    on("applyIptc", &MainWindow::showApplyIptc);

    // Marcas. The same key again removes the mark; AppState decides that.
    for (int n = 0; n <= LabelColors::kCount; ++n) {
        QAction *a = _actions.value(QStringLiteral("color%1").arg(n));
        if (n > 0)
            a->setIcon(MarkGlyphs::colorDot(LabelColors::color(n)));
        connect(a, &QAction::triggered, this, mark([this, n] { _state.applyColorKey(n); }));
    }
    for (int n = 0; n <= 5; ++n)
        connect(_actions.value(QStringLiteral("rating%1").arg(n)), &QAction::triggered, this,
                mark([this, n] { _state.applyRatingKey(n); }));
    on("flag", mark([this] { _state.toggleTag(); }));
    on("rotateLeft", mark([this] { _state.rotate(-1); }));
    on("rotateRight", mark([this] { _state.rotate(1); }));

    // Ver
    _viewGroup = new QActionGroup(this);
    QAction *grid = _actions.value(QStringLiteral("viewGrid"));
    QAction *single = _actions.value(QStringLiteral("viewSingle"));
    _viewGroup->addAction(grid);
    _viewGroup->addAction(single);
    grid->setChecked(true);
    connect(grid, &QAction::triggered, this, [this] { _state.setViewMode(ViewMode::grid); });
    connect(single, &QAction::triggered, this, [this] {
        if (_state.current())
            _state.setViewMode(ViewMode::preview);
        else
            _actions.value(QStringLiteral("viewGrid"))->setChecked(true);
    });
    on("toggleView", &MainWindow::toggleView);
    on("zoomIn", [this] { stepThumbSize(kThumbStep); });
    on("zoomOut", [this] { stepThumbSize(-kThumbStep); });
    on("zoom100", [this] {
        if (_stack->currentWidget() == _single)
            _single->toggleZoom();
    });
    connect(_actions.value(QStringLiteral("performance")), &QAction::toggled, this,
            [this](bool shown) { _single->setPerformanceShown(shown); });
    connect(_actions.value(QStringLiteral("focusPoint")), &QAction::toggled, this,
            [this](bool shown) { _single->setFocusPointShown(shown); });
    on("clearFilters", [this] { _state.clearFilter(); });
    on("damagedOnly", [this](bool on) {
        PhotoFilter f = _state.filter();
        f.damagedOnly = on;
        _state.setFilter(f);
    });

    _sortGroup = new QActionGroup(this);
    for (SortKey key : allSortKeys()) {
        QAction *a = _actions.value(QStringLiteral("sort-") + sortKeyToString(key));
        a->setData(int(key));
        _sortGroup->addAction(a);
        connect(a, &QAction::triggered, this, [this, key] { _state.setSort(key, _state.sortAscending()); });
    }
    _directionGroup = new QActionGroup(this);
    _directionGroup->addAction(_actions.value(QStringLiteral("sortAscending")));
    _directionGroup->addAction(_actions.value(QStringLiteral("sortDescending")));
    on("sortAscending", [this] { _state.setSort(_state.sortKey(), true); });
    on("sortDescending", [this] { _state.setSort(_state.sortKey(), false); });

    // Ayuda
    on("shortcuts", [this] {
        auto *dialog = new ShortcutsDialog(this);
        dialog->setAttribute(Qt::WA_DeleteOnClose);
        dialog->show();
    });
    on("about", [this] {
        QMessageBox::about(this, QStringLiteral("Acerca de Corvane"),
                           QStringLiteral("<p><b>Corvane</b> %1</p><p>Visor y selector de fotos para fotógrafos: "
                                          "bodas, eventos, deporte y prensa.</p>")
                               .arg(QCoreApplication::applicationVersion()));
    });

    // Keys without a menu entry.
    on("enter", &MainWindow::onReturn);
    on("escape", &MainWindow::onEscape);
}

void MainWindow::buildMenus()
{
    QMenuBar *bar = menuBar();
    auto a = [this](const char *name) { return _actions.value(QString::fromLatin1(name)); };

    QMenu *file = bar->addMenu(QStringLiteral("&Archivo"));
    file->addAction(a("openFolder"));
    _recentMenu = file->addMenu(QStringLiteral("Abrir reciente"));
    _recentMenu->setObjectName(QStringLiteral("recentMenu"));
    connect(_recentMenu, &QMenu::aboutToShow, this, &MainWindow::fillRecentMenu);
    fillRecentMenu();
    file->addSeparator();
    file->addAction(a("import"));
    file->addAction(a("camera"));
    file->addSeparator();
    file->addAction(a("copyTo"));
    file->addAction(a("moveTo"));
    file->addAction(a("trash"));
    file->addSeparator();
    file->addAction(a("quit"));

    QMenu *edit = bar->addMenu(QStringLiteral("&Edición"));
    edit->addAction(a("undo"));
    edit->addAction(a("redo"));
    edit->addSeparator();
    edit->addAction(a("selectAll"));
    edit->addAction(a("invertSelection"));
    edit->addAction(a("deselect"));
    edit->addSeparator();
    edit->addAction(a("find"));
    edit->addSeparator();
    edit->addAction(a("settings"));

    QMenu *marks = bar->addMenu(QStringLiteral("&Marcas"));
    QMenu *colors = marks->addMenu(QStringLiteral("Color"));
    for (int n = 1; n <= LabelColors::kCount; ++n)
        colors->addAction(_actions.value(QStringLiteral("color%1").arg(n)));
    colors->addSeparator();
    colors->addAction(a("color0"));
    QMenu *stars = marks->addMenu(QStringLiteral("Estrellas"));
    for (int n = 1; n <= 5; ++n)
        stars->addAction(_actions.value(QStringLiteral("rating%1").arg(n)));
    stars->addSeparator();
    stars->addAction(a("rating0"));
    marks->addAction(a("flag"));
    marks->addSeparator();
    marks->addAction(a("rotateLeft"));
    marks->addAction(a("rotateRight"));
    marks->addSeparator();
    marks->addAction(a("exportXmp"));
    marks->addAction(a("applyIptc"));

    QMenu *view = bar->addMenu(QStringLiteral("&Ver"));
    view->addAction(a("viewGrid"));
    view->addAction(a("viewSingle"));
    view->addAction(a("toggleView"));
    view->addSeparator();
    view->addAction(a("zoomIn"));
    view->addAction(a("zoomOut"));
    view->addSeparator();
    view->addAction(a("infoPanel"));
    view->addAction(a("zoom100"));
    view->addAction(a("focusPoint"));
    view->addAction(a("performance"));
    view->addSeparator();
    QMenu *sort = view->addMenu(QStringLiteral("Orden"));
    sort->setObjectName(QStringLiteral("sortMenu"));
    sort->addActions(_sortGroup->actions());
    sort->addSeparator();
    sort->addActions(_directionGroup->actions());
    QMenu *filters = view->addMenu(QStringLiteral("Filtros"));
    filters->addAction(a("filterBarVisible"));
    filters->addAction(a("damagedOnly"));
    filters->addAction(a("clearFilters"));

    QMenu *tools = bar->addMenu(QStringLiteral("&Herramientas"));
    tools->addAction(a("rename"));
    tools->addAction(a("clientPick"));
    tools->addAction(a("send"));
    tools->addAction(a("uploadQueue"));
    tools->addAction(a("iptcTemplates"));
    tools->addAction(a("servers"));

    QMenu *help = bar->addMenu(QStringLiteral("A&yuda"));
    help->addAction(a("shortcuts"));
    help->addAction(a("about"));
}

void MainWindow::buildToolBar()
{
    QToolBar *bar = addToolBar(QStringLiteral("Herramientas"));
    bar->setObjectName(QStringLiteral("mainToolBar"));
    bar->setMovable(false);
    bar->setFloatable(false);
    bar->setToolButtonStyle(Qt::ToolButtonTextOnly);
    bar->toggleViewAction()->setVisible(false);
    for (const char *name : {"openFolder", "import", "camera", "rename", "clientPick", "send"})
        bar->addAction(_actions.value(QString::fromLatin1(name)));
    bar->addSeparator();
    bar->addAction(_actions.value(QStringLiteral("viewGrid")));
    bar->addAction(_actions.value(QStringLiteral("viewSingle")));
    bar->addSeparator();

    auto *small = new QLabel(QStringLiteral("Tamaño"), bar);
    small->setForegroundRole(QPalette::PlaceholderText);
    small->setContentsMargins(6, 0, 4, 0);
    bar->addWidget(small);
    _slider = new QSlider(Qt::Horizontal, bar);
    _slider->setObjectName(QStringLiteral("thumbSlider"));
    _slider->setRange(GridView::kMinThumb, GridView::kMaxThumb);
    _slider->setSingleStep(8);
    _slider->setPageStep(kThumbStep);
    _slider->setFixedWidth(120);
    _slider->setFocusPolicy(Qt::NoFocus);
    _slider->setToolTip(QStringLiteral("Tamaño de las miniaturas (Ctrl++ / Ctrl+−)"));
    _slider->setValue(_grid->thumbSize());
    bar->addWidget(_slider);
    connect(_slider, &QSlider::valueChanged, _grid, &GridView::setThumbSize);
    connect(_grid, &GridView::thumbSizeChanged, this, [this](int px) {
        const QSignalBlocker block(_slider);
        _slider->setValue(px);
        Settings::uiThumbSize.set(px);
    });

    auto *spacer = new QWidget(bar);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    bar->addWidget(spacer);
    _search = new QLineEdit(bar);
    _search->setObjectName(QStringLiteral("searchField"));
    _search->setPlaceholderText(QStringLiteral("Buscar"));
    _search->setClearButtonEnabled(true);
    _search->setAcceptDrops(false);   // a folder dropped here opens, it is not typed
    _search->setFocusPolicy(Qt::ClickFocus);
    _search->setFixedWidth(240);
    bar->addWidget(_search);
    _searchDelay = new QTimer(this);
    _searchDelay->setSingleShot(true);
    _searchDelay->setInterval(150);
    connect(_search, &QLineEdit::textChanged, this, [this] {
        if (_search->text() != _state.filter().text)
            _searchDelay->start();
    });
    connect(_searchDelay, &QTimer::timeout, this, [this] {
        PhotoFilter f = _state.filter();
        f.setText(_search->text());
        _state.setFilter(f);
    });

    // Toolbar buttons never keep the focus: after a click the keys still mark photos.
    for (QAction *a : bar->actions())
        if (QWidget *w = bar->widgetForAction(a); w && w != _search)
            w->setFocusPolicy(Qt::NoFocus);
}

void MainWindow::buildCentre()
{
    _sidebar = new Sidebar(_state, this);
    connect(_sidebar, &Sidebar::folderChosen, this, [this](const QString &folder) {
        _state.openFolder(folder);
        focusView();
    });

    _centre = new QWidget(this);
    auto *centreLayout = new QVBoxLayout(_centre);
    centreLayout->setContentsMargins(0, 0, 0, 0);
    centreLayout->setSpacing(0);
    _filterBar = new FilterBar(_state, _centre);
    centreLayout->addWidget(_filterBar);
    _stack = new QStackedWidget(_centre);
    centreLayout->addWidget(_stack, 1);

    _grid = new GridView(_state, _stack);
    _single = new SingleView(_state, _stack);
    _empty = new EmptyState(_stack);
    _stack->addWidget(_grid);
    _stack->addWidget(_single);
    _stack->addWidget(_empty);
    connect(_grid, &GridView::folderActivated, this, [this](const QString &folder) { _state.openFolder(folder); });
    connect(_grid, &GridView::photoActivated, this, [this] {
        if (_state.current())
            _state.setViewMode(ViewMode::preview);
    });
    connect(_single, &SingleView::backToGrid, this, [this] { _state.setViewMode(ViewMode::grid); });
    connect(_empty, &EmptyState::openFolderRequested, this, &MainWindow::openFolderDialog);
    connect(_empty, &EmptyState::clearFilterRequested, &_state, &AppState::clearFilter);

    _info = new InfoPanel(_state, this);

    _splitter = new QSplitter(Qt::Horizontal, this);
    _splitter->setObjectName(QStringLiteral("mainSplitter"));
    _splitter->setChildrenCollapsible(false);
    _splitter->setHandleWidth(1);
    _splitter->addWidget(_sidebar);
    _splitter->addWidget(_centre);
    _splitter->addWidget(_info);
    _splitter->setStretchFactor(0, 0);
    _splitter->setStretchFactor(1, 1);
    _splitter->setStretchFactor(2, 0);
    _splitter->setSizes({230, 1000, 270});
    setCentralWidget(_splitter);

    // Over the pages, bottom centre, and above whichever page comes up.
    _toast = new Toast(_stack);
    connect(_stack, &QStackedWidget::currentChanged, _toast, &QWidget::raise);
}

void MainWindow::buildStatusBar()
{
    _status = new StatusBar(_state, _session.analyzer(), this);
    setStatusBar(_status);
    connect(_status, &StatusBar::damagedClicked, this, [this] {
        PhotoFilter f = _state.filter();
        f.damagedOnly = true;
        _state.setFilter(f);
    });
}

void MainWindow::restoreLayout()
{
    resize(1400, 900);
    restoreGeometry(Settings::uiGeometry.get());
    if (const QByteArray s = Settings::uiSplitter.get(); !s.isEmpty())
        _splitter->restoreState(s);

    const bool info = Settings::uiInfoPanel.get();
    _info->setVisible(info);
    QAction *infoAction = _actions.value(QStringLiteral("infoPanel"));
    infoAction->setChecked(info);
    connect(infoAction, &QAction::toggled, this, [this](bool on) {
        _info->setVisible(on);
        Settings::uiInfoPanel.set(on);
    });

    const bool filters = Settings::uiFilterBar.get();
    _filterBar->setVisible(filters);
    QAction *filterAction = _actions.value(QStringLiteral("filterBarVisible"));
    filterAction->setChecked(filters);
    connect(filterAction, &QAction::toggled, this, [this](bool on) {
        _filterBar->setVisible(on);
        Settings::uiFilterBar.set(on);
    });

    if (const int px = Settings::uiThumbSize.get(); px > 0)
        _grid->setThumbSize(px);
    _slider->setValue(_grid->thumbSize());
}

void MainWindow::fillRecentMenu()
{
    _recentMenu->clear();
    const QStringList recent = Settings::recentFolders.get();
    for (const QString &path : recent) {
        QAction *a = _recentMenu->addAction(path);
        connect(a, &QAction::triggered, this, [this, path] { _state.openFolder(path); });
    }
    if (recent.isEmpty())
        _recentMenu->addAction(QStringLiteral("Ninguna"))->setEnabled(false);
}

// ----- State → window

void MainWindow::updateCentre()
{
    QWidget *page = _grid;
    if (_state.folder().isEmpty()) {
        _empty->setKind(EmptyState::NoFolder);
        page = _empty;
    } else if (_state.isLoading()) {
        page = _grid;   // empty until the scan lands; the status bar says "Cargando…"
    } else if (_state.accessDenied()) {
        _empty->setKind(EmptyState::AccessDenied);
        page = _empty;
    } else if (_state.folderMissing()) {
        _empty->setKind(EmptyState::FolderMissing);
        page = _empty;
    } else if (_state.photos().isEmpty() && _state.subfolders().isEmpty()) {
        _empty->setKind(EmptyState::EmptyFolder, _state.folder());
        page = _empty;
    } else if (_state.visible().isEmpty() && !_state.photos().isEmpty()) {
        const qsizetype hidden = _state.photos().size();
        _empty->setKind(EmptyState::AllFiltered,
                        hidden == 1 ? QStringLiteral("La única imagen de la carpeta está oculta por los filtros.")
                                    : QStringLiteral("Las %1 imágenes de la carpeta están ocultas por los filtros.").arg(hidden));
        page = _empty;
    } else if (_state.viewMode() != ViewMode::grid && _state.current()) {
        page = _single;
    }
    if (_stack->currentWidget() != page) {
        const bool hadFocus = _stack->isAncestorOf(QApplication::focusWidget()) || !QApplication::focusWidget();
        _stack->setCurrentWidget(page);
        if (hadFocus)
            focusView();
    }
}

QString MainWindow::countText() const { return _status->countText(); }

QString MainWindow::selectionText() const { return _status->selectionText(); }

void MainWindow::updateTitle()
{
    const QString name = QFileInfo(_state.folder()).fileName();
    setWindowTitle(_state.folder().isEmpty() ? QStringLiteral("Corvane")
                                             : QStringLiteral("%1 — Corvane").arg(name.isEmpty() ? _state.folder() : name));
}

void MainWindow::updateSortChecks()
{
    for (QAction *a : _sortGroup->actions())
        a->setChecked(a->data().toInt() == int(_state.sortKey()));
    _actions.value(_state.sortAscending() ? QStringLiteral("sortAscending") : QStringLiteral("sortDescending"))->setChecked(true);
}

// ----- Commands

bool MainWindow::canMark() const
{
    // Typing is never marking, whatever the key turns out to be.
    if (isTextInput(QApplication::focusWidget()))
        return false;
    QWidget *page = _stack->currentWidget();
    if (page == _empty)
        return false;
    // A subfolder under the cursor is not a shot: the key must not reach the last one.
    if (page == _grid && !_grid->currentFolder().isEmpty() && _state.selection().size() <= 1)
        return false;
    return true;
}

void MainWindow::onReturn()
{
    QWidget *focus = QApplication::focusWidget();
    if (focus == _search) {
        focusView();
        return;
    }
    if (const QString folder = _sidebar->focusedFolder(); !folder.isEmpty()) {
        _state.openFolder(folder);
        focusView();
        return;
    }
    if (_stack->currentWidget() != _grid)
        return;
    if (const QString folder = _grid->currentFolder(); !folder.isEmpty()) {
        _state.openFolder(folder);
        return;
    }
    if (_state.current())
        _state.setViewMode(ViewMode::preview);
}

void MainWindow::onEscape()
{
    if (QApplication::focusWidget() == _search) {
        if (!_search->text().isEmpty())
            _search->clear();
        else
            focusView();
        return;
    }
    if (_state.viewMode() != ViewMode::grid) {
        _state.setViewMode(ViewMode::grid);
        return;
    }
    _state.clearSelection();
}

void MainWindow::toggleView()
{
    if (_state.viewMode() != ViewMode::grid) {
        _state.setViewMode(ViewMode::grid);
        return;
    }
    if (_stack->currentWidget() == _grid && _grid->currentFolder().isEmpty() && _state.current())
        _state.setViewMode(ViewMode::preview);
}

void MainWindow::focusView()
{
    QWidget *page = _stack->currentWidget();
    if (page == _grid || page == _single)
        page->setFocus(Qt::OtherFocusReason);
    else
        _grid->setFocus(Qt::OtherFocusReason);   // the keys still need a home on an empty page
}

void MainWindow::stepThumbSize(int delta)
{
    _grid->setThumbSize(_grid->thumbSize() + delta);
}

void MainWindow::closeSheets()
{
    for (QDialog *dialog : findChildren<QDialog *>())
        if (dialog->isVisible())
            dialog->close();
}

void MainWindow::openFolderDialog()
{
    const QString start = _state.folder().isEmpty() ? QDir::homePath() : _state.folder();
    const QString dir = QFileDialog::getExistingDirectory(this, QStringLiteral("Abrir carpeta"), start);
    if (!dir.isEmpty())
        _state.openFolder(dir);
}

void MainWindow::showSettings()
{
    if (!_settings) {
        _settings = new SettingsDialog(_state, &_session.cameraHub(), this);
        _settings->setAttribute(Qt::WA_DeleteOnClose);
        connect(_settings, &SettingsDialog::previewSettingsChanged, _single, &SingleView::refresh);
        connect(_settings, &SettingsDialog::cachesEmptied, this, &MainWindow::afterCachesEmptied);
        connect(_settings, &SettingsDialog::exportRequested, this, &MainWindow::exportSidecars);
        connect(_settings, &SettingsDialog::labelsChanged, this, [this] { _session.sidecars().setLabels(XmpLabels::userLabels()); });
    }
    _settings->show();
    _settings->raise();
    _settings->activateWindow();
}

void MainWindow::showImport()
{
    // One import window for the session: it keeps the last choices and a run in progress.
    if (!_import) {
        _import = new ImportWindow(this);
        // The summary stays in front; the browser behind it shows what was imported.
        connect(_import, &ImportWindow::openFolderRequested, this, [this](const QString &folder) { _state.openFolder(folder); });
    }
    _import->show();
    _import->raise();
    _import->activateWindow();
}

void MainWindow::showIptcTemplates()
{
    if (!_iptcTemplates) {
        _iptcTemplates = new IptcTemplatesWindow(this);
        _iptcTemplates->setAttribute(Qt::WA_DeleteOnClose);
    }
    _iptcTemplates->show();
    _iptcTemplates->raise();
    _iptcTemplates->activateWindow();
}

void MainWindow::showApplyIptc()
{
    if (_state.targets().isEmpty()) {
        _state.toast(QStringLiteral("Elige primero las imágenes a las que poner la plantilla."));
        return;
    }
    auto *sheet = new IptcApplySheet(_session, this);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    connect(sheet, &IptcApplySheet::applied, this,
            [this](const QString &text, const IptcBatch::Outcome &o, const QList<QUuid> &shots) {
        _state.rereadMeta(shots);
        if (o.undo.isEmpty()) {
            _toast->showMessage(text, o.failed > 0);
            return;
        }
        // The way back joins the undo list, so Ctrl+Z reaches it in turn as well as the toast.
        const QString id = QStringLiteral("iptc:") + QUuid::createUuid().toString(QUuid::WithoutBraces);
        _iptcUndos.insert(id, {o.undo, shots});
        _state.recordFileOp(id, QStringLiteral("plantilla IPTC en %1").arg(shotCount(int(shots.size()))));
        _toast->showAction(text, QStringLiteral("Deshacer"), [this] { _state.undo(); }, o.failed > 0);
    });
    sheet->open();
}

// Each file's IPTC texts as they were, through the same safe writer.
void MainWindow::undoIptc(const QString &id)
{
    const auto pending = _iptcUndos.take(id);
    if (pending.undo.isEmpty())
        return;
    const QList<QUuid> shots = pending.shots;
    auto *watcher = new QFutureWatcher<QStringList>(this);
    connect(watcher, &QFutureWatcher<QStringList>::finished, this, [this, watcher, shots] {
        watcher->deleteLater();
        const QStringList problems = watcher->result();
        _state.rereadMeta(shots);
        if (problems.isEmpty())
            _state.toast(QStringLiteral("Plantilla IPTC deshecha"));
        else
            _state.toast(QStringLiteral("No se pudo deshacer todo:\n") + problems.join(QLatin1Char('\n')), true);
    });
    watcher->setFuture(QtConcurrent::run([undo = pending.undo] { return IptcBatch::undo(undo); }));
}

CameraHub &MainWindow::cameraHub() { return _session.cameraHub(); }

void MainWindow::showCamera()
{
    if (!_camera)
        _camera = new CameraWindow(_session.cameraHub(), _state, this);
    _camera->show();
    _camera->raise();
    _camera->activateWindow();
}

void MainWindow::showClientPick()
{
    // One sheet at a time; it keeps the message while it is open.
    if (!_clientPick) {
        _clientPick = new ClientPickSheet(_state, _grid->gridModel()->thumbnailSource(), this);
        _clientPick->setAttribute(Qt::WA_DeleteOnClose);
    }
    _clientPick->open();
    _clientPick->raise();
    _clientPick->activateWindow();
}

void MainWindow::showRename()
{
    if (_state.targets().isEmpty())
        return;
    auto *sheet = new RenameSheet(_session, this);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    connect(sheet, &RenameSheet::renamed, _fileOps, &FileOpController::renamed);
    sheet->open();
}

void MainWindow::exportSidecars()
{
    const auto [batch, total] = _state.exportSidecars();
    if (total == 0) {
        _state.toast(QStringLiteral("Ninguna imagen de esta carpeta tiene marcas que exportar."));
        return;
    }
    auto *progress = new QProgressDialog(QStringLiteral("Exportando marcas a XMP…"), QString(), 0, total, this);
    progress->setObjectName(QStringLiteral("exportXmpProgress"));
    progress->setWindowTitle(QStringLiteral("Exportar a XMP"));
    progress->setWindowModality(Qt::NonModal);
    progress->setMinimumDuration(400);
    progress->setAutoClose(false);
    progress->setAutoReset(false);
    XMPStore &store = _session.sidecars();
    connect(&store, &XMPStore::batchProgress, progress, [progress, batch](quint64 b, int done, int) {
        if (b == batch)
            progress->setValue(done);
    });
    connect(&store, &XMPStore::batchFinished, progress, [this, progress, batch](quint64 b, int written, int failed) {
        if (b != batch)
            return;
        progress->deleteLater();
        const QString done = written == 1 ? QStringLiteral("Marcas de 1 imagen exportadas a XMP.")
                                          : QStringLiteral("Marcas de %1 imágenes exportadas a XMP.").arg(written);
        if (failed == 0)
            _state.toast(done);
        else
            _state.toast(QStringLiteral("%1 %2 .xmp no se pudieron escribir: revisa que la carpeta admita cambios.")
                             .arg(written ? done : QString()).arg(failed).trimmed(), true);
    });
}

// ----- Events

void MainWindow::keyPressEvent(QKeyEvent *event)
{
    // Arrows that reached the window from elsewhere (the search field) move the current shot.
    if (isNavigationKey(event->key())) {
        QWidget *page = _stack->currentWidget();
        if ((page == _grid || page == _single) && QApplication::focusWidget() != page) {
            QKeyEvent copy(event->type(), event->key(), event->modifiers(), event->text());
            QCoreApplication::sendEvent(page, &copy);
            if (copy.isAccepted()) {
                event->accept();
                return;
            }
        }
    }
    QMainWindow::keyPressEvent(event);
}

void MainWindow::showEvent(QShowEvent *event)
{
    QMainWindow::showEvent(event);
    if (!QApplication::focusWidget() || QApplication::focusWidget() == this)
        focusView();
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    // An import in progress is never cut short without asking.
    if (_import && _import->isVisible() && !_import->close()) {
        event->ignore();
        return;
    }
    // Nor is reception: a camera still sending would find nobody there.
    if (_session.hasCameraHub() && _session.cameraHub().wifiOn()) {
        if (!askQuestion(this, QStringLiteral("Cámara"),
                         QStringLiteral("Corvane está recibiendo imágenes de la cámara por wifi. Si sales, dejará de recibirlas. ¿Quieres salir?"),
                         QStringLiteral("Salir"), QStringLiteral("Seguir recibiendo"))) {
            event->ignore();
            return;
        }
    }
    Settings::uiGeometry.set(saveGeometry());
    Settings::uiSplitter.set(_splitter->saveState());
    // What was marked a moment ago is on disk before the window goes.
    _store.flush();
    _session.sidecars().flush();
    QMainWindow::closeEvent(event);
}

namespace {
QStringList localPaths(const QMimeData *mime)
{
    QStringList out;
    if (!mime || !mime->hasUrls())
        return out;
    for (const QUrl &url : mime->urls())
        if (url.isLocalFile())
            out << url.toLocalFile();
    return out;
}
} // namespace

void MainWindow::dragEnterEvent(QDragEnterEvent *event)
{
    if (!localPaths(event->mimeData()).isEmpty())
        event->acceptProposedAction();
}

void MainWindow::dragMoveEvent(QDragMoveEvent *event)
{
    if (!localPaths(event->mimeData()).isEmpty())
        event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent *event)
{
    const QStringList paths = localPaths(event->mimeData());
    if (paths.isEmpty())
        return;
    event->acceptProposedAction();
    closeSheets();
    // One by one, as the desktop hands them; AppState refuses (with a toast) while busy.
    for (const QString &path : paths)
        _state.open(path);
    activateWindow();
    focusView();
}
