#pragma once
// The two blocking transfer functions over libcurl's easy interface, callable from C. Each call
// owns its curl handle, buffers and command list and frees them before returning, so any number
// of threads may call at once; the only shared state is libcurl's global set-up, done once.
//
// Results: 0 success; -1 no curl handle; -2 an unusable name or URL ("nombre no válido",
// "nombre demasiado largo"); any positive value is the CURLcode of the failed transfer, with
// libcurl's error text (or curl_easy_strerror) written into `error`, always zero-terminated.
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Called with the bytes sent so far and the total. A non-zero return cancels the transfer, which
// then fails with CURLE_ABORTED_BY_CALLBACK (42).
typedef int (*corvane_progress_fn)(void *context, int64_t sent, int64_t total);

// Sends `length` bytes to `url`. With both names given, the URL names the temporary file and
// RNFR/RNTO move it to `final_name` after the transfer; a failure leaves nothing under the final
// name. tls_mode 1: explicit FTPS (all traffic encrypted); otherwise the URL's scheme decides.
// low_speed_time <= 0 means 60 s.
int32_t corvane_upload(const char *url, const char *user, const char *password, const void *bytes, int64_t length,
                       const char *temp_name, const char *final_name, int32_t tls_mode, int32_t passive,
                       int32_t verify_certificate, int64_t low_speed_time, corvane_progress_fn progress,
                       void *progress_context, char *error, uint64_t error_size);

// Logs in and lists the folder named by `url` (names only), to test a server's settings.
int32_t corvane_check(const char *url, const char *user, const char *password, int32_t tls_mode, int32_t passive,
                      int32_t verify_certificate, int64_t low_speed_time, char *error, uint64_t error_size);

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
#include <QByteArray>
#include <QList>
#include <QString>

// The same transfers for Corvane's own callers, with what the plain functions have no room for:
// a pinned public key (a self-signed server the user chose to trust), the folder's listing, the
// size of a file already on the server, and the certificate a server presents.
namespace TransferShim {

struct Connection {
    QByteArray url;          // for upload: the file's URL (temporary name when renaming); else the folder's
    QByteArray user;
    QByteArray password;
    int tlsMode = 0;         // 1: explicit FTPS
    bool passive = true;
    bool verifyCertificate = true;
    QByteArray pinnedKey;    // "sha256//BASE64"; empty: none
    qint64 lowSpeedTime = 0;
    // Keep the calling thread's connection to the server open for its next call (the queue's
    // workers); otherwise every call connects and logs in afresh, as the plain functions do.
    bool reuseConnection = false;
};

struct Outcome {
    int code = 0;            // as the plain functions return
    QString text;            // the error text, empty on success
    bool ok() const { return code == 0; }
};

Outcome upload(const Connection &c, const char *bytes, qint64 length, const QByteArray &tempName,
               const QByteArray &finalName, corvane_progress_fn progress, void *context);
// The folder's names (NLST); `names` may be null (then it is a plain check).
Outcome list(const Connection &c, QList<QByteArray> *names);
// The size of the file the URL names, or -1 when the server has no such file.
qint64 remoteSize(const Connection &c, Outcome *outcome = nullptr);
// Deletes `name` in the folder the URL names (DELE): what a cut transfer left under its temporary
// name. Best effort: the caller only reports nothing.
Outcome remove(const Connection &c, const QByteArray &name);
// The public key of the server's certificate as "sha256//BASE64", read with verification off so a
// self-signed certificate can be shown and pinned. Empty when no TLS connection could be made.
QByteArray serverKey(const Connection &c, Outcome *outcome = nullptr);

} // namespace TransferShim
#endif
