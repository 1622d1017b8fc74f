#include "transfershim.h"

#include <curl/curl.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <pthread.h>
#include <cstdio>
#include <cstring>

namespace {

pthread_once_t gInitOnce = PTHREAD_ONCE_INIT;
void globalInit() { curl_global_init(CURL_GLOBAL_DEFAULT); }

const char kInvalidName[] = "nombre no válido";
const char kNameTooLong[] = "nombre demasiado largo";
const char kNoHandle[] = "no se pudo iniciar la conexión";

bool hasLineBreak(const char *s) { return s && (std::strchr(s, '\r') || std::strchr(s, '\n')); }

void writeError(char *error, uint64_t size, const char *text)
{
    if (error && size > 0)
        std::snprintf(error, size_t(size), "%s", text);
}

struct Reader {
    const char *bytes;
    int64_t length;
    int64_t position = 0;
};

size_t readBytes(char *buffer, size_t size, size_t count, void *userdata)
{
    auto *r = static_cast<Reader *>(userdata);
    const int64_t left = r->length - r->position;
    const size_t n = size_t(std::min<int64_t>(left, int64_t(size * count)));
    if (n > 0) {
        std::memcpy(buffer, r->bytes + r->position, n);
        r->position += int64_t(n);
    }
    return n;
}

struct Progress {
    corvane_progress_fn fn;
    void *context;
};

int forwardProgress(void *userdata, curl_off_t, curl_off_t, curl_off_t ultotal, curl_off_t ulnow)
{
    auto *p = static_cast<Progress *>(userdata);
    return p->fn ? p->fn(p->context, int64_t(ulnow), int64_t(ultotal)) : 0;
}

// NLST output, one name a line; `names` null discards it.
struct Listing {
    QByteArray pending;
    QList<QByteArray> *names;
};

size_t collectListing(char *data, size_t size, size_t count, void *userdata)
{
    auto *l = static_cast<Listing *>(userdata);
    if (l->names)
        l->pending.append(data, qsizetype(size * count));
    return size * count;
}

// Everything one call needs; the C functions and the C++ entries fill it.
struct Call {
    const char *url = nullptr;
    const char *user = nullptr;
    const char *password = nullptr;
    int32_t tlsMode = 0;
    int32_t passive = 1;
    int32_t verify = 1;
    int64_t lowSpeedTime = 0;
    const char *pinnedKey = nullptr;
    bool reuse = false;
    char *error = nullptr;
    uint64_t errorSize = 0;
};

// A calling thread's own handle, kept between calls so the server connection it holds is used
// again: a new login for every file costs more than a small file's transfer. One thread only, so
// nothing is shared; freed (and the connection closed) when the thread ends.
// The multi handle holds the connection cache, so it is kept with the easy handle.
struct ThreadHandle {
    CURL *curl = nullptr;
    CURLM *multi = nullptr;
    ~ThreadHandle()
    {
        if (multi)
            curl_multi_cleanup(multi);
        if (curl)
            curl_easy_cleanup(curl);
    }
};

thread_local ThreadHandle tHandle;

CURL *acquire(const Call &c)
{
    if (!c.reuse)
        return curl_easy_init();
    if (!tHandle.curl)
        tHandle.curl = curl_easy_init();
    return tHandle.curl;
}

// Frees the handle, or for a kept one forgets every option (pointers into this call's buffers
// included) while its connections stay open.
void release(CURL *curl, const Call &c)
{
    if (c.reuse)
        curl_easy_reset(curl);
    else
        curl_easy_cleanup(curl);
}

// The common options, in a fixed order (the upload's list; a check leaves out folder creation).
void commonOptions(CURL *curl, const Call &c, char *curlError, bool createFolders)
{
    curl_easy_setopt(curl, CURLOPT_URL, c.url);
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "ftp,ftps");
    if (c.user && *c.user)
        curl_easy_setopt(curl, CURLOPT_USERNAME, c.user);
    if (c.password && *c.password)
        curl_easy_setopt(curl, CURLOPT_PASSWORD, c.password);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, curlError);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, 20L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 64L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, long(c.lowSpeedTime > 0 ? c.lowSpeedTime : 60));
    if (createFolders)
        curl_easy_setopt(curl, CURLOPT_FTP_CREATE_MISSING_DIRS, 2L);
    if (!c.passive)
        curl_easy_setopt(curl, CURLOPT_FTPPORT, "-");
    if (c.tlsMode == 1)
        curl_easy_setopt(curl, CURLOPT_USE_SSL, 3L);
    if (!c.verify) {
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
    }
    if (c.pinnedKey && *c.pinnedKey)
        curl_easy_setopt(curl, CURLOPT_PINNEDPUBLICKEY, c.pinnedKey);
}

