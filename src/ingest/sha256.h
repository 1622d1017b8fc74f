#pragma once
// Incremental SHA-256 over OpenSSL's EVP (which uses the CPU's SHA instructions). One object per
// stream; not shared between threads.
#include <QByteArray>
#include <QString>
#include <functional>

struct evp_md_ctx_st;

class Sha256
{
public:
    Sha256();
    ~Sha256();
    Sha256(const Sha256 &) = delete;
    Sha256 &operator=(const Sha256 &) = delete;

    void add(const char *data, qint64 size);
    // The 32-byte digest; the object is ready for a new stream afterwards.
    QByteArray finish();

    struct FileDigest {
        QByteArray digest;        // empty when the file could not be read to its end
        qint64 size = 0;          // bytes read
        int error = 0;            // errno of the failure
        bool cancelled = false;
    };
    // The digest of a whole file read in 8 MiB chunks. With `fromDisk`, the file is first flushed
    // and dropped from the page cache, so the bytes come from the disk and not from memory.
    // `keepGoing` runs after every chunk with the bytes just read; false stops the read.
    static FileDigest ofFile(const QString &path, bool fromDisk,
                             const std::function<bool(qint64 bytes)> &keepGoing = {});

    static constexpr qint64 kChunk = 8 * 1024 * 1024;

private:
    evp_md_ctx_st *_ctx;
};
