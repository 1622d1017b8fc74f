#include "uploadservers.h"

#include "secretstore.h"

#include "util/settings.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QUuid>

namespace {

void write(const QList<UploadServer> &servers)
{
    QJsonArray array;
    for (const UploadServer &s : servers)
        array.append(s.toJson());
    Settings::uploadServers.set(QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Compact)));
}

} // namespace

namespace UploadServers {

QList<UploadServer> all()
{
    QList<UploadServer> out;
    for (const QJsonValue &v : QJsonDocument::fromJson(Settings::uploadServers.get().toUtf8()).array())
        if (v.isObject()) {
            UploadServer s = UploadServer::fromJson(v.toObject());
            if (!s.id.isEmpty())
                out.append(s);
        }
    return out;
}

std::optional<UploadServer> find(const QString &idOrName)
{
    const QList<UploadServer> servers = all();
    for (int pass = 0; pass < 2; ++pass)
        for (UploadServer s : servers)
            if (pass == 0 ? s.id == idOrName : s.name.compare(idOrName, Qt::CaseInsensitive) == 0) {
                s.password = SecretStore::password(s.id);
                return s;
            }
    return std::nullopt;
}

QString save(UploadServer server, bool *inSecretStore)
{
    if (server.id.isEmpty())
        server.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    QList<UploadServer> servers = all();
    bool replaced = false;
    for (UploadServer &s : servers)
        if (s.id == server.id) {
            s = server;
            replaced = true;
        }
    if (!replaced)
        servers.append(server);
    write(servers);
    const bool secret = server.password.isEmpty() ? (SecretStore::remove(server.id), true)
                                                  : SecretStore::setPassword(server.id, server.name, server.password);
    if (inSecretStore)
        *inSecretStore = secret;
    return server.id;
}

void remove(const QString &id)
{
    QList<UploadServer> servers = all();
    servers.removeIf([&](const UploadServer &s) { return s.id == id; });
    write(servers);
    SecretStore::remove(id);
}

} // namespace UploadServers
