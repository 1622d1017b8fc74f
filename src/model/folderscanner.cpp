#include "folderscanner.h"

#include "filekinds.h"
#include "naturalcompare.h"

#include <QDir>
#include <QFile>
#include <QHash>

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace FolderScanner {
namespace {

struct FileStat {
    qint64 size = 0;
    std::optional<QDateTime> created, modified;
};

// UTC: a local-time QDateTime makes the C library look up the time zone for every file, which
// doubles the cost of a listing. Callers that show the dates convert them.
QDateTime fromStatx(const struct statx_timestamp &t)
{
    return QDateTime::fromMSecsSinceEpoch(qint64(t.tv_sec) * 1000 + t.tv_nsec / 1000000, Qt::UTC);
}

// Size and (when asked) dates of one file; an unreadable file has size 0 and no dates.
FileStat statFile(const QString &path, bool wantDates)
{
    FileStat s;
    struct statx sx;
    const QByteArray native = QFile::encodeName(path);
    if (statx(AT_FDCWD, native.constData(), AT_STATX_SYNC_AS_STAT,
              STATX_SIZE | STATX_MTIME | STATX_BTIME | STATX_TYPE, &sx) != 0)
        return s;
    s.size = qint64(sx.stx_size);
    if (!wantDates)
        return s;
    if (sx.stx_mask & STATX_MTIME)
        s.modified = fromStatx(sx.stx_mtime);
    if (sx.stx_mask & STATX_BTIME)
        s.created = fromStatx(sx.stx_btime);
    else
        s.created = s.modified;   // file systems without a birth time: the best we have
    return s;
}

enum class EntryType { File, Directory, Other };

EntryType entryType(int dirFd, const struct dirent *e)
{
    switch (e->d_type) {
    case DT_REG: return EntryType::File;
    case DT_DIR: return EntryType::Directory;
    case DT_LNK:
    case DT_UNKNOWN: {
        struct stat st;
        if (fstatat(dirFd, e->d_name, &st, 0) != 0)
            return EntryType::Other;
        if (S_ISREG(st.st_mode))
            return EntryType::File;
        if (S_ISDIR(st.st_mode))
            return EntryType::Directory;
        return EntryType::Other;
    }
    default: return EntryType::Other;
    }
}

QString joinPath(const QString &folder, const QString &name)
{
    return folder.endsWith(QLatin1Char('/')) ? folder + name : folder + QLatin1Char('/') + name;
}

} // namespace

QString parentOf(const QString &path)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    return slash <= 0 ? QStringLiteral("/") : path.left(slash);
}

QString standardPath(const QString &path)
{
    if (path.isEmpty())
        return path;
    return QDir::cleanPath(QDir::isAbsolutePath(path) ? path : QDir::current().absoluteFilePath(path));
}

QString groupingKey(const QString &path)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    QString key = standardPath(slash < 0 ? QStringLiteral(".") : (slash == 0 ? QStringLiteral("/") : path.left(slash)));
    if (!key.endsWith(QLatin1Char('/')))
        key += QLatin1Char('/');
    key += FileKinds::baseNameOf(path).toLower();
    if (FileKinds::isVideo(path))
        key += QStringLiteral("#v");
    return key;
}

Grouped group(const QStringList &files)
{
    Grouped out;
    struct Group {
        QStringList members;
        QList<QString> exts;
    };
    QList<Group> groups;
    QHash<QString, qsizetype> indexByKey;
    // Keys of one folder share their prefix: cache it instead of cleaning every path.
    QString lastDir, lastDirKey;

    for (const QString &path : files) {
        const QString ext = FileKinds::extensionOf(path);
        const FileKinds::Kind kind = FileKinds::kindOfExtension(ext);
        if (kind == FileKinds::Kind::Other)
            continue;
        const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
        const QString dir = slash <= 0 ? QStringLiteral("/") : path.left(slash);
        if (dir != lastDir) {
            lastDir = dir;
            lastDirKey = standardPath(dir);
            if (!lastDirKey.endsWith(QLatin1Char('/')))
                lastDirKey += QLatin1Char('/');
        }
        QString key = lastDirKey + FileKinds::baseNameOf(path).toLower();
        if (kind == FileKinds::Kind::Sidecar) {
            out.xmpKeys.insert(key);
            continue;
        }
        if (kind == FileKinds::Kind::Video)
            key += QStringLiteral("#v");
        auto it = indexByKey.find(key);
        if (it == indexByKey.end()) {
            it = indexByKey.insert(key, groups.size());
            groups.append(Group{});
        }
        groups[*it].members.append(path);
        groups[*it].exts.append(ext);
    }

    out.items.reserve(groups.size());
    for (const Group &g : std::as_const(groups)) {
        ScannedItem item;
        qsizetype raw = -1, jpeg = -1;
        for (qsizetype i = 0; i < g.members.size(); ++i) {
            if (raw < 0 && FileKinds::isRawExt(g.exts[i]))
                raw = i;
            if (jpeg < 0 && FileKinds::isJpegExt(g.exts[i]))
                jpeg = i;
        }
        const qsizetype main = raw >= 0 ? raw : (jpeg >= 0 ? jpeg : 0);
        const qsizetype preview = jpeg >= 0 ? jpeg : main;
        item.url = g.members[main];
        item.previewURL = g.members[preview];
        item.previewIsRaw = FileKinds::isRawExt(g.exts[preview]);
        item.files = g.members;
        item.badge = g.exts[main].toUpper();
        if (raw >= 0 && jpeg >= 0 && jpeg != main)
            item.badge += QLatin1Char('+') + g.exts[jpeg].toUpper();
        const qsizetype dot = item.url.lastIndexOf(QLatin1Char('.'));
        item.sidecarURL = (dot > item.url.lastIndexOf(QLatin1Char('/')) + 1 ? item.url.left(dot) : item.url)
                          + QStringLiteral(".xmp");
        for (qsizetype i = 0; i < g.members.size(); ++i) {
            const FileStat st = statFile(g.members[i], i == main);
            item.size += st.size;
            if (i == main) {
                item.created = st.created;
                item.modified = st.modified;
            }
        }
        out.items.append(std::move(item));
    }
    return out;
}

