#pragma once
// The list of upload servers kept in the settings ("upload.servers"), passwords through the
// secret store. Any thread; each call reads or writes the settings whole.
#include "uploadserver.h"

#include <QList>

namespace UploadServers {

// Without passwords (they are read one by one, when a transfer needs them).
QList<UploadServer> all();
// By id, or else by name (case-insensitive), with its password.
std::optional<UploadServer> find(const QString &idOrName);
// Adds or replaces (by id; a new id when empty) and stores the password. Returns the id;
// `inSecretStore` tells where the password went.
QString save(UploadServer server, bool *inSecretStore = nullptr);
void remove(const QString &id);

} // namespace UploadServers
