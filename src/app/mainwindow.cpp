#include "mainwindow.h"

#include "camerawindow.h"
#include "emptystate.h"
#include "filterbar.h"
#include "gridmodel.h"
#include "gridview.h"
#include "importwindow.h"
#include "infopanel.h"
#include "labelcolors.h"
#include "pipelinethumbnailsource.h"
#include "settingsdialog.h"
#include "shortcutsdialog.h"
#include "sidebar.h"
#include "singleview.h"
#include "toast.h"

#include "analysis/sharpnessanalyzer.h"
#include "camera/camerahub.h"
#include "imaging/diskkind.h"
#include "imaging/imagepipeline.h"
#include "marks/marksstore.h"
#include "model/appstate.h"

#include <QAbstractSpinBox>
#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QCloseEvent>
#include <QDialog>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QPainter>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QSettings>
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
const char *kGeometry = "ui.geometry";
const char *kSplitter = "ui.splitter";
const char *kInfoPanel = "ui.infoPanel";
const char *kFilterBar = "ui.filterBar";
const char *kThumbSize = "ui.thumbSize";
const char *kRecentFolders = "general.recentFolders";
constexpr int kThumbStep = 32;

QIcon dotIcon(const QColor &color)
{
    QPixmap pm(14, 14);
    pm.fill(Qt::transparent);
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(color);
    p.drawEllipse(QRectF(2, 2, 10, 10));
    return QIcon(pm);
}

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

