#include "terminalprogress.h"

#include <cstdio>
#include <unistd.h>

TerminalProgress::TerminalProgress()
    : _enabled(::isatty(STDERR_FILENO) == 1)
{
}

TerminalProgress::~TerminalProgress() { finish(); }

void TerminalProgress::update(const QString &label, qint64 done, qint64 total)
{
    if (!_enabled)
        return;
    // Redrawing more often than ~15 times a second only costs time.
    if (_drawn && _sinceDraw.isValid() && _sinceDraw.elapsed() < 66 && done != total)
        return;
    _sinceDraw.start();
    QString line;
    if (total > 0) {
        const int width = 30;
        const int filled = int(width * qMin<qint64>(done, total) / total);
        line = QStringLiteral("%1 [%2%3] %4/%5")
                   .arg(label, QString(filled, QLatin1Char('#')), QString(width - filled, QLatin1Char('-')))
                   .arg(done)
                   .arg(total);
    } else {
        line = QStringLiteral("%1… %2").arg(label).arg(done);
    }
    std::fprintf(stderr, "\r\033[K%s", line.toLocal8Bit().constData());
    std::fflush(stderr);
    _drawn = true;
}

void TerminalProgress::finish()
{
    if (_enabled && _drawn) {
        std::fprintf(stderr, "\r\033[K");
        std::fflush(stderr);
    }
    _drawn = false;
}
