#pragma once
// The main window: toolbar, filter bar, sidebar, grid or single view, info panel, status bar,
// toasts and empty states, and every menu and key. Keys are window-wide actions so they work
// wherever the focus is; only text fields keep what is typed into them. GUI thread only.
#include "metadata/iptcfile.h"

#include <QHash>
#include <QMainWindow>
#include <QPointer>

class AppState;
class BrowserSession;
class CameraHub;
class CameraWindow;
class ClientPickSheet;
class EmptyState;
class FilterBar;
class GridView;
class ImagePipeline;
class ImportWindow;
class InfoPanel;
class IptcTemplatesWindow;
class MarksStore;
class PipelineThumbnailSource;
class QActionGroup;
class QLabel;
class QLineEdit;
class QMenu;
class QProgressBar;
class QSlider;
class QSplitter;
class QStackedWidget;
class QTimer;
class SettingsDialog;
class Sidebar;
class SingleView;
class StatusBar;
class ThumbnailSource;
class Toast;
class FileOpController;

class MainWindow : public QMainWindow
{
    Q_OBJECT
public:
    explicit MainWindow(BrowserSession &session, QWidget *parent = nullptr);
    ~MainWindow() override;

    void setThumbnailSource(ThumbnailSource *source);
    // Shows images from the pipeline: thumbnails in the grid, previews with prefetch and the
    // full image in the single view; the session tunes it to each opened folder's disk.
    void usePipeline(ImagePipeline &pipeline);
    // Brings the window to the front (a second launch handed us a folder).
    void raiseAndActivate();
    // Closes open dialogs: a location handed over from outside takes the window back.
    void closeSheets();

    // What the user sees, for the tests and the screenshot.
    GridView *grid() const { return _grid; }
    SingleView *singleView() const { return _single; }
    FilterBar *filterBar() const { return _filterBar; }
    InfoPanel *infoPanel() const { return _info; }
    Sidebar *sidebar() const { return _sidebar; }
    Toast *toast() const { return _toast; }
    FileOpController *fileOps() const { return _fileOps; }
    EmptyState *emptyState() const { return _empty; }
    QLineEdit *searchField() const { return _search; }
    QSlider *thumbSlider() const { return _slider; }
    QWidget *centreWidget() const;      // the page shown: grid, single view or empty state
    QString countText() const;          // "N de M imágenes"
    QString selectionText() const;      // "K seleccionadas", empty when none
    // The actions by their object names ("openFolder", "color3", "rating4", "flag", "sortName"…).
    QAction *action(const QString &name) const { return _actions.value(name); }

public slots:
    void openFolderDialog();
    void showSettings();
    void showImport();   // "Importar imágenes…" (Ctrl+I)
    void showCamera();   // "Cámara…": live reception; the hub keeps receiving when it closes
    void showClientPick();   // "Selección del cliente…"
    void exportSidecars();   // "Exportar marcas de la carpeta actual a XMP", with progress
    void showRename();
    void undoIptc(const QString &id);       // "Renombrar…" on the selection
    void showIptcTemplates();   // "Plantillas IPTC…"
    void showApplyIptc();       // "Aplicar plantilla IPTC…" on the selection, undoable from its toast
    CameraHub &cameraHub();   // the session's, made on first use

protected:
    void closeEvent(QCloseEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    void buildActions();
    void buildMenus();
    void buildToolBar();
    void buildCentre();
    void buildStatusBar();
    void restoreLayout();

    void updateCentre();
    void updateTitle();
    void updateUndoActions();
    void updateSortChecks();
    void fillRecentMenu();

    bool canMark() const;
    void onReturn();
    void onEscape();
    void toggleView();
    void focusView();
    void stepThumbSize(int delta);
    void afterCachesEmptied();

    BrowserSession &_session;
    AppState &_state;
    MarksStore &_store;
    QHash<QString, QAction *> _actions;
    QActionGroup *_viewGroup = nullptr;
    QActionGroup *_sortGroup = nullptr;
    QActionGroup *_directionGroup = nullptr;
    QMenu *_recentMenu = nullptr;

    Sidebar *_sidebar = nullptr;
    FilterBar *_filterBar = nullptr;
    QSplitter *_splitter = nullptr;
    QWidget *_centre = nullptr;
    QStackedWidget *_stack = nullptr;
    GridView *_grid = nullptr;
    SingleView *_single = nullptr;
    EmptyState *_empty = nullptr;
    InfoPanel *_info = nullptr;
    Toast *_toast = nullptr;
    FileOpController *_fileOps = nullptr;
    QLineEdit *_search = nullptr;
    QTimer *_searchDelay = nullptr;
    QSlider *_slider = nullptr;
    StatusBar *_status = nullptr;
    QPointer<SettingsDialog> _settings;
    QPointer<ImportWindow> _import;
    QPointer<CameraWindow> _camera;
    QPointer<ClientPickSheet> _clientPick;
    QPointer<IptcTemplatesWindow> _iptcTemplates;
    // IPTC applies that Ctrl+Z or the toast can still take back, by their undo-list id.
    struct IptcUndo {
        QList<IptcFile::Undo> undo;
        QList<QUuid> shots;
    };
    QHash<QString, IptcUndo> _iptcUndos;
    ImagePipeline *_pipeline = nullptr;
    PipelineThumbnailSource *_pipelineSource = nullptr;
};
