#pragma once
// The main window's status bar: "N de M imágenes", the selection, the damaged shots and the files
// Corvane does not show, the progress of a long operation and of the background sharpness
// scoring. It follows the browser state and the analyzer by itself. GUI thread only.
#include <QStatusBar>

class AppState;
class QLabel;
class QProgressBar;
class SharpnessAnalyzer;

class StatusBar : public QStatusBar
{
    Q_OBJECT
public:
    StatusBar(AppState &state, SharpnessAnalyzer &analyzer, QWidget *parent = nullptr);

    QString countText() const;       // "N de M imágenes", "Cargando…", empty with no folder
    QString selectionText() const;   // "K seleccionadas", empty when none
    QString damagedText() const;     // "3 dañadas", empty when none
    QString unsupportedText() const; // "12 archivos que Corvane no muestra", empty when none

    void updateCounts();

signals:
    // The damaged count was clicked: the window lists those shots.
    void damagedClicked();

private:
    void updateProgress();
    void updateSharpness(int done, int total);

    AppState &_state;
    QLabel *_count;
    QLabel *_selection;
    QLabel *_damaged;
    QLabel *_unsupported;
    QLabel *_progressText;
    QProgressBar *_progress;
    QLabel *_sharpText;
    QProgressBar *_sharpProgress;
};
