#pragma once
// The import window's page while a run goes on: the phase, a bar over the bytes, the files and
// bytes done, the rate and the time left, and "Cancelar". It follows the runner's signals.
// GUI thread only.
#include <QWidget>

class IngestRunner;
class QLabel;
class QProgressBar;
class QPushButton;

class ImportProgressPage : public QWidget
{
    Q_OBJECT
public:
    explicit ImportProgressPage(IngestRunner &runner, QWidget *parent = nullptr);

    // A run begins: `phase` is shown until the runner names its own, the numbers are cleared
    // when `clearNumbers`, and "Cancelar" is offered again.
    void begin(const QString &phase, bool clearNumbers);

    static QString formatDuration(int seconds);   // "1 min 20 s"

    QLabel *phaseLabel() const { return _phase; }
    QProgressBar *progressBar() const { return _bar; }
    QLabel *filesLabel() const { return _files; }
    QLabel *bytesLabel() const { return _bytes; }
    QLabel *currentLabel() const { return _current; }
    QLabel *rateLabel() const { return _rate; }
    QPushButton *cancelButton() const { return _cancel; }

private:
    void onPhase();
    void onProgress();

    IngestRunner &_runner;
    QLabel *_phase = nullptr;
    QProgressBar *_bar = nullptr;
    QLabel *_files = nullptr;
    QLabel *_bytes = nullptr;
    QLabel *_current = nullptr;
    QLabel *_rate = nullptr;
    QPushButton *_cancel = nullptr;
};