// Performs, maps the result and writes the text; the handle stays the caller's.
// Runs the transfer. Not curl_easy_perform: with Debian's libcurl 7.88 it sometimes leaves the
// FTP data connection out of its poll after PASV/EPSV and then sleeps a whole second before
// looking again, once a file in a few, which made a queue of 20 MB files three times slower than
// the curl command. Driving the multi handle here caps every wait at a few milliseconds; a
// transfer that has data moving is woken by its sockets long before.
CURLcode perform(CURL *curl, bool reuse)
{
    CURLM *multi = reuse ? tHandle.multi : nullptr;
    if (!multi)
        multi = curl_multi_init();
    if (reuse)
        tHandle.multi = multi;
    if (!multi || curl_multi_add_handle(multi, curl) != CURLM_OK) {
        if (multi && !reuse)
            curl_multi_cleanup(multi);
        return curl_easy_perform(curl);
    }
    int running = 1;
    CURLMcode mc = CURLM_OK;
    for (;;) {
        mc = curl_multi_perform(multi, &running);
        if (mc != CURLM_OK || running == 0)
            break;
        mc = curl_multi_poll(multi, nullptr, 0, 10, nullptr);
        if (mc != CURLM_OK)
            break;
    }
    CURLcode code = mc == CURLM_OK ? CURLE_OK : CURLE_FAILED_INIT;
    int left = 0;
    while (CURLMsg *m = curl_multi_info_read(multi, &left))
        if (m->msg == CURLMSG_DONE && m->easy_handle == curl)
            code = m->data.result;
    curl_multi_remove_handle(multi, curl);
    if (!reuse)
        curl_multi_cleanup(multi);
    return code;
}

int32_t finish(CURL *curl, const Call &c, char *curlError)
{
    const CURLcode code = perform(curl, c.reuse);
    if (code == CURLE_OK)
        return 0;
    curlError[4095] = 0;   // the local buffer is 4096 bytes
    writeError(c.error, c.errorSize, *curlError ? curlError : curl_easy_strerror(code));
    return int32_t(code);
}

bool validNames(const Call &c, const char *tempName, const char *finalName)
{
    if (hasLineBreak(c.url) || hasLineBreak(c.user) || hasLineBreak(tempName) || hasLineBreak(finalName)) {
        writeError(c.error, c.errorSize, kInvalidName);
        return false;
    }
    if (tempName && finalName && (std::strlen(tempName) > 1800 || std::strlen(finalName) >= 1801)) {
        writeError(c.error, c.errorSize, kNameTooLong);
        return false;
    }
    return true;
}

int32_t doUpload(const Call &c, const void *bytes, int64_t length, const char *tempName, const char *finalName,
                 corvane_progress_fn progress, void *progressContext)
{
    pthread_once(&gInitOnce, globalInit);
    if (!validNames(c, tempName, finalName))
        return -2;
    CURL *curl = acquire(c);
    if (!curl) {
        writeError(c.error, c.errorSize, kNoHandle);
        return -1;
    }
    char curlError[4096] = {};
    commonOptions(curl, c, curlError, true);

    Reader reader{static_cast<const char *>(bytes), length};
    Progress forward{progress, progressContext};
    curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(curl, CURLOPT_READFUNCTION, readBytes);
    curl_easy_setopt(curl, CURLOPT_READDATA, &reader);
    curl_easy_setopt(curl, CURLOPT_INFILESIZE_LARGE, curl_off_t(length));
    // A megabyte a send rather than 64 kB: fewer wake-ups for a 25 MB frame.
    curl_easy_setopt(curl, CURLOPT_UPLOAD_BUFFERSIZE, 1024L * 1024L);
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, forwardProgress);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &forward);

    curl_slist *commands = nullptr;
    if (tempName && finalName) {
        char command[2048];
        if (std::strncmp(c.url, "sftp://", 7) == 0) {
            std::snprintf(command, sizeof command, "rename \"%s\" \"%s\"", tempName, finalName);
            commands = curl_slist_append(commands, command);
        } else {
            std::snprintf(command, sizeof command, "RNFR %s", tempName);
            commands = curl_slist_append(commands, command);
            std::snprintf(command, sizeof command, "RNTO %s", finalName);
            commands = curl_slist_append(commands, command);
        }
        curl_easy_setopt(curl, CURLOPT_POSTQUOTE, commands);
    }
    const int32_t result = finish(curl, c, curlError);
    curl_slist_free_all(commands);
    release(curl, c);
    return result;
}

