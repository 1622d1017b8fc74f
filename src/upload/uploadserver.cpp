#include "uploadserver.h"

#include <QUrl>

namespace {

const char *securityName(UploadServer::Security s)
{
    switch (s) {
    case UploadServer::Security::explicitTls:
        return "explicit";
    case UploadServer::Security::implicitTls:
        return "implicit";
    case UploadServer::Security::ftp:
        break;
    }
    return "ftp";
}

} // namespace

QByteArray UploadServer::folderUrl() const
{
    QByteArray url = security == Security::implicitTls ? "ftps://" : "ftp://";
    const QString h = host.contains(QLatin1Char(':')) ? QLatin1Char('[') + host + QLatin1Char(']') : host;
    url += QUrl::toAce(h).isEmpty() ? h.toUtf8() : QUrl::toAce(h);
    if (port > 0)
        url += ':' + QByteArray::number(port);
    url += '/';
    for (const QString &segment : folder.split(QLatin1Char('/'), Qt::SkipEmptyParts))
        url += QUrl::toPercentEncoding(segment) + '/';
    return url;
}

QByteArray UploadServer::fileUrl(const QString &name) const { return folderUrl() + QUrl::toPercentEncoding(name); }

TransferShim::Connection UploadServer::connection(const QByteArray &url) const
{
    TransferShim::Connection c;
    c.url = url;
    c.user = user.toUtf8();
    c.password = password.toUtf8();
    c.tlsMode = security == Security::explicitTls ? 1 : 0;
    c.passive = passive;
    c.verifyCertificate = verifyCertificate && pinnedKey.isEmpty();   // a pinned key replaces the CA check
    c.pinnedKey = pinnedKey;
    c.lowSpeedTime = lowSpeedTime;
    c.reuseConnection = true;
    return c;
}

QString UploadServer::label() const { return QStringLiteral("%1 (%2)").arg(name, host); }

QJsonObject UploadServer::toJson() const
{
    return QJsonObject{
        {QStringLiteral("id"), id},
        {QStringLiteral("name"), name},
        {QStringLiteral("host"), host},
        {QStringLiteral("port"), port},
        {QStringLiteral("folder"), folder},
        {QStringLiteral("user"), user},
        {QStringLiteral("security"), QLatin1String(securityName(security))},
        {QStringLiteral("passive"), passive},
        {QStringLiteral("verifyCertificate"), verifyCertificate},
        {QStringLiteral("pinnedKey"), QString::fromLatin1(pinnedKey)},
        {QStringLiteral("lowSpeedTime"), lowSpeedTime},
        {QStringLiteral("tempName"), tempName},
    };
}

UploadServer UploadServer::fromJson(const QJsonObject &o)
{
    UploadServer s;
    s.id = o.value(QStringLiteral("id")).toString();
    s.name = o.value(QStringLiteral("name")).toString();
    s.host = o.value(QStringLiteral("host")).toString();
    s.port = o.value(QStringLiteral("port")).toInt();
    s.folder = o.value(QStringLiteral("folder")).toString();
    s.user = o.value(QStringLiteral("user")).toString();
    const QString security = o.value(QStringLiteral("security")).toString();
    s.security = security == QLatin1String("explicit")   ? Security::explicitTls
                 : security == QLatin1String("implicit") ? Security::implicitTls
                                                         : Security::ftp;
    s.passive = o.value(QStringLiteral("passive")).toBool(true);
    s.verifyCertificate = o.value(QStringLiteral("verifyCertificate")).toBool(true);
    s.pinnedKey = o.value(QStringLiteral("pinnedKey")).toString().toLatin1();
    s.lowSpeedTime = o.value(QStringLiteral("lowSpeedTime")).toInt(60);
    s.tempName = o.value(QStringLiteral("tempName")).toBool(true);
    return s;
}

std::optional<UploadServer> UploadServer::fromUrl(const QString &text, QString *error)
{
    const QUrl url(text, QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || url.host().isEmpty() || (scheme != QLatin1String("ftp") && scheme != QLatin1String("ftps"))) {
        if (error)
            *error = QStringLiteral("La dirección debe ser ftp://servidor[:puerto]/carpeta o ftps://…");
        return std::nullopt;
    }
    UploadServer s;
    s.name = url.host();
    s.host = url.host();
    s.port = url.port(0);
    s.folder = url.path();
    s.user = url.userName();
    s.password = url.password();
    s.security = scheme == QLatin1String("ftps") ? Security::implicitTls : Security::ftp;
    return s;
}
