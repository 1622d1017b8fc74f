#pragma once
// `corvane raw-previews [--json] [--size N] FILE...`: the JPEGs embedded in each file and the one
// Corvane would show at N pixels (2560 by default). Exit status 0 ok, 1 a file unreadable, 2 bad usage.
#include <QStringList>

int rawPreviewsCommand(const QStringList &args);
