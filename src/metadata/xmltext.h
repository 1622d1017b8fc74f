#pragma once
// Scanning of XML text that a parser has already found well formed, for editing it in place:
// the extent of a tag or an element, a start tag taken apart attribute by attribute, and the
// escaping of attribute values. Pure functions; safe on any thread.
#include <QByteArray>
#include <QString>
#include <vector>

namespace XmlText {

bool isSpace(char c);

// Text as written in a file, with the five predefined entities and character references
// resolved; anything else is kept as it stands.
QString unescape(const char *raw, qsizetype size);
inline QString unescape(const QByteArray &raw) { return unescape(raw.constData(), raw.size()); }

// A value for a double-quoted attribute; characters XML cannot hold are dropped.
QByteArray escapeAttribute(const QString &value);

// The index just past the '>' of the tag opening at `lt`, quotes respected; -1 when unclosed.
qsizetype tagEnd(const QByteArray &s, qsizetype lt, bool *selfClosing);

// The index just past the element whose start tag opens at `lt`; -1 when it cannot be found.
qsizetype elementEnd(const QByteArray &s, qsizetype lt);

} // namespace XmlText

struct XmlAttribute {
    QByteArray ws;      // the white space before it, kept for the attributes written after it
    QByteArray text;    // name="value" as written
    QByteArray qname;
    QByteArray raw;     // the value between the quotes, escapes as written
};

// A start tag taken apart: "<name", the attributes, and the white space and "/>" or ">" closing it.
struct XmlStartTag {
    qsizetype begin = 0, end = 0;
    QByteArray head, tail;
    std::vector<XmlAttribute> attrs;
    bool changed = false;

    // Takes apart the start tag opening at `lt`; false when it is not one.
    bool parse(const QByteArray &s, qsizetype lt);
    // The tag as it is now: unchanged attributes exactly as written.
    QByteArray render() const;
};
