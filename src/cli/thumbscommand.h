#pragma once
#include <QStringList>

// corvane thumbs [--previews] [--json] DIR: fills the thumbnail (and preview) caches of a folder.
int thumbsCommand(const QStringList &args);
