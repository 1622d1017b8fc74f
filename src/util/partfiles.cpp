#include "partfiles.h"

#include "uniquefd.h"

#include <QDir>
#include <QFile>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace PartFiles {

bool isPartName(const QString &name)
{
    return name.startsWith(QLatin1String(".corvane-")) && name.endsWith(QLatin1String(".part"));
}

void hold(int fd)
{
    ::flock(fd, LOCK_EX | LOCK_NB);
}

namespace {
bool removeIfStale(const QString &path)
{
    const QByteArray native = QFile::encodeName(path);
    const UniqueFd fd(::open(native.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    return fd && ::flock(fd.get(), LOCK_EX | LOCK_NB) == 0 && ::unlink(native.constData()) == 0;
}
} // namespace

int removeStale(const QString &folder)
{
    int removed = 0;
    const QStringList names = QDir(folder).entryList({QStringLiteral(".corvane-*.part")}, QDir::Files | QDir::Hidden | QDir::System);
    for (const QString &name : names)
        if (isPartName(name) && removeIfStale(folder + QLatin1Char('/') + name))
            ++removed;
    return removed;
}

int removeStaleBelow(const QString &root, int depth)
{
    int removed = removeStale(root);
    if (depth <= 0)
        return removed;
    const QStringList children = QDir(root).entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::NoSymLinks | QDir::Hidden);
    for (const QString &child : children)
        removed += removeStaleBelow(root + QLatin1Char('/') + child, depth - 1);
    return removed;
}

} // namespace PartFiles
