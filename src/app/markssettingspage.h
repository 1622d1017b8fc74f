#pragma once
// Ajustes ▸ Marcas: where marks are kept (one file per folder or a sidecar per shot), the export of
// the open folder's marks to sidecars, and the label texts written for each colour, which
// Lightroom and Bridge match exactly. Every change applies at once. GUI thread only.
#include <QList>
#include <QWidget>

class AppState;
class QComboBox;
class QLineEdit;
class QPushButton;
class QRadioButton;

class MarksSettingsPage : public QWidget
{
    Q_OBJECT
public:
    explicit MarksSettingsPage(AppState &state, QWidget *parent = nullptr);

    QRadioButton *folderFileRadio() const { return _folderFile; }
    QRadioButton *sidecarRadio() const { return _sidecar; }
    QPushButton *exportButton() const { return _export; }
    QComboBox *presetCombo() const { return _preset; }
    // The texts of colours 1…8; 6…8 are fixed and read-only.
    QLineEdit *labelEdit(int colour) const { return _labels.value(colour - 1); }
    QPushButton *restoreButton() const { return _restore; }

signals:
    void exportRequested();
    void labelsChanged();

private:
    void showLabels(const QStringList &labels);
    void storeLabels();

    AppState &_state;
    QRadioButton *_folderFile;
    QRadioButton *_sidecar;
    QPushButton *_export;
    QComboBox *_preset;
    QList<QLineEdit *> _labels;
    QPushButton *_restore;
};
