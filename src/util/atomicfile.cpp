#include "atomicfile.h"

#include "fileio.h"
#include "uniquefd.h"

#include <QFile>
#include <QUuid>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace AtomicFile {
namespace {
const char *g_failAt = nullptr;

bool failHere(const char *step)
{
    if (g_failAt && std::strcmp(g_failAt, step) == 0) {
        errno = EIO;
        return true;
    }
    return false;
}

Result fail(int e) { return {describeErrno(e), e}; }
} // namespace

void setFailureForTesting(const char *step) { g_failAt = step; }

QString describeErrno(int e)
{
    switch (e) {
    case EACCES:
    case EPERM:
    case EROFS: return QStringLiteral("la carpeta es de solo lectura");
    case ENOSPC:
    case EDQUOT: return QStringLiteral("el disco está lleno");
    case ENOENT:
    case ENOTDIR: return QStringLiteral("la carpeta ya no existe");
    case EIO: return QStringLiteral("error de lectura o escritura en el disco");
    default: return QStringLiteral("error del sistema (%1)").arg(QString::fromLocal8Bit(std::strerror(e)));
    }
}

Result write(const QString &target, const QByteArray &data)
{
    const qsizetype slash = target.lastIndexOf(QLatin1Char('/'));
    const QString folder = slash <= 0 ? QStringLiteral("/") : target.left(slash);
    const QString temp = folder + QStringLiteral("/.corvane-")
                         + QUuid::createUuid().toString(QUuid::WithoutBraces) + QStringLiteral(".part");
    const QByteArray tempNative = QFile::encodeName(temp);

    UniqueFd fd(failHere("open") ? -1 : ::open(tempNative.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!fd)
        return fail(errno);
    if (failHere("write") || !FileIo::writeFully(fd.get(), data.constData(), data.size())
        || failHere("sync") || ::fsync(fd.get()) != 0) {
        const int e = errno;
        fd.reset();
        ::unlink(tempNative.constData());
        return fail(e);
    }
    fd.reset();
    if (failHere("rename") || ::rename(tempNative.constData(), QFile::encodeName(target).constData()) != 0) {
        const int e = errno;
        ::unlink(tempNative.constData());
        return fail(e);
    }
    FileIo::syncFolder(folder);   // makes the rename itself durable
    return {};
}

} // namespace AtomicFile