ScanResult listFolder(const QString &folderIn, const LoadToken &token)
{
    ScanResult result;
    const QString folder = standardPath(folderIn);
    const QByteArray native = QFile::encodeName(folder);
    DIR *dir = opendir(native.constData());
    if (!dir) {
        result.denied = (errno == EACCES || errno == EPERM);
        return result;
    }
    const int fd = dirfd(dir);
    QStringList files;
    while (const struct dirent *e = readdir(dir)) {
        if (e->d_name[0] == '.')
            continue;   // hidden entries (and our own dot-files) are never seen
        const EntryType type = entryType(fd, e);
        const QString path = joinPath(folder, QFile::decodeName(e->d_name));
        if (type == EntryType::Directory)
            result.subfolders.append(path);
        else if (type == EntryType::File) {
            const QString ext = FileKinds::extensionOf(path);
            if (FileKinds::isMediaExt(ext) || ext == QLatin1String("xmp"))
                files.append(path);
            else
                result.extras.append(path);
        }
        if ((files.size() & 1023) == 0 && token.isCancelled())
            break;
    }
    closedir(dir);
    if (token.isCancelled())
        return {};

    Grouped g = group(files);
    result.items = std::move(g.items);
    result.xmpKeys = std::move(g.xmpKeys);
    result.folderCount = result.items.isEmpty() ? 0 : 1;
    std::sort(result.subfolders.begin(), result.subfolders.end(),
              [](const QString &a, const QString &b) { return naturalLess(a, b); });
    return result;
}

bool isExcludedSystemPath(const QString &p)
{
    static const QSet<QString> excluded{
        "/System", "/Library", "/private", "/usr", "/bin", "/sbin", "/Applications", "/opt", "/cores",
        "/dev", "/Volumes", "/Network", "/etc", "/var", "/tmp",
        // Linux system trees
        "/proc", "/sys", "/run", "/boot", "/lib", "/lib64", "/snap", "/lost+found"};
    if (excluded.contains(p))
        return true;
    // A user's library folder: /Users/<name>/Library
    if (p.endsWith(QLatin1String("/Library"))) {
        const QString parent = p.left(p.size() - 8);
        const qsizetype slash = parent.lastIndexOf(QLatin1Char('/'));
        if (slash > 0 && parent.left(slash) == QLatin1String("/Users"))
            return true;
    }
    return false;
}

ScanResult listTree(const QString &rootIn, const LoadToken &token, const Progress &progress)
{
    ScanResult result;
    const QString root = standardPath(rootIn);
    QStringList files;
    QStringList stack{root};
    bool first = true;

    while (!stack.isEmpty()) {
        if (token.isCancelled())
            return {};
        const QString folder = stack.takeLast();
        DIR *dir = opendir(QFile::encodeName(folder).constData());
        if (!dir) {
            if (first)
                result.denied = (errno == EACCES || errno == EPERM);
            first = false;
            continue;   // an unreadable subfolder is skipped
        }
        first = false;
        const int fd = dirfd(dir);
        QStringList subdirs;
        while (const struct dirent *e = readdir(dir)) {
            if (e->d_name[0] == '.')
                continue;
            // Links to folders are not followed: they could loop.
            const EntryType type = e->d_type == DT_LNK ? EntryType::Other : entryType(fd, e);
            const QString path = joinPath(folder, QFile::decodeName(e->d_name));
            if (type == EntryType::Directory) {
                if (!isExcludedSystemPath(path))
                    subdirs.append(path);
            } else if (type == EntryType::File) {
                const QString ext = FileKinds::extensionOf(path);
                if (!FileKinds::isMediaExt(ext) && ext != QLatin1String("xmp"))
                    continue;
                files.append(path);
                if (files.size() % kProgressEvery == 0) {
                    if (progress)
                        progress(QStringLiteral("Buscando imágenes"), int(files.size()));
                    if (token.isCancelled())
                        break;
                }
                if (files.size() >= kTreeFileLimit) {
                    result.truncated = true;
                    break;
                }
            }
        }
        closedir(dir);
        if (result.truncated)
            break;
        // Depth first, in natural order: push in reverse so the first subfolder is visited first.
        std::sort(subdirs.begin(), subdirs.end(), [](const QString &a, const QString &b) { return naturalLess(b, a); });
        stack.append(subdirs);
    }
    if (token.isCancelled())
        return {};

    Grouped g = group(files);
    result.items = std::move(g.items);
    result.xmpKeys = std::move(g.xmpKeys);
    QSet<QString> folders;
    for (const ScannedItem &item : std::as_const(result.items))
        folders.insert(item.url.left(item.url.lastIndexOf(QLatin1Char('/'))));
    result.folderCount = int(folders.size());
    return result;
}

} // namespace FolderScanner
