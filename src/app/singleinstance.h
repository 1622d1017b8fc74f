#pragma once
// One window per user: the first launch listens on a local socket; a later launch hands it the
// locations it was given and exits. The message is one line of UTF-8 JSON, {"open":[paths]},
// answered with "ok\n" once the paths are taken. GUI thread only.
#include <QObject>
#include <QStringList>

class QLocalServer;

class SingleInstance : public QObject
{
    Q_OBJECT
public:
    // "corvane-<uid>": per user, so two users on one machine never meet.
    static QString defaultName();

    explicit SingleInstance(const QString &name, QObject *parent = nullptr);
    ~SingleInstance() override;

    // Hands `paths` to a running instance. True once it has acknowledged them; false when none
    // is running (or it did not answer within `timeoutMs`).
    bool sendToRunning(const QStringList &paths, int timeoutMs = 2000) const;
    // Starts listening; replaces a stale socket left by a crashed instance. False on failure.
    bool listen();
    bool isListening() const;

signals:
    // Absolute paths from another launch, in the order given (possibly none: just raise).
    void pathsReceived(const QStringList &paths);

private:
    void accept();

    QString _name;
    QLocalServer *_server = nullptr;
};
