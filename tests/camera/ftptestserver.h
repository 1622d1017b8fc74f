#pragma once
// A receiver on a loopback port in a temporary folder, and the real clients that talk to it
// (python3 with ftpprobe.py or ftplib, curl, lftp). Events are collected as they come.
#include "camera/ftpreceiver.h"

#include <QDirIterator>
#include <QMutex>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <memory>

namespace FTPTest {

inline const QString kPassword = QStringLiteral("k7wq2mxr9z");

// Debian's python3 (the package the set-up installs); a python3 found first on PATH may be a
// slow wrapper.
inline QString python3()
{
    return QFile::exists(QStringLiteral("/usr/bin/python3")) ? QStringLiteral("/usr/bin/python3") : QStringLiteral("python3");
}

// Short durations for every rule, so the time-outs run in a fraction of a second.
inline FTPLimits fastLimits()
{
    using ms = std::chrono::milliseconds;
    FTPLimits l;
    l.loginPause = ms(60);
    l.dataOpen = ms(400);
    l.dataIdle = ms(400);
    l.idleBeforeLogin = ms(20000);
    l.idleLoggedIn = ms(20000);
    l.failureWindow = ms(600000);
    l.lockout = ms(600000);
    l.minFreeSpace = 0;
    return l;
}

class Server
{
public:
    explicit Server(const FTPLimits &limits = fastLimits(), const QString &folder = {})
        : _folder(folder.isEmpty() ? _dir.path() : folder)
    {
        _receiver = std::make_unique<FTPReceiver>(_folder, QStringLiteral("corvane"), kPassword, 0, limits,
                                                  QHostAddress::LocalHost);
        _receiver->onEvent = [this](const FTPEvent &e) {
            QMutexLocker lock(&_mutex);
            _events.append(e);
        };
        _receiver->start();
        (void)QTest::qWaitFor([this] { return !events().isEmpty(); }, 5000);
    }
    ~Server() { stop(); }
    void stop()
    {
        if (_receiver)
            _receiver->stop();
    }

    QString folder() const { return _folder; }
    quint16 port() const { return _receiver->port(); }
    QList<FTPEvent> events() const
    {
        QMutexLocker lock(&_mutex);
        return _events;
    }
    QStringList eventTexts(FTPEvent::Kind kind) const
    {
        QStringList out;
        for (const FTPEvent &e : events())
            if (e.kind == kind)
                out << e.text;
        return out;
    }
    bool waitForEvents(FTPEvent::Kind kind, int count, int timeoutMs = 10000) const
    {
        return QTest::qWaitFor([&] { return eventTexts(kind).size() >= count; }, timeoutMs);
    }

    // Files under the folder, relative, sorted; hidden ones only when asked.
    QStringList files(bool hidden = false) const
    {
        QStringList out;
        QDirIterator it(_folder, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            const QString rel = QDir(_folder).relativeFilePath(path);
            if (hidden == QFileInfo(path).fileName().startsWith(QLatin1Char('.')))
                out << rel;
        }
        out.sort();
        return out;
    }
    QByteArray read(const QString &rel) const
    {
        QFile f(_folder + QLatin1Char('/') + rel);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }

    QProcessEnvironment environment() const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("FTP_PORT"), QString::number(port()));
        env.insert(QStringLiteral("FTP_PASSWORD"), kPassword);
        env.insert(QStringLiteral("PYTHONPATH"), QStringLiteral(FTP_PROBE_DIR));
        env.insert(QStringLiteral("PYTHONDONTWRITEBYTECODE"), QStringLiteral("1"));
        return env;
    }

    // Runs a python3 script (ftpprobe's names imported) and returns what it printed, one line per
    // element. A script that fails shows its error in the output, so the comparison tells.
    QStringList python(const QString &script, int timeoutMs = 30000) const
    {
        QProcess p;
        p.setProcessEnvironment(environment());
        p.start(python3(), {QStringLiteral("-c"), QStringLiteral("from ftpprobe import *\n") + script});
        if (!p.waitForFinished(timeoutMs))
            p.kill();
        const QString out = QString::fromUtf8(p.readAllStandardOutput() + p.readAllStandardError());
        return out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

    // Runs a program and returns its exit status (-1 when it did not finish).
    int run(const QString &program, const QStringList &args, QByteArray *output = nullptr, int timeoutMs = 30000) const
    {
        QProcess p;
        p.setProcessEnvironment(environment());
        p.setProcessChannelMode(QProcess::MergedChannels);
        p.start(program, args);
        const bool finished = p.waitForFinished(timeoutMs);
        if (output)
            *output = p.readAll();
        if (!finished) {
            p.kill();
            p.waitForFinished();
            return -1;
        }
        return p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    }

    QString url(const QString &path = {}) const
    {
        return QStringLiteral("ftp://corvane:%1@127.0.0.1:%2/%3").arg(kPassword).arg(port()).arg(path);
    }

private:
    QTemporaryDir _dir;
    QString _folder;
    std::unique_ptr<FTPReceiver> _receiver;
    mutable QMutex _mutex;
    QList<FTPEvent> _events;
};

} // namespace FTPTest
