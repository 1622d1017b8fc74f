#pragma once
#include <QStringList>

// corvane receive --to DIR [--port N]: the FTP receiver for cameras, until interrupted.
int receiveCommand(const QStringList &args);
