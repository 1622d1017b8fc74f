#pragma once
#include <QString>
#include <QStringList>

// What one destination ended with, shown in the summary.
struct DestResult {
    int id = 0;                   // the destination's index: 0 working disk, 1 backup
    QString root;                 // the destination folder
    int copied = 0;
    int skipped = 0;              // "Ya estaban en el disco"
    int failed = 0;
    int verifiedOK = 0;
    int verifyBad = 0;
    bool verifiedDone = false;    // verification ran on this destination
    QStringList errors;           // one line each: "DSC_0001.NEF: no se puede crear el archivo"

    // "Correcta y verificada" when copies were made and every one was verified, nothing failed;
    // "Correcta" without errors otherwise; "Con errores" with them.
    QString statusText() const;
    bool hasErrors() const { return failed > 0 || verifyBad > 0 || !errors.isEmpty(); }
};
