#pragma once
// "Importar imágenes": copies a card (or any folder) to a working disk and, at the same time, to
// an optional backup disk, into the chosen folders and names, verified. Three pages: the choices
// with a live preview of the first planned paths, the progress, and the summary with each
// destination's counts and errors. Every "ingest.*" choice is remembered as it changes.
// The card is read (and its EXIF dates and cameras with it) on a worker; planning the preview is
// pure and quick; the copy itself runs in IngestRunner's thread. A window of its own, not a
// dialog: handing a folder to the main window closes its dialogs, never an import. GUI thread only.
#include "ingest/cardfinder.h"
#include "ingest/ingestitem.h"
#include "ingest/ingestjob.h"

#include <QWidget>
#include <QFuture>
#include <QSet>
#include <functional>
#include <memory>

class BlockEditor;
class CancelToken;
class IngestRunner;
class QAbstractButton;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class QTimer;
class QVBoxLayout;

class ImportWindow : public QWidget
{
    Q_OBJECT
public:
    explicit ImportWindow(QWidget *parent = nullptr);
    ~ImportWindow() override;   // cancels a card reading or an import in progress and waits

    // The desktop parts a test cannot drive: the folder dialog ("Importar desde aquí" for the
    // source) and the list of mounted cards.
    using FolderPicker = std::function<QString(const QString &title, const QString &acceptLabel, const QString &startDir)>;
    void setFolderPicker(FolderPicker picker) { _pickFolder = std::move(picker); }
    void setCardFinder(std::function<QList<CardVolume>()> finder);
    IngestRunner &runner() const { return *_runner; }

    // Lists the connected cards again (also done every few seconds while the choices show).
    void refreshCards();
    // Reads `folder` as the source, as when it is picked with "Elegir carpeta…".
    void setSource(const QString &folder);
    QString source() const { return _source; }
    bool isReading() const { return _reading; }

    enum class Page { setup, progress, summary };
    Page page() const;

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
    QLabel *previewLabel() const { return _preview; }
    QLabel *problemLabel() const { return _problem; }
    QPushButton *startButton() const { return _start; }
    QPushButton *closeButton() const { return _close; }

    QLabel *phaseLabel() const { return _phase; }
    QProgressBar *progressBar() const { return _bar; }
    QLabel *filesLabel() const { return _files; }
    QLabel *bytesLabel() const { return _bytes; }
    QLabel *currentLabel() const { return _current; }
    QLabel *rateLabel() const { return _rate; }
    QPushButton *cancelButton() const { return _cancel; }

    QLabel *summaryTitle() const { return _sumTitle; }
    QLabel *summaryBody() const { return _sumBody; }
    QString destinationsText() const;   // every destination box, as plain text
    QLabel *ejectLabel() const { return _ejectResult; }
    QPushButton *verifyNowButton() const { return _verifyNow; }
    QPushButton *openResultButton() const { return _openResult; }
    QPushButton *againButton() const { return _again; }

    // Texts the window builds (shared with the tests).
    static QString formatBytes(qint64 bytes);       // "1,2 GB"
    static QString formatDuration(int seconds);     // "1 min 20 s"

signals:
    // The result folder, to open in the browser ("Abrir la carpeta en Corvane al terminar").
    void openFolderRequested(const QString &folder);

protected:
    void closeEvent(QCloseEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    QWidget *buildSetupPage();
    QWidget *buildProgressPage();
    QWidget *buildSummaryPage();
    QCheckBox *addOption(QVBoxLayout *layout, const QString &title, const QString &explanation, QLabel **note = nullptr);

    void loadSettings();
    void saveSettings();
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

    void startImport();
    void onPhase();
    void onProgress();
    void onFinished();
    void showSummary();
    void backToSetup();

    FolderPicker _pickFolder;
    std::function<QList<CardVolume>()> _findCards;
    IngestRunner *_runner;

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
    bool _verifyNowRun = false;
    bool _loading = false;

    QStackedWidget *_pages = nullptr;
    QTimer *_previewDelay = nullptr;
    QTimer *_cardPoll = nullptr;

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
    QLabel *_preview = nullptr;
    QLabel *_problem = nullptr;
    QPushButton *_start = nullptr;
    QPushButton *_close = nullptr;

    QLabel *_phase = nullptr;
    QProgressBar *_bar = nullptr;
    QLabel *_files = nullptr;
    QLabel *_bytes = nullptr;
    QLabel *_current = nullptr;
    QLabel *_rate = nullptr;
    QPushButton *_cancel = nullptr;

    QLabel *_sumTitle = nullptr;
    QLabel *_sumBody = nullptr;
    QWidget *_destBoxes = nullptr;
    QLabel *_ejectResult = nullptr;
    QPushButton *_verifyNow = nullptr;
    QLabel *_verifyNowNote = nullptr;
    QPushButton *_openResult = nullptr;
    QPushButton *_again = nullptr;
    QPushButton *_sumClose = nullptr;
};
