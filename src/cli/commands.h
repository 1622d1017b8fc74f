#pragma once
// The subcommands. Each returns the exit status: 0 ok, 1 failure, 2 bad usage.
#include <QStringList>

namespace Commands {
int scan(const QStringList &args);
int marks(const QStringList &args);
int mark(const QStringList &args);
int sampleShoot(const QStringList &args);
} // namespace Commands
