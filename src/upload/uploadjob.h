#pragma once
// One request to send files to one server, as the queue's journal keeps it.
#include <QJsonObject>
#include <QList>
#include <QString>

struct UploadFile {
    QString path;             // the local file
    QString remoteName;       // chosen once, before the first byte goes out; empty until then
    qint64 size = 0;          // bytes to send (the prepared copy's size once it is made)
    qint64 sent = 0;          // of the transfer under way; not journaled
    int attempts = 0;         // transfers started, journaled before each: a later one checks the server first
    bool done = false;
};

struct UploadJob {
    enum class State { waiting, running, retrying, failed, cancelled, done };

    QString id;
    QString serverId;
    QString serverName;       // for the panel, should the server later go
    QList<UploadFile> files;
    int resizeLongSide = 0;   // 0: the files as they are; else a JPEG of that long side
    int quality = 90;
    State state = State::waiting;
    QString error;            // the line shown beside a failed or retrying job
    int failures = 0;         // network failures in a row, for the back-off
    bool named = false;       // every remoteName chosen

    // Not journaled: speed in bytes per second over the last seconds.
    double speed = 0;

    qint64 bytesTotal() const;
    qint64 bytesDone() const;
    int filesDone() const;
    // -1 when unknown.
    qint64 secondsLeft() const;
    bool finished() const { return state == State::done || state == State::failed || state == State::cancelled; }

    QJsonObject toJson() const;
    static UploadJob fromJson(const QJsonObject &o);
    static QString stateName(State s);
};