MainWindow::MainWindow(AppState &state, MarksStore &store, QWidget *parent)
    : QMainWindow(parent)
    , _state(state)
    , _store(store)
{
    setObjectName(QStringLiteral("mainWindow"));
    setAcceptDrops(true);
    buildActions();
    buildCentre();
    buildToolBar();
    buildMenus();
    buildStatusBar();
    restoreLayout();

    // Every shot of the open folder is scored in the background; a new folder drops the old work.
    _analyzer = new SharpnessAnalyzer(this);
    connect(_analyzer, &SharpnessAnalyzer::measured, &_state, &AppState::applySharpness);
    connect(_analyzer, &SharpnessAnalyzer::progressChanged, this, &MainWindow::updateSharpnessProgress);

    connect(&state, &AppState::folderChanged, this, [this] {
        _analyzer->cancel();
        _state.setViewMode(ViewMode::grid);   // a folder opens on its grid
        updateCentre();
        updateStatus();
        updateTitle();
    });
    connect(&state, &AppState::loaded, this, [this] {
        measureSharpness(true);
        updateCentre();
        updateStatus();
        updateTitle();
    });
    connect(&state, &AppState::photosChanged, this, [this] {
        measureSharpness(false);   // shots that arrived (camera, watcher) are scored too
        updateCentre();
        updateStatus();
    });
    connect(&state, &AppState::selectionChanged, this, &MainWindow::updateStatus);
    connect(&state, &AppState::filterChanged, this, [this] {
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
    connect(&state, &AppState::progressChanged, this, &MainWindow::updateProgress);
    connect(&state, &AppState::toastRequested, _toast, &Toast::showMessage);
    connect(&store, &MarksStore::writeFailed, this, [this](const QString &message) { _toast->showMessage(message, true); });

    updateSortChecks();
    updateCentre();
    updateStatus();
    updateProgress();
    updateTitle();
}

MainWindow::~MainWindow() = default;

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
    connect(&_state, &AppState::loaded, this, &MainWindow::configurePipeline);
    if (!_state.folder().isEmpty() && !_state.isLoading())
        configurePipeline();
}

void MainWindow::configurePipeline()
{
    const QString folder = _state.folder();
    if (!_pipeline || folder.isEmpty())
        return;
    // Telling the disk apart reads the mount table and may stat a network share: off this thread.
    QtConcurrent::run([folder] { return diskKindFor(folder); }).then(this, [this, folder](DiskKind kind) {
        if (folder == _state.folder())
            _pipeline->configure(folder, kind);
    });
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

QAction *MainWindow::makeAction(const QString &name, const QString &text, const QList<QKeySequence> &keys)
{
    auto *a = new QAction(text, this);
    a->setObjectName(name);
    if (!keys.isEmpty()) {
        a->setShortcuts(keys);
        a->setShortcutContext(Qt::WindowShortcut);
    }
    // On the window itself, so the keys work with any menu closed, hidden or never built.
    addAction(a);
    _actions.insert(name, a);
    return a;
}

QAction *MainWindow::makeLater(const QString &name, const QString &text, const QList<QKeySequence> &keys)
{
    QAction *a = makeAction(name, text, keys);
    a->setEnabled(false);
    a->setToolTip(QStringLiteral("Próximamente"));
    a->setStatusTip(QStringLiteral("Próximamente"));
    return a;
}

void MainWindow::buildActions()
{
    // Archivo
    connect(makeAction(QStringLiteral("openFolder"), QStringLiteral("Abrir carpeta…"), {QKeySequence(Qt::CTRL | Qt::Key_O)}),
            &QAction::triggered, this, &MainWindow::openFolderDialog);
    _actions[QStringLiteral("openFolder")]->setIconText(QStringLiteral("Abrir"));
    connect(makeAction(QStringLiteral("import"), QStringLiteral("Importar imágenes…"), {QKeySequence(Qt::CTRL | Qt::Key_I)}),
            &QAction::triggered, this, &MainWindow::showImport);
    _actions[QStringLiteral("import")]->setIconText(QStringLiteral("Importar"));
    connect(makeAction(QStringLiteral("camera"), QStringLiteral("Cámara…")), &QAction::triggered, this, &MainWindow::showCamera);
    _actions[QStringLiteral("camera")]->setIconText(QStringLiteral("Cámara"));
    connect(makeAction(QStringLiteral("quit"), QStringLiteral("Salir"), {QKeySequence(Qt::CTRL | Qt::Key_Q)}),
            &QAction::triggered, this, &QWidget::close);

    // Edición
    connect(makeAction(QStringLiteral("selectAll"), QStringLiteral("Seleccionar todo"), {QKeySequence(Qt::CTRL | Qt::Key_A)}),
            &QAction::triggered, &_state, &AppState::selectAll);
    connect(makeAction(QStringLiteral("invertSelection"), QStringLiteral("Invertir selección"),
                       {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_I)}),
            &QAction::triggered, &_state, &AppState::invertSelection);
    connect(makeAction(QStringLiteral("deselect"), QStringLiteral("Deseleccionar"), {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_A)}),
            &QAction::triggered, &_state, &AppState::clearSelection);
    connect(makeAction(QStringLiteral("find"), QStringLiteral("Buscar"), {QKeySequence(Qt::CTRL | Qt::Key_F)}),
            &QAction::triggered, this, [this] {
                _search->setFocus(Qt::ShortcutFocusReason);
                _search->selectAll();
            });
    connect(makeAction(QStringLiteral("settings"), QStringLiteral("Ajustes…"), {QKeySequence(Qt::CTRL | Qt::Key_Comma)}),
            &QAction::triggered, this, &MainWindow::showSettings);

    // Marcas. The same key again removes the mark; AppState decides that.
    for (int n = 1; n <= LabelColors::kCount; ++n) {
        QAction *a = makeAction(QStringLiteral("color%1").arg(n), LabelColors::name(n), {QKeySequence(Qt::Key_0 + n)});
        a->setIcon(dotIcon(LabelColors::color(n)));
        connect(a, &QAction::triggered, this, [this, n] {
            if (canMark())
                _state.applyColorKey(n);
        });
    }
    connect(makeAction(QStringLiteral("color0"), QStringLiteral("Sin color"), {QKeySequence(Qt::Key_0)}),
            &QAction::triggered, this, [this] {
                if (canMark())
                    _state.applyColorKey(0);
            });
    for (int n = 1; n <= 5; ++n) {
        QAction *a = makeAction(QStringLiteral("rating%1").arg(n), QString(n, QChar(0x2605)), {QKeySequence(Qt::ALT | (Qt::Key_0 + n))});
        connect(a, &QAction::triggered, this, [this, n] {
            if (canMark())
                _state.applyRatingKey(n);
        });
    }
    connect(makeAction(QStringLiteral("rating0"), QStringLiteral("Sin estrellas"), {QKeySequence(Qt::ALT | Qt::Key_0)}),
            &QAction::triggered, this, [this] {
                if (canMark())
                    _state.applyRatingKey(0);
            });
    connect(makeAction(QStringLiteral("flag"), QStringLiteral("Bandera"), {QKeySequence(Qt::Key_T)}),
            &QAction::triggered, this, [this] {
                if (canMark())
                    _state.toggleTag();
            });
    connect(makeAction(QStringLiteral("rotateLeft"), QStringLiteral("Girar a la izquierda"), {QKeySequence(Qt::Key_BracketLeft)}),
            &QAction::triggered, this, [this] {
                if (canMark())
                    _state.rotate(-1);
            });
    connect(makeAction(QStringLiteral("rotateRight"), QStringLiteral("Girar a la derecha"), {QKeySequence(Qt::Key_BracketRight)}),
            &QAction::triggered, this, [this] {
                if (canMark())
                    _state.rotate(1);
            });
    makeLater(QStringLiteral("exportXmp"), QStringLiteral("Exportar marcas de la carpeta actual a XMP"));

    // Ver
    _viewGroup = new QActionGroup(this);
    QAction *grid = makeAction(QStringLiteral("viewGrid"), QStringLiteral("Cuadrícula"));
    QAction *single = makeAction(QStringLiteral("viewSingle"), QStringLiteral("Imagen"));
    for (QAction *a : {grid, single}) {
        a->setCheckable(true);
        _viewGroup->addAction(a);
    }
    grid->setChecked(true);
    connect(grid, &QAction::triggered, this, [this] { _state.setViewMode(ViewMode::grid); });
    connect(single, &QAction::triggered, this, [this] {
        if (_state.current())
            _state.setViewMode(ViewMode::preview);
        else
            _actions.value(QStringLiteral("viewGrid"))->setChecked(true);
    });
    connect(makeAction(QStringLiteral("toggleView"), QStringLiteral("Cambiar cuadrícula / imagen"), {QKeySequence(Qt::Key_Space)}),
            &QAction::triggered, this, &MainWindow::toggleView);
    connect(makeAction(QStringLiteral("zoomIn"), QStringLiteral("Miniaturas más grandes"),
                       {QKeySequence(Qt::CTRL | Qt::Key_Plus), QKeySequence(Qt::CTRL | Qt::Key_Equal)}),
            &QAction::triggered, this, [this] { stepThumbSize(kThumbStep); });
    connect(makeAction(QStringLiteral("zoomOut"), QStringLiteral("Miniaturas más pequeñas"), {QKeySequence(Qt::CTRL | Qt::Key_Minus)}),
            &QAction::triggered, this, [this] { stepThumbSize(-kThumbStep); });
    QAction *info = makeAction(QStringLiteral("infoPanel"), QStringLiteral("Panel de información"), {QKeySequence(Qt::Key_I)});
    info->setCheckable(true);
    connect(makeAction(QStringLiteral("zoom100"), QStringLiteral("Zoom 100 % / encajar"), {QKeySequence(Qt::Key_Z)}),
            &QAction::triggered, this, [this] {
                if (_stack->currentWidget() == _single)
                    _single->toggleZoom();
            });
    QAction *performance = makeAction(QStringLiteral("performance"), QStringLiteral("Rendimiento"), {QKeySequence(Qt::Key_P)});
    performance->setCheckable(true);
    connect(performance, &QAction::toggled, this, [this](bool on) { _single->setPerformanceShown(on); });
    QAction *focus = makeAction(QStringLiteral("focusPoint"), QStringLiteral("Punto de enfoque"), {QKeySequence(Qt::Key_F)});
    focus->setCheckable(true);
    connect(focus, &QAction::toggled, this, [this](bool on) { _single->setFocusPointShown(on); });
    QAction *filters = makeAction(QStringLiteral("filterBarVisible"), QStringLiteral("Barra de filtros"));
    filters->setCheckable(true);
    connect(makeAction(QStringLiteral("clearFilters"), QStringLiteral("Quitar filtros")), &QAction::triggered,
            &_state, &AppState::clearFilter);

    _sortGroup = new QActionGroup(this);
    for (SortKey key : allSortKeys()) {
        QAction *a = makeAction(QStringLiteral("sort-") + sortKeyToString(key), sortKeyTitle(key));
        a->setCheckable(true);
        a->setData(int(key));
        _sortGroup->addAction(a);
        connect(a, &QAction::triggered, this, [this, key] { _state.setSort(key, _state.sortAscending()); });
    }
    _directionGroup = new QActionGroup(this);
    QAction *asc = makeAction(QStringLiteral("sortAscending"), QStringLiteral("Ascendente"));
    QAction *desc = makeAction(QStringLiteral("sortDescending"), QStringLiteral("Descendente"));
    for (QAction *a : {asc, desc}) {
        a->setCheckable(true);
        _directionGroup->addAction(a);
    }
    connect(asc, &QAction::triggered, this, [this] { _state.setSort(_state.sortKey(), true); });
    connect(desc, &QAction::triggered, this, [this] { _state.setSort(_state.sortKey(), false); });

    // Herramientas
    makeLater(QStringLiteral("rename"), QStringLiteral("Renombrar…"))->setIconText(QStringLiteral("Renombrar"));
    makeLater(QStringLiteral("clientPick"), QStringLiteral("Selección del cliente…"))->setIconText(QStringLiteral("Selección del cliente"));
    makeLater(QStringLiteral("send"), QStringLiteral("Enviar…"))->setIconText(QStringLiteral("Enviar"));

    // Ayuda
    connect(makeAction(QStringLiteral("shortcuts"), QStringLiteral("Atajos de teclado")), &QAction::triggered, this, [this] {
        auto *dialog = new ShortcutsDialog(this);
        dialog->setAttribute(Qt::WA_DeleteOnClose);
        dialog->show();
    });
    connect(makeAction(QStringLiteral("about"), QStringLiteral("Acerca de Corvane")), &QAction::triggered, this, [this] {
        QMessageBox::about(this, QStringLiteral("Acerca de Corvane"),
                           QStringLiteral("<p><b>Corvane</b> %1</p><p>Visor y selector de fotos para fotógrafos: "
                                          "bodas, eventos, deporte y prensa.</p>")
                               .arg(QCoreApplication::applicationVersion()));
    });

    // Keys without a menu entry.
    connect(makeAction(QStringLiteral("enter"), QStringLiteral("Entrar"), {QKeySequence(Qt::Key_Return), QKeySequence(Qt::Key_Enter)}),
            &QAction::triggered, this, &MainWindow::onReturn);
    connect(makeAction(QStringLiteral("escape"), QStringLiteral("Volver"), {QKeySequence(Qt::Key_Escape)}),
            &QAction::triggered, this, &MainWindow::onEscape);
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
    file->addAction(a("quit"));

    QMenu *edit = bar->addMenu(QStringLiteral("&Edición"));
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
    filters->addAction(a("clearFilters"));

    QMenu *tools = bar->addMenu(QStringLiteral("&Herramientas"));
    tools->addAction(a("rename"));
    tools->addAction(a("clientPick"));
    tools->addAction(a("send"));

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
        QSettings().setValue(QLatin1String(kThumbSize), px);
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
    QStatusBar *bar = statusBar();
    bar->setSizeGripEnabled(false);
    _count = new QLabel(bar);
    _count->setObjectName(QStringLiteral("statusCount"));
    _selection = new QLabel(bar);
    _selection->setObjectName(QStringLiteral("statusSelection"));
    bar->addWidget(_count);
    bar->addWidget(_selection);
    _progressText = new QLabel(bar);
    _progressText->setObjectName(QStringLiteral("statusProgressText"));
    _progress = new QProgressBar(bar);
    _progress->setObjectName(QStringLiteral("statusProgress"));
    _progress->setFixedWidth(160);
    _progress->setMaximumHeight(12);
    _progress->setTextVisible(false);
    bar->addPermanentWidget(_progressText);
    bar->addPermanentWidget(_progress);

    _sharpText = new QLabel(bar);
    _sharpText->setObjectName(QStringLiteral("statusSharpnessText"));
    _sharpProgress = new QProgressBar(bar);
    _sharpProgress->setObjectName(QStringLiteral("statusSharpness"));
    _sharpProgress->setFixedWidth(100);
    _sharpProgress->setMaximumHeight(8);
    _sharpProgress->setTextVisible(false);
    bar->addPermanentWidget(_sharpText);
    bar->addPermanentWidget(_sharpProgress);
    _sharpText->hide();
    _sharpProgress->hide();
}

