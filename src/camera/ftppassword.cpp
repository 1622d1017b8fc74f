#include "ftppassword.h"

#include <QSettings>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <sys/random.h>

namespace FTPPassword {
namespace {
constexpr unsigned kAlphabetSize = sizeof(kAlphabet) - 1;
static_assert(kAlphabetSize == 31);
// The largest multiple of 31 that fits in a byte: bytes at or above it are drawn again, so every
// character is equally likely.
constexpr unsigned kAcceptBelow = 256 - 256 % kAlphabetSize;

std::uint8_t randomByte()
{
    static thread_local std::uint8_t pool[64];
    static thread_local size_t left = 0;
    if (left == 0) {
        size_t got = 0;
        while (got < sizeof pool) {
            const ssize_t n = ::getrandom(pool + got, sizeof pool - got, 0);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                std::abort();   // no source of randomness: never make a guessable password
            got += size_t(n);
        }
        left = sizeof pool;
    }
    return pool[--left];
}
} // namespace

QString generate()
{
    QString out;
    out.reserve(kLength);
    while (out.size() < kLength) {
        const unsigned b = randomByte();
        if (b < kAcceptBelow)
            out.append(QLatin1Char(kAlphabet[b % kAlphabetSize]));
    }
    return out;
}

Loaded load(QSettings &settings)
{
    const QString stored = settings.value(QStringLiteral("cam.ftpPassword")).toString();
    if (stored.size() >= kLength)
        return {stored, false};
    Loaded fresh{generate(), !stored.isEmpty()};
    settings.setValue(QStringLiteral("cam.ftpPassword"), fresh.password);
    settings.sync();
    return fresh;
}

QString renewalNotice()
{
    return QStringLiteral("Por seguridad, la contraseña es nueva y más larga: ponla otra vez en el menú FTP de la cámara.");
}

} // namespace FTPPassword
