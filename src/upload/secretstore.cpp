#include "secretstore.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QSettings>
#include <mutex>

// glib's headers use "signals" as a field name, which Qt's keyword would replace.
#undef signals
#include <libsecret/secret.h>

namespace {

const SecretSchema *schema()
{
    static const SecretSchema s = {"com.tessaly.corvane.upload",
                                   SECRET_SCHEMA_NONE,
                                   {{"server", SECRET_SCHEMA_ATTRIBUTE_STRING}, {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}},
                                   0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
    return &s;
}

QString settingsKey(const QString &serverId) { return QStringLiteral("upload.passwords/") + serverId; }

} // namespace

namespace SecretStore {

bool available()
{
    static bool answer = false;
    static std::once_flag once;
    std::call_once(once, [] {
        if (qEnvironmentVariableIsSet("CORVANE_NO_SECRET_STORE"))
            return;
        QDBusConnection bus = QDBusConnection::sessionBus();
        if (!bus.isConnected() || !bus.interface())
            return;
        const QString name = QStringLiteral("org.freedesktop.secrets");
        answer = bus.interface()->isServiceRegistered(name).value()
                 || bus.interface()->activatableServiceNames().value().contains(name);
    });
    return answer;
}

QString password(const QString &serverId)
{
    if (available()) {
        GError *error = nullptr;
        gchar *secret = secret_password_lookup_sync(schema(), nullptr, &error, "server",
                                                     serverId.toUtf8().constData(), nullptr);
        if (error)
            g_error_free(error);
        if (secret) {
            const QString out = QString::fromUtf8(secret);
            secret_password_free(secret);
            return out;
        }
    }
    return QSettings().value(settingsKey(serverId)).toString();
}

bool setPassword(const QString &serverId, const QString &serverName, const QString &password)
{
    if (available()) {
        GError *error = nullptr;
        const QByteArray label = QStringLiteral("Corvane: %1").arg(serverName).toUtf8();
        const bool stored = secret_password_store_sync(schema(), SECRET_COLLECTION_DEFAULT, label.constData(),
                                                        password.toUtf8().constData(), nullptr, &error, "server",
                                                        serverId.toUtf8().constData(), nullptr);
        if (error)
            g_error_free(error);
        if (stored) {
            QSettings().remove(settingsKey(serverId));
            return true;
        }
    }
    QSettings().setValue(settingsKey(serverId), password);
    return false;
}

void remove(const QString &serverId)
{
    if (available()) {
        GError *error = nullptr;
        secret_password_clear_sync(schema(), nullptr, &error, "server", serverId.toUtf8().constData(), nullptr);
        if (error)
            g_error_free(error);
    }
    QSettings().remove(settingsKey(serverId));
}

bool anyInSettings()
{
    QSettings settings;
    settings.beginGroup(QStringLiteral("upload.passwords"));
    for (const QString &key : settings.childKeys())
        if (!settings.value(key).toString().isEmpty())
            return true;
    return false;
}

} // namespace SecretStore
