#pragma once
// Runs the command-line tools tests make their files with (vips, exiv2, ffmpeg).
#include <QProcess>
#include <QString>
#include <QStringList>

namespace TestTools {

// Empty when `program` ran and exited 0; otherwise what went wrong, with its stderr.
inline QString run(const QString &program, const QStringList &args, int timeoutMs = 60000)
{
    QProcess p;
    p.start(program, args);
    if (!p.waitForFinished(timeoutMs))
        return program + QStringLiteral(" did not finish");
    if (p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0)
        return program + QStringLiteral(" failed: ") + QString::fromLocal8Bit(p.readAllStandardError());
    return {};
}

} // namespace TestTools