int32_t doList(const Call &c, QList<QByteArray> *names)
{
    pthread_once(&gInitOnce, globalInit);
    if (!validNames(c, nullptr, nullptr))
        return -2;
    CURL *curl = acquire(c);
    if (!curl) {
        writeError(c.error, c.errorSize, kNoHandle);
        return -1;
    }
    char curlError[4096] = {};
    commonOptions(curl, c, curlError, false);
    Listing listing{{}, names};
    curl_easy_setopt(curl, CURLOPT_DIRLISTONLY, 1L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collectListing);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &listing);
    const int32_t result = finish(curl, c, curlError);
    release(curl, c);
    if (result == 0 && names)
        for (QByteArray line : listing.pending.split('\n')) {
            line = line.trimmed();
            if (!line.isEmpty())
                names->append(line.mid(line.lastIndexOf('/') + 1));   // some servers answer with paths
        }
    return result;
}

Call callFor(const TransferShim::Connection &c, char *error, uint64_t size)
{
    Call call;
    call.url = c.url.constData();
    call.user = c.user.constData();
    call.password = c.password.constData();
    call.tlsMode = c.tlsMode;
    call.passive = c.passive ? 1 : 0;
    call.verify = c.verifyCertificate ? 1 : 0;
    call.lowSpeedTime = c.lowSpeedTime;
    call.pinnedKey = c.pinnedKey.isEmpty() ? nullptr : c.pinnedKey.constData();
    call.reuse = c.reuseConnection;
    call.error = error;
    call.errorSize = size;
    return call;
}

TransferShim::Outcome outcome(int32_t code, const char *error)
{
    return {code, code == 0 ? QString() : QString::fromUtf8(error)};
}

// "sha256//" and the base64 of the SHA-256 of the certificate's DER public key, as curl pins it.
QByteArray pinOfPem(const char *pem)
{
    BIO *bio = BIO_new_mem_buf(pem, -1);
    X509 *cert = bio ? PEM_read_bio_X509(bio, nullptr, nullptr, nullptr) : nullptr;
    QByteArray pin;
    if (cert) {
        unsigned char *der = nullptr;
        const int length = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(cert), &der);
        if (length > 0) {
            unsigned char digest[EVP_MAX_MD_SIZE];
            unsigned int digestLength = 0;
            if (EVP_Digest(der, size_t(length), digest, &digestLength, EVP_sha256(), nullptr))
                pin = "sha256//" + QByteArray(reinterpret_cast<const char *>(digest), int(digestLength)).toBase64();
            OPENSSL_free(der);
        }
        X509_free(cert);
    }
    BIO_free(bio);
    return pin;
}

} // namespace

extern "C" int32_t corvane_upload(const char *url, const char *user, const char *password, const void *bytes,
                                  int64_t length, const char *temp_name, const char *final_name, int32_t tls_mode,
                                  int32_t passive, int32_t verify_certificate, int64_t low_speed_time,
                                  corvane_progress_fn progress, void *progress_context, char *error, uint64_t error_size)
{
    Call c;
    c.url = url;
    c.user = user;
    c.password = password;
    c.tlsMode = tls_mode;
    c.passive = passive;
    c.verify = verify_certificate;
    c.lowSpeedTime = low_speed_time;
    c.error = error;
    c.errorSize = error_size;
    return doUpload(c, bytes, length, temp_name, final_name, progress, progress_context);
}

