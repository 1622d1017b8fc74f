#pragma once
#include <QByteArray>
#include <QString>

// One copy made (or found already there), kept for verification.
struct CopyRecord {
    int rootIndex = 0;            // 0 the working disk, 1 the backup
    QString dst;                  // path of the final copy
    QByteArray hash;              // SHA-256 of the card's bytes, computed while copying (32 bytes)
    qint64 size = 0;
    QString srcName;              // the card file's name, for messages
    QString historyKey;
};
