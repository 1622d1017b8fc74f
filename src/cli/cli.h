#pragma once
// The command-line front end. Widgets are never linked here.
#include <QStringList>

namespace Cli {
// Whether argv[1] names a subcommand (then main() runs headless).
bool isSubcommand(const char *arg);
// Runs a subcommand; returns the exit status (0 ok, 1 failure, 2 bad usage).
int run(int argc, char **argv);
} // namespace Cli
