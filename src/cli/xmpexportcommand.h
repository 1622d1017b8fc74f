#pragma once
#include <QStringList>

// corvane xmp-export DIR: writes the .xmp sidecar of every marked shot of a folder.
int xmpExportCommand(const QStringList &args);