void MainWindow::measureSharpness(bool newFolder)
{
    QList<SharpnessAnalyzer::Job> jobs;
    jobs.reserve(_state.photos().size());
    for (const auto &p : _state.photos())
        if (!p->sharpness() && !p->previewURL().isEmpty())
            jobs.append({p->id, p->previewURL(), p->previewIsRaw});
    if (newFolder)
        _analyzer->start(jobs);
    else
        _analyzer->add(jobs);
}

void MainWindow::updateSharpnessProgress(int done, int total)
{
    const bool busy = total > 0 && done < total;
    _sharpText->setVisible(busy);
    _sharpProgress->setVisible(busy);
    if (!busy)
        return;
    _sharpText->setText(QStringLiteral("Analizando nitidez · %1 de %2").arg(done).arg(total));
    _sharpProgress->setRange(0, total);
    _sharpProgress->setValue(done);
}

void MainWindow::restoreLayout()
{
    QSettings settings;
    resize(1400, 900);
    restoreGeometry(settings.value(QLatin1String(kGeometry)).toByteArray());
    if (const QByteArray s = settings.value(QLatin1String(kSplitter)).toByteArray(); !s.isEmpty())
        _splitter->restoreState(s);

    const bool info = settings.value(QLatin1String(kInfoPanel), false).toBool();
    _info->setVisible(info);
    QAction *infoAction = _actions.value(QStringLiteral("infoPanel"));
    infoAction->setChecked(info);
    connect(infoAction, &QAction::toggled, this, [this](bool on) {
        _info->setVisible(on);
        QSettings().setValue(QLatin1String(kInfoPanel), on);
    });

    const bool filters = settings.value(QLatin1String(kFilterBar), true).toBool();
    _filterBar->setVisible(filters);
    QAction *filterAction = _actions.value(QStringLiteral("filterBarVisible"));
    filterAction->setChecked(filters);
    connect(filterAction, &QAction::toggled, this, [this](bool on) {
        _filterBar->setVisible(on);
        QSettings().setValue(QLatin1String(kFilterBar), on);
    });

    _grid->setThumbSize(settings.value(QLatin1String(kThumbSize), _grid->thumbSize()).toInt());
    _slider->setValue(_grid->thumbSize());
}

