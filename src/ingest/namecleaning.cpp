#include "namecleaning.h"

#include <QTextBoundaryFinder>

namespace {

bool dropped(char32_t u)
{
    return u < 0x20 || u == 0x7F
        || u == 0x200E || u == 0x200F                 // direction marks
        || (u >= 0x202A && u <= 0x202E)               // embeddings and overrides
        || (u >= 0x2066 && u <= 0x2069);              // isolates
}

int utf8Length(QStringView s)
{
    int bytes = 0;
    for (qsizetype i = 0; i < s.size(); ++i) {
        const char16_t c = s[i].unicode();
        if (c < 0x80)
            bytes += 1;
        else if (c < 0x800)
            bytes += 2;
        else if (QChar::isHighSurrogate(c) && i + 1 < s.size() && QChar::isLowSurrogate(s[i + 1].unicode())) {
            bytes += 4;
            ++i;
        } else
            bytes += 3;
    }
    return bytes;
}

QString stripLeadingDots(const QString &s)
{
    qsizetype i = 0;
    while (i < s.size() && s.at(i) == QLatin1Char('.'))
        ++i;
    return s.mid(i);
}

} // namespace

QString NameCleaning::component(const QString &text)
{
    QString out;
    out.reserve(text.size());
    const qsizetype n = text.size();
    for (qsizetype i = 0; i < n; ++i) {
        const QChar c = text.at(i);
        if (c.isHighSurrogate() && i + 1 < n && text.at(i + 1).isLowSurrogate()) {
            // Astral scalars (emoji and the like) are never controls: kept whole.
            out += c;
            out += text.at(++i);
            continue;
        }
        if (c.isSurrogate())
            continue;   // half a character cannot be written into a name
        const char32_t u = c.unicode();
        if (dropped(u))
            continue;
        out += (u == '/' || u == ':') ? QChar(u'-') : c;
    }
    return out.trimmed();
}

QString NameCleaning::name(const QString &text)
{
    // Dots and spaces are stripped until neither leads, so "  .x" cannot become the hidden ".x".
    QString s = component(text);
    for (;;) {
        const QString next = stripLeadingDots(s).trimmed();
        if (next == s)
            break;
        s = next;
    }
    return fit(s, kMaxNameBytes);
}

int NameCleaning::utf8Bytes(const QString &text)
{
    return utf8Length(text);
}

QString NameCleaning::fit(const QString &text, int maxBytes)
{
    if (utf8Length(text) <= maxBytes)
        return text;
    // Keep the longest run of whole characters (grapheme clusters) that fits.
    QString s = text;
    QTextBoundaryFinder graphemes(QTextBoundaryFinder::Grapheme, s);
    qsizetype keep = 0;
    int bytes = 0;
    qsizetype from = 0;
    for (qsizetype to = graphemes.toNextBoundary(); to != -1; to = graphemes.toNextBoundary()) {
        const int len = utf8Length(QStringView(s).mid(from, to - from));
        if (bytes + len > maxBytes)
            break;
        bytes += len;
        keep = to;
        from = to;
    }
    s.truncate(keep);
    return s;
}
