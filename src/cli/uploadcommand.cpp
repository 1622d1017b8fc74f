#include "uploadcommand.h"

#include "argparser.h"
#include "terminalprogress.h"

#include "browser/uploadpreparer.h"
#include "upload/filebytes.h"
#include "upload/uploadqueue.h"
#include "upload/uploadservers.h"
#include "upload/uploadtexts.h"
#include "util/quitsignals.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <csignal>
#include <cstdio>

namespace {

void out(const QString &line)
{
    std::printf("%s\n", line.toUtf8().constData());
    std::fflush(stdout);
}

void err(const QString &line) { std::fprintf(stderr, "%s\n", line.toUtf8().constData()); }

const QSet<QString> kFlags{"active", "insecure", "tmp-name", "json"};
const QSet<QString> kOptions{"user", "password", "password-file", "tls", "pin", "server"};

// The server the options describe: a saved one (--server) or one made from the URL. Returns
// nothing after printing why; `usage` tells a usage error (exit 2) from a failure (exit 1).
std::optional<UploadServer> serverFrom(const ArgParser &p, const QString &url, bool *usage)
{
    *usage = false;
    if (p.has("server")) {
        std::optional<UploadServer> s = UploadServers::find(p.value("server"));
        if (!s)
            err(QStringLiteral("No hay ningún servidor llamado «%1».").arg(p.value("server")));
        return s;
    }
    QString error;
    std::optional<UploadServer> s = UploadServer::fromUrl(url, &error);
    if (!s) {
        err(error);
        *usage = true;
        return s;
    }
    if (p.has("user"))
        s->user = p.value("user");
    if (p.has("password"))
        s->password = p.value("password");
    if (p.has("password-file")) {
        QFile f(p.value("password-file"));
        if (!f.open(QIODevice::ReadOnly)) {
            err(QStringLiteral("No se puede leer «%1».").arg(p.value("password-file")));
            return std::nullopt;
        }
        s->password = QString::fromUtf8(f.readAll()).section(QLatin1Char('\n'), 0, 0);
    }
    const QString tls = p.value("tls");
    if (tls == QLatin1String("explicit"))
        s->security = UploadServer::Security::explicitTls;
    else if (tls == QLatin1String("implicit"))
        s->security = UploadServer::Security::implicitTls;
    else if (!tls.isEmpty()) {
        err(QStringLiteral("--tls es explicit o implicit."));
        *usage = true;
        return std::nullopt;
    }
    s->passive = !p.flag("active");
    s->verifyCertificate = !p.flag("insecure");
    if (p.has("pin")) {
        const QString pin = p.value("pin");
        s->pinnedKey = (pin.startsWith(QLatin1String("sha256//")) ? pin : QStringLiteral("sha256//") + pin).toLatin1();
    }
    s->tempName = p.flag("tmp-name");
    return s;
}

QString sizeText(double bytes)
{
    return bytes >= 1e6 ? QStringLiteral("%1 MB").arg(bytes / 1e6, 0, 'f', 1) : QStringLiteral("%1 kB").arg(bytes / 1e3, 0, 'f', 0);
}

struct BarContext {
    TerminalProgress *bar;
    QString label;
};

int drawBar(void *context, int64_t sent, int64_t total)
{
    auto *c = static_cast<BarContext *>(context);
    c->bar->update(c->label, sent, total);
    return 0;
}

// Runs the queue until nothing is pending, or until Ctrl+C (the journal keeps the rest).
void runQueue(UploadQueue &queue, const QString &onlyJob = {})
{
    TerminalProgress bar;
    auto finishedAll = [&] {
        if (onlyJob.isEmpty())
            return queue.idle();
        const auto j = queue.job(onlyJob);
        return !j || j->finished();
    };
    QObject::connect(&queue, &UploadQueue::changed, &queue, [&] {
        qint64 done = 0, total = 0;
        for (const UploadJob &j : queue.jobs())
            if (!j.finished()) {
                done += j.bytesDone();
                total += j.bytesTotal();
            }
        bar.update(QStringLiteral("Enviando"), done, total);
        if (finishedAll())
            QCoreApplication::quit();
    });
    QObject::connect(&queue, &UploadQueue::jobFinished, &queue, [&](const QString &id) {
        const auto j = queue.job(id);
        if (!j)
            return;
        bar.finish();
        if (j->state == UploadJob::State::done)
            out(QStringLiteral("Enviados %1 archivos a %2.").arg(j->files.size()).arg(j->serverName));
        else if (j->state == UploadJob::State::failed)
            err(QStringLiteral("No se pudo enviar a %1: %2").arg(j->serverName, j->error));
    });
    QuitSignals::install();
    queue.start();
    if (!finishedAll())
        QCoreApplication::exec();
    bar.finish();
}

QJsonObject jobJson(const UploadJob &j)
{
    QJsonObject o = j.toJson();
    o.insert(QStringLiteral("bytesDone"), j.bytesDone());
    o.insert(QStringLiteral("bytesTotal"), j.bytesTotal());
    o.insert(QStringLiteral("filesDone"), j.filesDone());
    return o;
}

} // namespace

