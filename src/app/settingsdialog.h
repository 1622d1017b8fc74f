#pragma once
// Ajustes (Ctrl+,): General, Marcas and Nitidez. Every change applies at once; there is no
// "Aceptar" to forget. GUI thread only.
#include <QDialog>

class AppState;
class QCheckBox;
class QComboBox;
class QLineEdit;
class QListWidget;
class QRadioButton;
class QStackedWidget;

class SettingsDialog : public QDialog
{
    Q_OBJECT
public:
    explicit SettingsDialog(AppState &state, QWidget *parent = nullptr);

    // Page titles in order: "General", "Marcas", "Nitidez".
    QStringList pageTitles() const;
    void showPage(const QString &title);

    QCheckBox *autoAdvanceBox() const { return _autoAdvance; }
    QRadioButton *folderFileRadio() const { return _folderFile; }
    QRadioButton *sidecarRadio() const { return _sidecar; }
    QComboBox *sensitivityCombo() const { return _sensitivity; }

private:
    QWidget *generalPage();
    QWidget *marksPage();
    QWidget *sharpnessPage();

    AppState &_state;
    QListWidget *_pages;
    QStackedWidget *_stack;
    QCheckBox *_autoAdvance = nullptr;
    QRadioButton *_startLast = nullptr;
    QRadioButton *_startFixed = nullptr;
    QLineEdit *_startFolder = nullptr;
    QRadioButton *_folderFile = nullptr;
    QRadioButton *_sidecar = nullptr;
    QComboBox *_sensitivity = nullptr;
};
