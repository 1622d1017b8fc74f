#pragma once
#include "photo.h"

#include <QList>
#include <QString>

enum class SortKey { name, captureDate, created, modified, size, dimensions, type, taste };

QString sortKeyToString(SortKey k);
SortKey sortKeyFromString(const QString &s);       // missing or unknown → name
QList<SortKey> allSortKeys();
QString sortKeyTitle(SortKey k);                   // Spanish menu text

// Orders shots by key. Shots without a value for the key go last whatever the direction; ties
// fall back to the name in natural order.
void sortPhotos(QList<PhotoPtr> &photos, SortKey key, bool ascending);
