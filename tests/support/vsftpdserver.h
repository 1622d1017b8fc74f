#pragma once
// A real vsftpd on a loopback port, with a configuration of its own in a temporary folder (never
// the system service). Anonymous logins write into "up" (folders may be made there); "locked" is
// a folder they may not write to. With TLS it presents a self-signed certificate made here by
// openssl. vsftpd needs root (it drops to the "ftp" user): without it, start() is false and the
// tests skip.
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

#include <pwd.h>
#include <unistd.h>

enum class VsftpdTls { none, explicitTls, implicitTls };

struct VsftpdOptions {
    VsftpdTls tls = VsftpdTls::none;
    qint64 maxRate = 0;          // bytes per second for each transfer; 0: no limit
    QString certName = QStringLiteral("corvane-test");   // a different name makes a different key
};

class VsftpdServer
{
public:
    using Tls = VsftpdTls;
    using Options = VsftpdOptions;

    bool start(const QString &base, const VsftpdOptions &options = VsftpdOptions())
    {
        if (::geteuid() != 0 || !::getpwnam("ftp") || QStandardPaths::findExecutable(QStringLiteral("vsftpd")).isEmpty())
            return false;
        _base = base;
        const QString root = base + QStringLiteral("/root"), empty = base + QStringLiteral("/empty");
        upload = root + QStringLiteral("/up");
        locked = root + QStringLiteral("/locked");
        QDir().mkpath(upload);
        QDir().mkpath(locked);
        QDir().mkpath(empty);
        const passwd *ftp = ::getpwnam("ftp");
        if (::chown(QFile::encodeName(upload).constData(), ftp->pw_uid, ftp->pw_gid) != 0)
            return false;
        const auto readOnly = QFileDevice::ReadOwner | QFileDevice::ExeOwner | QFileDevice::ReadGroup
                              | QFileDevice::ExeGroup | QFileDevice::ReadOther | QFileDevice::ExeOther;
        QFile::setPermissions(root, readOnly);
        QFile::setPermissions(locked, readOnly);
        QString tls;
        if (options.tls != Tls::none) {
            certificate = base + QStringLiteral("/cert.pem");
            const QString key = base + QStringLiteral("/key.pem");
            QProcess openssl;
            openssl.setStandardOutputFile(QProcess::nullDevice());
            openssl.setStandardErrorFile(QProcess::nullDevice());
            openssl.start(QStringLiteral("openssl"),
                          {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"), QStringLiteral("rsa:2048"),
                           QStringLiteral("-nodes"), QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-subj"),
                           QStringLiteral("/CN=") + options.certName, QStringLiteral("-keyout"), key,
                           QStringLiteral("-out"), certificate});
            if (!openssl.waitForFinished(30000) || openssl.exitCode() != 0)
                return false;
            tls = QStringLiteral("ssl_enable=YES\nallow_anon_ssl=YES\nforce_anon_logins_ssl=YES\nforce_anon_data_ssl=YES\n"
                                 "require_ssl_reuse=NO\nrsa_cert_file=%1\nrsa_private_key_file=%2\nimplicit_ssl=%3\n")
                      .arg(certificate, key, options.tls == Tls::implicitTls ? QStringLiteral("YES") : QStringLiteral("NO"));
        }
        port = freePort();
        const QString conf = base + QStringLiteral("/vsftpd.conf");
        QFile f(conf);
        if (!f.open(QIODevice::WriteOnly))
            return false;
        f.write(QStringLiteral("listen=YES\nlisten_ipv6=NO\nlisten_address=127.0.0.1\nlisten_port=%1\nbackground=NO\n"
                               "anonymous_enable=YES\nlocal_enable=NO\nwrite_enable=YES\nanon_upload_enable=YES\n"
                               "anon_mkdir_write_enable=YES\nanon_other_write_enable=YES\n"
                               "no_anon_password=YES\nanon_root=%2\nanon_umask=022\nsecure_chroot_dir=%3\n"
                               "seccomp_sandbox=NO\nisolate=NO\nisolate_network=NO\nxferlog_enable=NO\n"
                               "pasv_enable=YES\nport_enable=YES\nconnect_from_port_20=NO\nanon_max_rate=%4\n%5")
                    .arg(port)
                    .arg(root, empty)
                    .arg(options.maxRate)
                    .arg(tls)
                    .toUtf8());
        f.close();
        _process.setProcessChannelMode(QProcess::ForwardedChannels);
        _process.start(QStringLiteral("vsftpd"), {conf});
        for (int i = 0; i < 50; ++i) {
            QTcpSocket probe;
            probe.connectToHost(QHostAddress::LocalHost, port);
            if (probe.waitForConnected(100))
                return true;
            QThread::msleep(100);
        }
        return false;
    }
    ~VsftpdServer()
    {
        if (_process.state() != QProcess::NotRunning) {
            _process.terminate();
            _process.waitForFinished(3000);
        }
    }
    QByteArray url(const QString &folder = QStringLiteral("up"), bool implicit = false) const
    {
        return QStringLiteral("%1://127.0.0.1:%2/%3/").arg(implicit ? QStringLiteral("ftps") : QStringLiteral("ftp")).arg(port).arg(folder).toUtf8();
    }

    static quint16 freePort()
    {
        QTcpServer s;
        s.listen(QHostAddress::LocalHost, 0);
        return s.serverPort();
    }

    QString upload, locked, certificate;
    quint16 port = 0;

private:
    QString _base;
    QProcess _process;
};
