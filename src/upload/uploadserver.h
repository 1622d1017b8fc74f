#pragma once
// One FTP server that shots are sent to, as the user set it up. The password is not part of the
// list that is saved: it lives in the secret store (SecretStore).
#include "transfershim.h"

#include <QJsonObject>
#include <QString>
#include <optional>

struct UploadServer {
    enum class Security { ftp, explicitTls, implicitTls };

    QString id;                // a UUID, kept when the server is renamed ("cam.autoServer" names it)
    QString name;
    QString host;
    int port = 0;              // 0: the scheme's own (21, or 990 for implicit FTPS)
    QString folder;            // below the login folder, "/" separated; empty: the login folder itself
    QString user;
    QString password;
    Security security = Security::ftp;
    bool passive = true;
    bool verifyCertificate = true;
    QByteArray pinnedKey;      // "sha256//…": a self-signed certificate the user chose to trust
    int lowSpeedTime = 60;     // seconds under 64 bytes/s before a transfer counts as stalled
    bool tempName = true;      // send under a hidden temporary name, renamed when complete

    // "ftp://host:port/folder/" with each segment percent-encoded.
    QByteArray folderUrl() const;
    QByteArray fileUrl(const QString &name) const;
    // What the shim needs to reach `url` (a folder or a file of this server).
    TransferShim::Connection connection(const QByteArray &url) const;
    // What is shown for the server in lists: "name (host)".
    QString label() const;

    QJsonObject toJson() const;   // without the password
    static UploadServer fromJson(const QJsonObject &o);
    // From "ftp://[user[:password]@]host[:port]/folder" or "ftps://…" (implicit TLS); nothing and
    // a Spanish line in `error` for anything else.
    static std::optional<UploadServer> fromUrl(const QString &url, QString *error);
};
