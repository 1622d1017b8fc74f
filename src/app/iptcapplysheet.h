#pragma once
// "Aplicar plantilla IPTC": one of the user's templates put on the chosen shots (every file of
// each: a JPEG inside, the others in their .xmp), on a worker with its progress and a button that
// stops before the next file. What each file held before is kept in the outcome, so the window
// can offer to put it back. The last template used is remembered ("iptc.lastTemplate"). GUI
// thread only.
#include "metadata/iptcbatch.h"

#include <QDialog>
#include <QFutureWatcher>
#include <QUuid>
#include <atomic>
#include <memory>

class BrowserSession;
class QComboBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QStackedWidget;

class IptcApplySheet : public QDialog
{
    Q_OBJECT
public:
    // Applies to the browser's targets (the selection, else the current shot).
    explicit IptcApplySheet(BrowserSession &session, QWidget *parent = nullptr, const QString &library = {});
    ~IptcApplySheet() override;

    // The files the template goes on (sidecars left out: they are written through their shot).
    const QStringList &files() const { return _files; }

    // For the tests.
    QComboBox *templateCombo() const { return _template; }
    QLabel *summaryLabel() const { return _summary; }
    QPushButton *applyButton() const { return _apply; }
    QPushButton *editButton() const { return _edit; }
    QPushButton *stopButton() const { return _stop; }
    QProgressBar *progressBar() const { return _progress; }

    // The toast's text for an outcome of a run over `total` files: the count, whether it was
    // stopped, then one line per file that failed.
    static QString outcomeText(const QString &templateName, const IptcBatch::Outcome &o, int total);

public slots:
    // Reads the library again (the templates window changed it), keeping the choice.
    void reloadTemplates();

signals:
    // The run ended (completed or stopped); `text` says how (outcomeText); `shots` are those
    // whose files it went through.
    void applied(const QString &text, const IptcBatch::Outcome &outcome, const QList<QUuid> &shots);

protected:
    void closeEvent(QCloseEvent *event) override;
    void reject() override;

private:
    void updateSummary();
    void editTemplates();
    void start();
    void finished();

    BrowserSession &_session;
    QString _library;
    QStringList _files;
    QList<QUuid> _shots;
    QString _running;       // the template being applied
    std::shared_ptr<std::atomic_bool> _cancel;
    QFutureWatcher<IptcBatch::Outcome> _watcher;

    QStackedWidget *_pages;
    QComboBox *_template;
    QLabel *_summary;
    QPushButton *_edit;
    QPushButton *_apply;
    QLabel *_runningLabel;
    QProgressBar *_progress;
    QPushButton *_stop;
};
