#pragma once
// A one-line progress bar on stderr, drawn only when stderr is a terminal.
#include <QElapsedTimer>
#include <QString>

class TerminalProgress
{
public:
    TerminalProgress();
    ~TerminalProgress();
    // total 0: unknown (a counter instead of a bar).
    void update(const QString &label, qint64 done, qint64 total);
    void finish();

private:
    bool _enabled;
    bool _drawn = false;
    QElapsedTimer _sinceDraw;
};