int uploadCommand(const QStringList &args)
{
    ArgParser p(kFlags, kOptions);
    if (!p.parse(args)) {
        err(p.error());
        return 2;
    }
    QStringList files = p.positional();
    const QString url = p.has("server") ? QString() : (files.isEmpty() ? QString() : files.takeFirst());
    if (files.isEmpty())
        return 2;
    for (const QString &f : files)
        if (!QFileInfo(f).isFile()) {
            err(QStringLiteral("No existe el archivo «%1».").arg(f));
            return 1;
        }
    bool usage = false;
    const std::optional<UploadServer> server = serverFrom(p, url, &usage);
    if (!server)
        return usage ? 2 : 1;
    ::signal(SIGPIPE, SIG_IGN);

    if (p.has("server")) {
        UploadQueue queue;
        queue.setPreparer(UploadPreparer::prepare);
        const QString id = queue.add(server->id, files);
        runQueue(queue, id);
        const auto j = queue.job(id);
        return j && j->state == UploadJob::State::done ? 0 : 1;
    }

    TerminalProgress bar;
    int failures = 0;
    for (const QString &path : files) {
        const FileBytes bytes(path);
        if (!bytes.isOpen()) {
            err(QStringLiteral("No se puede leer «%1».").arg(path));
            ++failures;
            continue;
        }
        const QString name = QFileInfo(path).fileName();
        BarContext context{&bar, name};
        TransferShim::Outcome o;
        if (server->tempName) {
            const QString temp = QStringLiteral("%1.corvane.part").arg(name);
            o = TransferShim::upload(server->connection(server->fileUrl(temp)), bytes.data(), bytes.size(),
                                     temp.toUtf8(), name.toUtf8(), drawBar, &context);
        } else {
            o = TransferShim::upload(server->connection(server->fileUrl(name)), bytes.data(), bytes.size(), {}, {},
                                     drawBar, &context);
        }
        bar.finish();
        if (o.ok()) {
            out(QStringLiteral("%1: enviado (%2)").arg(name, sizeText(double(bytes.size()))));
        } else {
            err(QStringLiteral("%1: %2").arg(name, UploadTexts::forResult(o.code, o.text)));
            ++failures;
        }
    }
    return failures == 0 ? 0 : 1;
}

int checkCommand(const QStringList &args)
{
    ArgParser p(kFlags, kOptions);
    if (!p.parse(args)) {
        err(p.error());
        return 2;
    }
    const QStringList rest = p.positional();
    if (rest.size() != (p.has("server") ? 0 : 1))
        return 2;
    bool usage = false;
    const std::optional<UploadServer> server = serverFrom(p, rest.value(0), &usage);
    if (!server)
        return usage ? 2 : 1;
    TransferShim::Connection connection = server->connection(server->folderUrl());
    connection.reuseConnection = false;
    const TransferShim::Outcome o = TransferShim::list(connection, nullptr);
    if (o.ok()) {
        out(QStringLiteral("Conexión correcta: %1").arg(QString::fromUtf8(server->folderUrl())));
        return 0;
    }
    err(UploadTexts::forResult(o.code, o.text));
    if (o.code == 35 || o.code == 60 || o.code == 90) {
        const QByteArray key = TransferShim::serverKey(server->connection(server->folderUrl()));
        if (!key.isEmpty())
            err(QStringLiteral("Clave del certificado que presenta el servidor (para --pin): %1").arg(QString::fromLatin1(key)));
    }
    return 1;
}

int queueCommand(const QStringList &args)
{
    ArgParser p({"json", "run", "clear"}, {});
    if (!p.parse(args) || !p.positional().isEmpty()) {
        if (!p.error().isEmpty())
            err(p.error());
        return 2;
    }
    ::signal(SIGPIPE, SIG_IGN);
    UploadQueue queue;
    queue.setPreparer(UploadPreparer::prepare);
    if (p.flag("clear"))
        queue.clearFinished();
    if (p.flag("run"))
        runQueue(queue);
    const QList<UploadJob> jobs = queue.jobs();
    if (p.flag("json")) {
        QJsonArray array;
        for (const UploadJob &j : jobs)
            array.append(jobJson(j));
        std::printf("%s\n", QJsonDocument(array).toJson(QJsonDocument::Indented).constData());
    } else if (jobs.isEmpty()) {
        out(QStringLiteral("No hay envíos en la cola."));
    } else {
        for (const UploadJob &j : jobs)
            out(QStringLiteral("%1  %2  %3/%4 archivos  %5%6")
                    .arg(j.id.left(8), UploadJob::stateName(j.state))
                    .arg(j.filesDone())
                    .arg(j.files.size())
                    .arg(j.serverName, j.error.isEmpty() ? QString() : QStringLiteral("  ") + j.error));
    }
    for (const UploadJob &j : jobs)
        if (j.state == UploadJob::State::failed)
            return 1;
    return 0;
}
