#pragma once
// Points Corvane's settings, caches and data at a temporary folder for the whole test program,
// so tests never read or write the user's own. Call from initTestCase().
#include <QCoreApplication>
#include <QDir>
#include <QStandardPaths>
#include <QTemporaryDir>

namespace TestEnv {

inline QTemporaryDir &home()
{
    static QTemporaryDir dir;
    return dir;
}

inline void isolate()
{
    const QString root = home().path();
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(root + "/config"));
    qputenv("XDG_CACHE_HOME", QFile::encodeName(root + "/cache"));
    qputenv("XDG_DATA_HOME", QFile::encodeName(root + "/data"));
    QStandardPaths::setTestModeEnabled(false);
    QCoreApplication::setOrganizationName(QStringLiteral("Corvane"));
    QCoreApplication::setApplicationName(QStringLiteral("Corvane"));
}

// Writes a file of `size` bytes (or the given bytes) and returns its path.
inline QString touch(const QString &path, const QByteArray &bytes = QByteArray("x"))
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    if (f.open(QIODevice::WriteOnly))
        f.write(bytes);
    return path;
}

// The whole file, or nothing when it cannot be read.
inline QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// The folder of real camera files, or empty when it is absent (tests then skip).
inline QString samples()
{
    const QString dir = qEnvironmentVariable("CORVANE_SAMPLES");
    return QDir(dir).exists() ? dir : QString();
}

} // namespace TestEnv
