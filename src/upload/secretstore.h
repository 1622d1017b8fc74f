#pragma once
// Upload server passwords: in the desktop's secret store (GNOME Keyring, KWallet) through
// libsecret when one answers on the session bus, else in the settings file, which the window
// then warns about. Blocking D-Bus calls: fine on the GUI thread for a few servers, and the
// answer whether a store exists is asked once per process.
#include <QString>

namespace SecretStore {

// Whether a Secret Service answers (or can be started) on the session bus.
bool available();
QString password(const QString &serverId);
// Returns false when the password went to the settings file (no secret store answered).
bool setPassword(const QString &serverId, const QString &serverName, const QString &password);
void remove(const QString &serverId);
// Whether any password is kept in the settings file in plain text.
bool anyInSettings();

} // namespace SecretStore
