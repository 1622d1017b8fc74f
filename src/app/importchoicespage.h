#pragma once
// The import window's first page: where from, where to, which folders and names, which options,
// with a live preview of the first planned paths. The card is read (its EXIF dates and cameras
// with it) on a worker; planning the preview is pure and quick. Every "ingest.*" choice is
// remembered as it changes. GUI thread only.
#include "ingest/cardfinder.h"
#include "ingest/ingestitem.h"
#include "ingest/ingestjob.h"

#include <QFuture>
#include <QSet>
#include <QWidget>
#include <functional>
#include <memory>
#include <optional>

class BlockEditor;
class CancelToken;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QTimer;
class QVBoxLayout;

class ImportChoicesPage : public QWidget
{
    Q_OBJECT
public:
    explicit ImportChoicesPage(QWidget *parent = nullptr);
    ~ImportChoicesPage() override;   // cancels a card reading in progress and waits

    // The desktop parts a test cannot drive: the folder dialog ("Importar desde aquí" for the
    // source) and the list of mounted cards.
    using FolderPicker = std::function<QString(const QString &title, const QString &acceptLabel, const QString &startDir)>;
    void setFolderPicker(FolderPicker picker) { _pickFolder = std::move(picker); }
    void setCardFinder(std::function<QList<CardVolume>()> finder);

    // Lists the connected cards again; a card just inserted becomes the source while this page
    // is the current one.
    void refreshCards();
    void setCurrent(bool current) { _current = current; }
    // Reads `folder` as the source, as when it is picked with "Elegir carpeta…".
    void setSource(const QString &folder);
    QString source() const { return _source; }
    bool isReading() const { return _reading; }
    // After an import the record and the destinations changed: reads the source again.
    void readAgain();

    // What "Importar" runs, or nothing while the choices cannot start (the button is disabled).
    // Remembers the choices.
    std::optional<IngestRequest> request();
    bool openWhenDone() const;
    void saveSettings();
    // Lists the IPTC templates again, keeping the remembered choice.
    void reloadIptcTemplates();

    // What the user sees, for the tests.
    QListWidget *sourceList() const { return _sources; }
    QLabel *noCardLabel() const { return _noCard; }
    QPushButton *chooseSourceButton() const { return _chooseSource; }
    QLabel *sourceInfoLabel() const { return _sourceInfo; }
    QLineEdit *workingEdit() const { return _working; }
    QPushButton *workingButton() const { return _chooseWorking; }
    QCheckBox *backupCheck() const { return _backupOn; }
    QLineEdit *backupEdit() const { return _backup; }
    QPushButton *backupButton() const { return _chooseBackup; }
    QLabel *backupNote() const { return _backupNote; }
    QComboBox *structureCombo() const { return _structure; }
    QLineEdit *sessionEdit() const { return _session; }
    QCheckBox *renameCheck() const { return _rename; }
    QLabel *keepNamesLabel() const { return _keepNames; }
    BlockEditor *blockEditor() const { return _editor; }
    QCheckBox *skipImportedCheck() const { return _skipImported; }
    QCheckBox *videoCheck() const { return _video; }
    QCheckBox *verifyCheck() const { return _verify; }
    QCheckBox *ejectCheck() const { return _eject; }
    QCheckBox *openCheck() const { return _open; }
    QComboBox *iptcCombo() const { return _iptc; }
    QLabel *previewLabel() const { return _preview; }
    QLabel *problemLabel() const { return _problem; }
    QPushButton *startButton() const { return _start; }
    QPushButton *closeButton() const { return _close; }

signals:
    void startRequested();
    void closeRequested();

protected:
    void showEvent(QShowEvent *event) override;

private:
    void build();
    void connectChoices();
    QCheckBox *addOption(QVBoxLayout *layout, const QString &title, const QString &explanation, QLabel **note = nullptr);

    void loadSettings();
    void rebuildSourceList();
    void chooseSource();
    void chooseDestination(QLineEdit *field, const QString &title);
    void sourceSelectionChanged();
    void readSource();
    void scanFinished(quint64 generation, const QList<IngestItem> &items, const QString &error, const QSet<QString> &imported);
    IngestOptions currentOptions() const;
    QString destinationProblem() const;
    void schedulePreview();
    void updatePreview();
    void updateRenameState();
    void updateSampleValues();

    FolderPicker _pickFolder;
    std::function<QList<CardVolume>()> _findCards;
    bool _current = true;
    bool _loading = false;

    // Reading the source for the preview.
    QString _source;
    QString _chosenFolder;        // a folder picked by hand, listed after the cards
    quint64 _readGeneration = 0;
    bool _reading = false;
    std::shared_ptr<CancelToken> _readCancel;
    QFuture<void> _readFuture;
    QList<IngestItem> _items;
    QSet<QString> _imported;
    QString _readError;
    QList<CardVolume> _cards;

    QTimer *_previewDelay = nullptr;
    QListWidget *_sources = nullptr;
    QLabel *_noCard = nullptr;
    QPushButton *_chooseSource = nullptr;
    QLabel *_sourceInfo = nullptr;
    QLineEdit *_working = nullptr;
    QPushButton *_chooseWorking = nullptr;
    QCheckBox *_backupOn = nullptr;
    QLineEdit *_backup = nullptr;
    QPushButton *_chooseBackup = nullptr;
    QLabel *_backupNote = nullptr;
    QComboBox *_structure = nullptr;
    QLineEdit *_session = nullptr;
    QCheckBox *_rename = nullptr;
    QLabel *_keepNames = nullptr;
    BlockEditor *_editor = nullptr;
    QCheckBox *_skipImported = nullptr;
    QCheckBox *_video = nullptr;
    QCheckBox *_verify = nullptr;
    QCheckBox *_eject = nullptr;
    QCheckBox *_open = nullptr;
    QComboBox *_iptc = nullptr;
    QLabel *_preview = nullptr;
    QLabel *_problem = nullptr;
    QPushButton *_start = nullptr;
    QPushButton *_close = nullptr;
};
