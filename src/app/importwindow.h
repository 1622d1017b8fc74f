#pragma once
// "Importar imágenes": copies a card (or any folder) to a working disk and, at the same time, to
// an optional backup disk, into the chosen folders and names, verified. Three pages, each a class
// of its own: the choices, the progress, and the summary. The window holds the run (IngestRunner,
// which copies in its own thread), moves between the pages, and decides when it may close. A
// window of its own, not a dialog: handing a folder to the main window closes its dialogs, never
// an import. GUI thread only.
#include <QWidget>

class ImportChoicesPage;
class ImportProgressPage;
class ImportSummaryPage;
class IngestRunner;
class QStackedWidget;
class QTimer;

class ImportWindow : public QWidget
{
    Q_OBJECT
public:
    explicit ImportWindow(QWidget *parent = nullptr);
    ~ImportWindow() override;   // the pages and the runner cancel what they run and wait

    IngestRunner &runner() const { return *_runner; }
    ImportChoicesPage *choices() const { return _choices; }
    ImportProgressPage *progress() const { return _progress; }
    ImportSummaryPage *summary() const { return _summary; }

    enum class Page { setup, progress, summary };
    Page page() const;

signals:
    // The result folder, to open in the browser ("Abrir la carpeta en Corvane al terminar").
    void openFolderRequested(const QString &folder);

protected:
    void closeEvent(QCloseEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    void showPage(Page page);
    void startImport();
    void verifyNow();
    void onFinished();
    void backToSetup();

    IngestRunner *_runner;
    ImportChoicesPage *_choices = nullptr;
    ImportProgressPage *_progress = nullptr;
    ImportSummaryPage *_summary = nullptr;
    QStackedWidget *_pages = nullptr;
    QTimer *_cardPoll = nullptr;
    bool _verifyNowRun = false;   // the run that finished was "Verificar ahora"
};
