#pragma once
// Atomic replacement of a file: write a hidden temporary file in the same folder, sync it,
// rename it over the target, sync the folder. A crash at any point leaves the old file or the
// new one, never a mix.
#include <QByteArray>
#include <QString>

namespace AtomicFile {

struct Result {
    QString error;    // one Spanish phrase ("la carpeta es de solo lectura"); empty on success
    int errnoValue = 0;
    bool ok() const { return error.isEmpty(); }
};

Result write(const QString &target, const QByteArray &data);

// A short Spanish phrase for an errno value met while writing files.
QString describeErrno(int e);

// Test hook: when set, write() fails at the named step ("open", "write", "sync", "rename")
// as if the system had returned EIO. Not thread-safe; tests only.
void setFailureForTesting(const char *step);

} // namespace AtomicFile
