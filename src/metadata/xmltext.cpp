#include "xmltext.h"

#include <algorithm>
#include <cstring>

namespace XmlText {

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

QString unescape(const char *raw, qsizetype size)
{
    QByteArray out;
    out.reserve(size);
    for (qsizetype i = 0; i < size; ++i) {
        if (raw[i] != '&') {
            out.append(raw[i]);
            continue;
        }
        const char *semi = static_cast<const char *>(std::memchr(raw + i, ';', size_t(std::min<qsizetype>(size - i, 12))));
        if (!semi) {
            out.append('&');
            continue;
        }
        const QByteArray name(raw + i + 1, semi - (raw + i + 1));
        const qsizetype next = semi - raw;
        if (name == "amp") out.append('&');
        else if (name == "lt") out.append('<');
        else if (name == "gt") out.append('>');
        else if (name == "quot") out.append('"');
        else if (name == "apos") out.append('\'');
        else if (name.startsWith('#')) {
            bool ok = false;
            const uint code = name.startsWith("#x") ? name.mid(2).toUInt(&ok, 16) : name.mid(1).toUInt(&ok, 10);
            if (!ok || code == 0 || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
                out.append('&');
                continue;
            }
            const char32_t c = char32_t(code);
            out.append(QString::fromUcs4(&c, 1).toUtf8());
        } else {
            out.append('&');
            continue;
        }
        i = next;
    }
    return QString::fromUtf8(out);
}

QByteArray escapeAttribute(const QString &value)
{
    QByteArray out;
    for (const char c : value.toUtf8()) {
        switch (c) {
        case '&': out.append("&amp;"); break;
        case '<': out.append("&lt;"); break;
        case '>': out.append("&gt;"); break;
        case '"': out.append("&quot;"); break;
        case '\t': out.append("&#9;"); break;
        case '\n': out.append("&#10;"); break;
        case '\r': out.append("&#13;"); break;
        default:
            if (static_cast<unsigned char>(c) >= 0x20)   // other controls are not XML characters
                out.append(c);
        }
    }
    return out;
}

qsizetype tagEnd(const QByteArray &s, qsizetype lt, bool *selfClosing)
{
    char quote = 0;
    for (qsizetype i = lt + 1; i < s.size(); ++i) {
        const char c = s[i];
        if (quote) {
            if (c == quote)
                quote = 0;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '>') {
            *selfClosing = s[i - 1] == '/';
            return i + 1;
        }
    }
    return -1;
}

qsizetype elementEnd(const QByteArray &s, qsizetype lt)
{
    bool selfClosing = false;
    qsizetype pos = tagEnd(s, lt, &selfClosing);
    if (pos < 0 || selfClosing)
        return pos;
    int depth = 1;
    const auto skipTo = [&s](qsizetype from, const char *end) {
        const qsizetype at = s.indexOf(end, from);
        return at < 0 ? -1 : at + qsizetype(std::strlen(end));
    };
    while (pos >= 0) {
        const qsizetype open = s.indexOf('<', pos);
        if (open < 0)
            return -1;
        const char *p = s.constData() + open;
        const qsizetype left = s.size() - open;
        if (left >= 4 && std::memcmp(p, "<!--", 4) == 0) {
            pos = skipTo(open + 4, "-->");
        } else if (left >= 9 && std::memcmp(p, "<![CDATA[", 9) == 0) {
            pos = skipTo(open + 9, "]]>");
        } else if (left >= 2 && p[1] == '?') {
            pos = skipTo(open + 2, "?>");
        } else if (left >= 2 && (p[1] == '/' || p[1] == '!')) {
            pos = skipTo(open + 2, ">");
            if (pos >= 0 && p[1] == '/' && --depth == 0)
                return pos;
        } else {
            pos = tagEnd(s, open, &selfClosing);
            if (pos >= 0 && !selfClosing)
                ++depth;
        }
    }
    return -1;
}

} // namespace XmlText

using XmlText::isSpace;

bool XmlStartTag::parse(const QByteArray &s, qsizetype lt)
{
    const qsizetype n = s.size();
    if (lt < 0 || lt >= n || s[lt] != '<')
        return false;
    begin = lt;
    qsizetype i = lt + 1;
    while (i < n && !isSpace(s[i]) && s[i] != '/' && s[i] != '>')
        ++i;
    head = s.mid(lt, i - lt);
    for (;;) {
        const qsizetype wsStart = i;
        while (i < n && isSpace(s[i]))
            ++i;
        if (i >= n)
            return false;
        if (s[i] == '>' || (s[i] == '/' && i + 1 < n && s[i + 1] == '>')) {
            end = i + (s[i] == '>' ? 1 : 2);
            tail = s.mid(wsStart, end - wsStart);
            return true;
        }
        if (i == wsStart)
            return false;
        const qsizetype nameStart = i;
        while (i < n && !isSpace(s[i]) && s[i] != '=' && s[i] != '>' && s[i] != '/')
            ++i;
        const qsizetype nameEnd = i;
        while (i < n && isSpace(s[i]))
            ++i;
        if (nameEnd == nameStart || i >= n || s[i] != '=')
            return false;
        ++i;
        while (i < n && isSpace(s[i]))
            ++i;
        if (i >= n || (s[i] != '"' && s[i] != '\''))
            return false;
        const qsizetype valueStart = i + 1;
        const qsizetype close = s.indexOf(s[i], valueStart);
        if (close < 0)
            return false;
        i = close + 1;
        attrs.push_back({s.mid(wsStart, nameStart - wsStart), s.mid(nameStart, i - nameStart),
                         s.mid(nameStart, nameEnd - nameStart), s.mid(valueStart, close - valueStart)});
    }
}

QByteArray XmlStartTag::render() const
{
    QByteArray out = head;
    for (const XmlAttribute &a : attrs)
        out += a.ws + a.text;
    return out + tail;
}
