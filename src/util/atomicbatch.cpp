#include "atomicbatch.h"

#include "fileio.h"
#include "uniquefd.h"

#include <QFile>
#include <QSet>
#include <QUuid>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
QString folderOf(const QString &path)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    return slash <= 0 ? QStringLiteral("/") : path.left(slash);
}
} // namespace

AtomicBatch::~AtomicBatch()
{
    for (const Pending &p : std::as_const(_pending))
        ::unlink(p.temp.constData());
}

AtomicFile::Result AtomicBatch::add(const QString &target, const QByteArray &data, mode_t mode)
{
    const QByteArray temp = QFile::encodeName(folderOf(target) + QStringLiteral("/.corvane-")
                                              + QUuid::createUuid().toString(QUuid::WithoutBraces) + QStringLiteral(".part"));
    UniqueFd fd(::open(temp.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!fd)
        return {AtomicFile::describeErrno(errno), errno};
    if (!FileIo::writeFully(fd.get(), data.constData(), data.size()) || ::fchmod(fd.get(), mode) != 0) {
        const int e = errno;
        fd.reset();
        ::unlink(temp.constData());
        return {AtomicFile::describeErrno(e), e};
    }
    _pending.append({target, temp});
    return {};
}

QList<AtomicBatch::Failure> AtomicBatch::commit()
{
    QList<Failure> failures;
    if (_pending.isEmpty())
        return failures;
    // One flush per file system for every temporary: all are on disk before any takes its name.
    QSet<QString> seenFolders;
    QSet<dev_t> flushed;
    bool allFlushed = true;
    for (const Pending &p : std::as_const(_pending)) {
        const QString folder = folderOf(p.target);
        if (seenFolders.contains(folder))
            continue;
        seenFolders.insert(folder);
        const UniqueFd fd(::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        struct stat st {};
        if (!fd || ::fstat(fd.get(), &st) != 0) {
            allFlushed = false;
            continue;
        }
        if (!flushed.contains(st.st_dev)) {
            if (::syncfs(fd.get()) != 0)
                allFlushed = false;
            flushed.insert(st.st_dev);
        }
    }
    if (!allFlushed) {
        // Without the flush the renames would not be safe: each file is flushed on its own.
        for (const Pending &p : std::as_const(_pending)) {
            const UniqueFd f(::open(p.temp.constData(), O_RDONLY | O_CLOEXEC));
            if (f)
                ::fsync(f.get());
        }
    }
    QSet<QString> folders;
    for (const Pending &p : std::as_const(_pending)) {
        if (::rename(p.temp.constData(), QFile::encodeName(p.target).constData()) != 0) {
            const int e = errno;
            ::unlink(p.temp.constData());
            failures.append({p.target, {AtomicFile::describeErrno(e), e}});
            continue;
        }
        folders.insert(folderOf(p.target));
    }
    _pending.clear();
    for (const QString &folder : std::as_const(folders))
        FileIo::syncFolder(folder);   // makes the renames durable
    return failures;
}
