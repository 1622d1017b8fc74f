#include "jpegsegments.h"

#include <cstring>

namespace JpegSegments {
namespace {

bool startsWith(const QByteArray &bytes, const Segment &s, const char *signature)
{
    const qsizetype n = qsizetype(std::strlen(signature)) + 1;   // with its NUL
    return s.dataSize() >= n && std::memcmp(bytes.constData() + s.data, signature, size_t(n)) == 0;
}

} // namespace

bool isXmp(const QByteArray &bytes, const Segment &s) { return s.marker == 0xE1 && startsWith(bytes, s, kXmpSignature); }

bool isPhotoshop(const QByteArray &bytes, const Segment &s)
{
    return s.marker == 0xED && startsWith(bytes, s, kPhotoshopSignature);
}

std::optional<Layout> parse(const QByteArray &bytes, QString *error)
{
    const auto fail = [error](const char *why) -> std::optional<Layout> {
        if (error)
            *error = QString::fromUtf8(why);
        return std::nullopt;
    };
    const auto *p = reinterpret_cast<const unsigned char *>(bytes.constData());
    const qsizetype n = bytes.size();
    if (n < 4 || p[0] != 0xFF || p[1] != 0xD8)
        return fail("no es un JPEG");
    Layout layout;
    qsizetype i = 2;
    while (i < n) {
        ++layout.work;
        if (p[i] != 0xFF)
            return fail("el JPEG tiene un segmento dañado");
        const qsizetype begin = i;
        while (i < n && p[i] == 0xFF)   // fill bytes
            ++i;
        layout.work += i - begin;
        if (i >= n)
            break;
        const unsigned char marker = p[i++];
        if (marker == 0xDA) {
            layout.scan = i - 2;
            return layout;
        }
        if (marker == 0xD9)
            return fail("el JPEG no tiene datos de imagen");
        if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7)) {   // no length
            layout.segments.push_back({marker, begin, i, i});
            continue;
        }
        if (marker == 0x00 || marker == 0xD8)
            return fail("el JPEG tiene un segmento dañado");
        if (n - i < 2)
            break;
        const qsizetype length = (qsizetype(p[i]) << 8) | p[i + 1];
        if (length < 2 || length > n - i)
            return fail("el JPEG tiene un segmento dañado");
        layout.segments.push_back({marker, begin, i + 2, i + length});
        layout.work += 4;
        i += length;
    }
    return fail("el JPEG está cortado: le faltan los datos de imagen");
}

std::optional<std::pair<qsizetype, qsizetype>> photoshopResource(const QByteArray &block, quint16 id)
{
    const auto *p = reinterpret_cast<const unsigned char *>(block.constData());
    const qsizetype n = block.size();
    qsizetype i = 0;
    while (n - i >= 12 && std::memcmp(p + i, "8BIM", 4) == 0) {
        const quint16 rid = quint16((p[i + 4] << 8) | p[i + 5]);
        qsizetype at = i + 6;
        const qsizetype nameLength = p[at];
        at += (nameLength + 2) & ~qsizetype(1);   // the Pascal name, padded to an even length
        if (n - at < 4)
            return std::nullopt;
        const qsizetype size = (qsizetype(p[at]) << 24) | (qsizetype(p[at + 1]) << 16) | (qsizetype(p[at + 2]) << 8) | p[at + 3];
        at += 4;
        if (size > n - at)
            return std::nullopt;
        if (rid == id)
            return std::make_pair(at, size);
        i = at + size + (size & 1);
    }
    return std::nullopt;
}

} // namespace JpegSegments
