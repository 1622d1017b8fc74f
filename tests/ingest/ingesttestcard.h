#pragma once
// Cards and destinations made of real files in temporary folders, for the ingest tests. The bytes
// are pseudo-random from a fixed seed, so every run writes the same files.
#include <QByteArray>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QStringList>

namespace TestCard {

inline QByteArray bytes(qint64 size, quint32 seed)
{
    QByteArray b(size, Qt::Uninitialized);
    QRandomGenerator gen(seed);
    qint64 i = 0;
    for (; i + 4 <= size; i += 4) {
        const quint32 v = gen.generate();
        std::memcpy(b.data() + i, &v, 4);
    }
    for (; i < size; ++i)
        b[i] = char(gen.generate());
    return b;
}

// Writes `data` at root/rel with the given modification time (when valid).
inline QString write(const QString &root, const QString &rel, const QByteArray &data, const QDateTime &mtime = {})
{
    const QString path = root + QLatin1Char('/') + rel;
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return {};
    f.write(data);
    f.flush();   // a later flush would set the modification time again
    if (mtime.isValid())
        f.setFileTime(mtime, QFileDevice::FileModificationTime);
    f.close();
    return path;
}


// Every file below root (hidden ones too), as sorted relative paths.
inline QStringList files(const QString &root)
{
    QStringList out;
    QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext())
        out << QDir(root).relativeFilePath(it.next());
    out.sort();
    return out;
}

// The hidden part files below root.
inline QStringList parts(const QString &root)
{
    QStringList out;
    for (const QString &f : files(root))
        if (QFileInfo(f).fileName().startsWith(QLatin1String(".corvane-")))
            out << f;
    return out;
}

} // namespace TestCard
