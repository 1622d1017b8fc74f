#pragma once
#include <QStringList>

// corvane pick DIR (--message TEXT | --message-file F | -) [--color N] [--select-only] [--json]:
// the shots of a folder that a client's message names, and with --color the mark on them.
int pickCommand(const QStringList &args);
