#pragma once
// Ajustes (Ctrl+,): General, Marcas, Imagen, Nitidez and, with a camera hub, Cámara. Every change applies at once; there is
// no "Aceptar" to forget. The disk caches are measured and emptied off the GUI thread.
// GUI thread only.
#include <QDialog>

class AppState;
class CameraHub;
class MarksSettingsPage;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QRadioButton;
class QSpinBox;
class QStackedWidget;

class SettingsDialog : public QDialog
{
    Q_OBJECT
public:
    // `hub` may be null: the Cámara page (port and password of wifi reception) is left out.
    explicit SettingsDialog(AppState &state, CameraHub *hub = nullptr, QWidget *parent = nullptr);

    // Page titles in order: "General", "Marcas", "Imagen", "Nitidez", "Cámara", "Servidores".
    QStringList pageTitles() const;
    void showPage(const QString &title);

    QCheckBox *autoAdvanceBox() const { return _autoAdvance; }
    MarksSettingsPage *marksPageWidget() const { return _marks; }
    QComboBox *sensitivityCombo() const { return _sensitivity; }
    QComboBox *previewResolutionCombo() const { return _previewResolution; }
    QSpinBox *prefetchAheadSpin() const { return _prefetchAhead; }
    QSpinBox *cacheDaysSpin() const { return _cacheDays; }
    QLabel *cacheSizesLabel() const { return _cacheSizes; }
    QPushButton *emptyCachesButton() const { return _emptyCaches; }
    QSpinBox *cameraPortSpin() const { return _cameraPort; }
    QLabel *cameraPasswordLabel() const { return _cameraPassword; }
    QPushButton *renewPasswordButton() const { return _renewPassword; }

signals:
    void previewSettingsChanged();   // resolution or prefetch distance
    void cachesEmptied();            // both disk caches are empty now; memory is the window's
    void cacheSizesShown();          // the sizes line was filled in
    void exportRequested();          // "Exportar marcas de la carpeta actual a XMP"
    void labelsChanged();            // the texts written for the colours

private:
    QWidget *generalPage();
    QWidget *marksPage();
    QWidget *imagePage();
    QWidget *sharpnessPage();
    QWidget *cameraPage();
    void refreshCamera();
    void measureCaches();
    void emptyCaches();

    AppState &_state;
    CameraHub *_hub;
    QListWidget *_pages;
    QStackedWidget *_stack;
    QCheckBox *_autoAdvance = nullptr;
    QRadioButton *_startLast = nullptr;
    QRadioButton *_startFixed = nullptr;
    QLineEdit *_startFolder = nullptr;
    MarksSettingsPage *_marks = nullptr;
    QComboBox *_sensitivity = nullptr;
    QComboBox *_previewResolution = nullptr;
    QSpinBox *_prefetchAhead = nullptr;
    QSpinBox *_cacheDays = nullptr;
    QLabel *_cacheSizes = nullptr;
    QPushButton *_emptyCaches = nullptr;
    QSpinBox *_cameraPort = nullptr;
    QLabel *_cameraPassword = nullptr;
    QPushButton *_renewPassword = nullptr;
};
