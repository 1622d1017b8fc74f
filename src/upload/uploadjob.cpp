#include "uploadjob.h"

#include <QJsonArray>

qint64 UploadJob::bytesTotal() const
{
    qint64 n = 0;
    for (const UploadFile &f : files)
        n += f.size;
    return n;
}

qint64 UploadJob::bytesDone() const
{
    qint64 n = 0;
    for (const UploadFile &f : files)
        n += f.done ? f.size : f.sent;
    return n;
}

int UploadJob::filesDone() const
{
    int n = 0;
    for (const UploadFile &f : files)
        n += f.done ? 1 : 0;
    return n;
}

qint64 UploadJob::secondsLeft() const
{
    if (speed < 1)
        return -1;
    return qint64((bytesTotal() - bytesDone()) / speed + 0.5);
}

QString UploadJob::stateName(State s)
{
    switch (s) {
    case State::waiting:
        return QStringLiteral("waiting");
    case State::running:
        return QStringLiteral("running");
    case State::retrying:
        return QStringLiteral("retrying");
    case State::failed:
        return QStringLiteral("failed");
    case State::cancelled:
        return QStringLiteral("cancelled");
    case State::done:
        return QStringLiteral("done");
    }
    return {};
}

QJsonObject UploadJob::toJson() const
{
    QJsonArray list;
    for (const UploadFile &f : files)
        list.append(QJsonObject{{QStringLiteral("path"), f.path},
                                {QStringLiteral("remoteName"), f.remoteName},
                                {QStringLiteral("size"), f.size},
                                {QStringLiteral("attempts"), f.attempts},
                                {QStringLiteral("done"), f.done}});
    return QJsonObject{{QStringLiteral("id"), id},
                       {QStringLiteral("server"), serverId},
                       {QStringLiteral("serverName"), serverName},
                       {QStringLiteral("files"), list},
                       {QStringLiteral("resize"), resizeLongSide},
                       {QStringLiteral("quality"), quality},
                       {QStringLiteral("state"), stateName(state)},
                       {QStringLiteral("error"), error},
                       {QStringLiteral("named"), named}};
}

UploadJob UploadJob::fromJson(const QJsonObject &o)
{
    UploadJob j;
    j.id = o.value(QStringLiteral("id")).toString();
    j.serverId = o.value(QStringLiteral("server")).toString();
    j.serverName = o.value(QStringLiteral("serverName")).toString();
    for (const QJsonValue &v : o.value(QStringLiteral("files")).toArray()) {
        const QJsonObject f = v.toObject();
        UploadFile file;
        file.path = f.value(QStringLiteral("path")).toString();
        file.remoteName = f.value(QStringLiteral("remoteName")).toString();
        file.size = f.value(QStringLiteral("size")).toInteger();
        file.attempts = f.value(QStringLiteral("attempts")).toInt();
        file.done = f.value(QStringLiteral("done")).toBool();
        j.files.append(file);
    }
    j.resizeLongSide = o.value(QStringLiteral("resize")).toInt();
    j.quality = o.value(QStringLiteral("quality")).toInt(90);
    const QString state = o.value(QStringLiteral("state")).toString();
    for (State s : {State::waiting, State::running, State::retrying, State::failed, State::cancelled, State::done})
        if (state == stateName(s))
            j.state = s;
    j.error = o.value(QStringLiteral("error")).toString();
    j.named = o.value(QStringLiteral("named")).toBool();
    return j;
}
