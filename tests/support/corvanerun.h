#pragma once
// Runs the built corvane executable (CORVANE_BIN, set by ctest) as a user would.
#include <QByteArray>
#include <QFileInfo>
#include <QProcess>
#include <QStringList>

struct CorvaneRun {
    int status = -1;
    QByteArray out, err;
};

inline QString corvaneBin() { return qEnvironmentVariable("CORVANE_BIN"); }

// For initTestCase(): QVERIFY2(corvaneBuilt(), …).
inline bool corvaneBuilt() { return QFileInfo(corvaneBin()).isExecutable(); }

inline CorvaneRun corvane(const QStringList &args, int timeoutMs = 60000)
{
    QProcess p;
    p.start(corvaneBin(), args);
    p.waitForFinished(timeoutMs);
    return {p.exitCode(), p.readAllStandardOutput(), p.readAllStandardError()};
}
