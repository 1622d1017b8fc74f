#include "ftppath.h"

#include <QStringDecoder>

namespace FTPPath {
namespace {
constexpr int kMaxDepth = 32;
constexpr qsizetype kMaxComponentBytes = 200;

bool isForbiddenChar(char32_t c)
{
    return c < 0x20 || c == 0x7F || c == '\\' || (c >= 0x80 && c < 0xA0) || (c >= 0x202A && c <= 0x202E)
           || (c >= 0x2066 && c <= 0x2069) || c == 0x200E || c == 0x200F || c == 0x061C;
}

std::optional<QString> decode(const QByteArray &bytes)
{
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = utf8(bytes);
    if (utf8.hasError())
        return std::nullopt;
    for (char32_t c : text.toUcs4())
        if (isForbiddenChar(c))
            return std::nullopt;
    return text;
}

std::optional<Parts> fold(const Parts &cwd, const QString &path)
{
    Parts parts = path.startsWith(QLatin1Char('/')) ? Parts() : cwd;
    const QStringList pieces = path.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    for (const QString &piece : pieces) {
        if (piece == QLatin1String("."))
            continue;
        if (piece == QLatin1String("..")) {
            if (parts.isEmpty())
                return std::nullopt;   // above the top: refused, never clamped
            parts.removeLast();
            continue;
        }
        if (piece.startsWith(QLatin1Char('.')) || piece.toUtf8().size() > kMaxComponentBytes)
            return std::nullopt;
        parts.append(piece);
        if (parts.size() > kMaxDepth)
            return std::nullopt;
    }
    return parts;
}
} // namespace

std::optional<Parts> resolveFolder(const Parts &cwd, const QByteArray &argument)
{
    const auto text = decode(argument);
    if (!text)
        return std::nullopt;
    return fold(cwd, *text);
}

std::optional<Parts> resolveFile(const Parts &cwd, const QByteArray &argument)
{
    const auto text = decode(argument);
    if (!text || text->isEmpty() || text->endsWith(QLatin1Char('/')))
        return std::nullopt;
    const QString last = text->section(QLatin1Char('/'), -1);
    if (last == QLatin1String(".") || last == QLatin1String(".."))
        return std::nullopt;
    auto parts = fold(cwd, *text);
    if (!parts || parts->isEmpty())
        return std::nullopt;
    return parts;
}

QString display(const Parts &parts)
{
    return QLatin1Char('/') + parts.join(QLatin1Char('/'));
}

} // namespace FTPPath
