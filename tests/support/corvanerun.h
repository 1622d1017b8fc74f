#pragma once
// Runs the built corvane executable (CORVANE_BIN, set by ctest) as a user would.
#include <QByteArray>
#include <QProcess>
#include <QStringList>

struct CorvaneRun {
    int status = -1;
    QByteArray out, err;
};

inline CorvaneRun corvane(const QStringList &args, int timeoutMs = 60000)
{
    QProcess p;
    p.start(qEnvironmentVariable("CORVANE_BIN"), args);
    p.waitForFinished(timeoutMs);
    return {p.exitCode(), p.readAllStandardOutput(), p.readAllStandardError()};
}