void MainWindow::fillRecentMenu()
{
    _recentMenu->clear();
    const QStringList recent = QSettings().value(QLatin1String(kRecentFolders)).toStringList();
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

void MainWindow::updateStatus()
{
    _count->setText(countText());
    const QString sel = selectionText();
    _selection->setText(sel);
    _selection->setVisible(!sel.isEmpty());
}

QString MainWindow::countText() const
{
    if (_state.folder().isEmpty())
        return {};
    if (_state.isLoading())
        return QStringLiteral("Cargando…");
    const qsizetype total = _state.photos().size();
    return QStringLiteral("%1 de %2 %3").arg(_state.visible().size()).arg(total)
        .arg(total == 1 ? QStringLiteral("imagen") : QStringLiteral("imágenes"));
}

QString MainWindow::selectionText() const
{
    const qsizetype k = _state.selection().size();
    if (k == 0)
        return {};
    return k == 1 ? QStringLiteral("1 seleccionada") : QStringLiteral("%1 seleccionadas").arg(k);
}

void MainWindow::updateProgress()
{
    const auto &p = _state.progress();
    _progressText->setVisible(p.has_value());
    _progress->setVisible(p.has_value());
    if (!p)
        return;
    _progressText->setText(p->total > 0 ? QStringLiteral("%1 · %2 de %3").arg(p->text).arg(p->done).arg(p->total)
                                        : (p->done > 0 ? QStringLiteral("%1 · %2").arg(p->text).arg(p->done) : p->text));
    _progress->setRange(0, qMax(0, p->total));   // 0…0: busy, length unknown
    _progress->setValue(p->total > 0 ? p->done : 0);
}

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
        _settings = new SettingsDialog(_state, &cameraHub(), this);
        _settings->setAttribute(Qt::WA_DeleteOnClose);
        connect(_settings, &SettingsDialog::previewSettingsChanged, _single, &SingleView::refresh);
        connect(_settings, &SettingsDialog::cachesEmptied, this, &MainWindow::afterCachesEmptied);
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

CameraHub &MainWindow::cameraHub()
{
    // The hub lives as long as the window: closing "Cámara" does not stop a camera sending.
    if (!_cameraHub)
        _cameraHub = new CameraHub(&_state, this);
    return *_cameraHub;
}

void MainWindow::showCamera()
{
    if (!_camera)
        _camera = new CameraWindow(cameraHub(), _state, this);
    _camera->show();
    _camera->raise();
    _camera->activateWindow();
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
    QSettings settings;
    settings.setValue(QLatin1String(kGeometry), saveGeometry());
    settings.setValue(QLatin1String(kSplitter), _splitter->saveState());
    // What was marked a moment ago is on disk before the window goes.
    _store.flush();
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