extern "C" int32_t corvane_check(const char *url, const char *user, const char *password, int32_t tls_mode,
                                 int32_t passive, int32_t verify_certificate, int64_t low_speed_time, char *error,
                                 uint64_t error_size)
{
    Call c;
    c.url = url;
    c.user = user;
    c.password = password;
    c.tlsMode = tls_mode;
    c.passive = passive;
    c.verify = verify_certificate;
    c.lowSpeedTime = low_speed_time;
    c.error = error;
    c.errorSize = error_size;
    return doList(c, nullptr);
}

namespace TransferShim {

Outcome upload(const Connection &c, const char *bytes, qint64 length, const QByteArray &tempName,
               const QByteArray &finalName, corvane_progress_fn progress, void *context)
{
    char error[4096] = {};
    const bool rename = !tempName.isEmpty() && !finalName.isEmpty();
    const int32_t code = doUpload(callFor(c, error, sizeof error), bytes, length,
                                  rename ? tempName.constData() : nullptr, rename ? finalName.constData() : nullptr,
                                  progress, context);
    return outcome(code, error);
}

Outcome list(const Connection &c, QList<QByteArray> *names)
{
    char error[4096] = {};
    const int32_t code = doList(callFor(c, error, sizeof error), names);
    return outcome(code, error);
}

qint64 remoteSize(const Connection &c, Outcome *result)
{
    pthread_once(&gInitOnce, globalInit);
    char error[4096] = {};
    const Call call = callFor(c, error, sizeof error);
    if (!validNames(call, nullptr, nullptr)) {
        if (result)
            *result = outcome(-2, error);
        return -1;
    }
    CURL *curl = acquire(call);
    if (!curl) {
        if (result)
            *result = outcome(-1, kNoHandle);
        return -1;
    }
    char curlError[4096] = {};
    commonOptions(curl, call, curlError, false);
    curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
    const int32_t code = finish(curl, call, curlError);
    curl_off_t size = -1;
    if (code == 0)
        curl_easy_getinfo(curl, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &size);
    release(curl, call);
    if (result)
        *result = outcome(code, error);
    return code == 0 ? qint64(size) : -1;
}

Outcome remove(const Connection &c, const QByteArray &name)
{
    pthread_once(&gInitOnce, globalInit);
    char error[4096] = {};
    const Call call = callFor(c, error, sizeof error);
    if (name.isEmpty() || name.contains('/') || !validNames(call, name.constData(), nullptr))
        return outcome(-2, kInvalidName);
    CURL *curl = acquire(call);
    if (!curl)
        return outcome(-1, kNoHandle);
    char curlError[4096] = {};
    commonOptions(curl, call, curlError, false);
    const QByteArray command = "DELE " + name;
    curl_slist *commands = curl_slist_append(nullptr, command.constData());
    curl_easy_setopt(curl, CURLOPT_QUOTE, commands);
    curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
    const int32_t code = finish(curl, call, curlError);
    curl_slist_free_all(commands);
    release(curl, call);
    return outcome(code, error);
}

QByteArray serverKey(const Connection &c, Outcome *result)
{
    pthread_once(&gInitOnce, globalInit);
    char error[4096] = {};
    Connection open = c;
    open.reuseConnection = false;   // the certificate is read during a handshake of its own
    open.verifyCertificate = false;
    open.pinnedKey.clear();
    const Call call = callFor(open, error, sizeof error);
    if (!validNames(call, nullptr, nullptr)) {
        if (result)
            *result = outcome(-2, error);
        return {};
    }
    CURL *curl = acquire(call);
    if (!curl) {
        if (result)
            *result = outcome(-1, kNoHandle);
        return {};
    }
    char curlError[4096] = {};
    commonOptions(curl, call, curlError, false);
    Listing listing{{}, nullptr};
    curl_easy_setopt(curl, CURLOPT_DIRLISTONLY, 1L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collectListing);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &listing);
    curl_easy_setopt(curl, CURLOPT_CERTINFO, 1L);
    const int32_t code = finish(curl, call, curlError);
    QByteArray pin;
    curl_certinfo *info = nullptr;
    if (curl_easy_getinfo(curl, CURLINFO_CERTINFO, &info) == CURLE_OK && info && info->num_of_certs > 0)
        for (curl_slist *field = info->certinfo[0]; field; field = field->next)
            if (std::strncmp(field->data, "Cert:", 5) == 0)
                pin = pinOfPem(field->data + 5);
    release(curl, call);
    if (result)
        *result = outcome(code, error);
    return pin;
}

} // namespace TransferShim
