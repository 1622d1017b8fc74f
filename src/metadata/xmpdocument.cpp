#include "xmpdocument.h"

#include "xmltext.h"

#include <QHash>
#include <QStringDecoder>
#include <QStringEncoder>

#include <algorithm>
#include <cstring>
#include <pugixml.hpp>
#include <vector>

namespace {

using XmlText::unescape;

const char kRdf[] = "http://www.w3.org/1999/02/22-rdf-syntax-ns#";

// Comments, processing instructions, CDATA, the declaration and the DOCTYPE are kept as nodes;
// escapes, line ends and attribute white space are left exactly as written.
constexpr unsigned kParseFlags = pugi::parse_pi | pugi::parse_comments | pugi::parse_cdata | pugi::parse_ws_pcdata
                                 | pugi::parse_declaration | pugi::parse_doctype;

const char kTemplate[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\" x:xmptk=\"Corvane\">\n"
    " <rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n"
    "  <rdf:Description rdf:about=\"\" xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\""
    " xmlns:photomechanic=\"http://ns.camerabits.com/photomechanic/1.0/\"/>\n"
    " </rdf:RDF>\n"
    "</x:xmpmeta>\n";

enum class Encoding { utf8, utf8Bom, utf16le, utf16leBom, utf16be, utf16beBom };

QByteArray prefixOf(const QByteArray &qname)
{
    const qsizetype colon = qname.indexOf(':');
    return colon < 0 ? QByteArray() : qname.left(colon);
}

QByteArray localOf(const QByteArray &qname)
{
    const qsizetype colon = qname.indexOf(':');
    return colon < 0 ? qname : qname.mid(colon + 1);
}

struct Child {
    pugi::xml_node node;
    qsizetype begin = 0, end = 0;   // the element with the line it stands on
    bool removed = false;
};

struct Description {
    pugi::xml_node node;
    XmlStartTag tag;
    std::vector<Child> children;
};

// The namespace a prefix stands for at `node`, from the declarations of it and its ancestors.
std::optional<QByteArray> boundUri(pugi::xml_node node, const QByteArray &prefix)
{
    const QByteArray attr = prefix.isEmpty() ? QByteArray("xmlns") : "xmlns:" + prefix;
    for (; node && node.type() == pugi::node_element; node = node.parent())
        if (const pugi::xml_attribute a = node.attribute(attr.constData()))
            return unescape(QByteArray(a.value())).toUtf8();
    return std::nullopt;
}

bool isElement(pugi::xml_node node, const char *ns, const QByteArray &local)
{
    const QByteArray qname(node.name());
    return localOf(qname) == local && boundUri(node, prefixOf(qname)) == QByteArray(ns);
}

QString textOf(pugi::xml_node element)
{
    QString text;
    for (pugi::xml_node c = element.first_child(); c; c = c.next_sibling()) {
        if (c.type() == pugi::node_pcdata)
            text += unescape(QByteArray(c.value()));
        else if (c.type() == pugi::node_cdata)
            text += QString::fromUtf8(c.value());
    }
    return text;
}

} // namespace

struct XmpDocument::Impl {
    QByteArray text;   // UTF-8 without a byte-order mark
    Encoding encoding = Encoding::utf8;
    pugi::xml_document doc;
    QHash<QByteArray, QByteArray> outer;   // prefix → URI declared around the descriptions
    std::vector<Description> descriptions;

    std::optional<QByteArray> resolve(const Description &d, const QByteArray &prefix) const
    {
        const QByteArray attr = "xmlns:" + prefix;
        for (const XmlAttribute &a : d.tag.attrs)
            if (a.qname == attr)
                return unescape(a.raw).toUtf8();
        const auto it = outer.constFind(prefix);
        return it == outer.constEnd() ? std::nullopt : std::optional<QByteArray>(*it);
    }

    bool attributeIs(const Description &d, const XmlAttribute &a, const char *ns, const QByteArray &local) const
    {
        const QByteArray prefix = prefixOf(a.qname);
        if (prefix.isEmpty() || prefix == "xmlns" || localOf(a.qname) != local)
            return false;
        return resolve(d, prefix) == QByteArray(ns);
    }

    // True when `prefix` names something inside the description, so declaring it there would
    // change what that name means.
    static bool usedWithin(pugi::xml_node top, const QByteArray &prefix)
    {
        const auto uses = [&prefix](const char *qname) {
            const size_t n = size_t(prefix.size());
            return std::strncmp(qname, prefix.constData(), n) == 0 && qname[n] == ':';
        };
        pugi::xml_node node = top;
        while (node) {
            if (node.type() == pugi::node_element) {
                if (uses(node.name()))
                    return true;
                for (pugi::xml_attribute a = node.first_attribute(); a; a = a.next_attribute())
                    if (uses(a.name()))
                        return true;
            }
            if (node.first_child()) {
                node = node.first_child();
                continue;
            }
            while (node && node != top && !node.next_sibling())
                node = node.parent();
            if (!node || node == top)
                break;
            node = node.next_sibling();
        }
        return false;
    }

    QByteArray prefixFor(Description &d, const char *ns, const char *standard)
    {
        const QByteArray uri(ns);
        for (const XmlAttribute &a : d.tag.attrs)
            if (a.qname.startsWith("xmlns:") && unescape(a.raw).toUtf8() == uri)
                return a.qname.mid(6);
        for (auto it = outer.cbegin(); it != outer.cend(); ++it)
            if (*it == uri && !it.key().isEmpty() && resolve(d, it.key()) == uri)
                return it.key();
        QByteArray prefix(standard);
        for (int n = 2; resolve(d, prefix) || usedWithin(d.node, prefix); ++n)
            prefix = QByteArray(standard) + QByteArray::number(n);
        append(d, "xmlns:" + prefix, uri);
        return prefix;
    }

    static void append(Description &d, const QByteArray &qname, const QByteArray &escapedValue)
    {
        QByteArray ws = d.tag.attrs.empty() ? QByteArray(" ") : d.tag.attrs.back().ws;
        if (ws.isEmpty())
            ws = " ";
        d.tag.attrs.push_back({ws, qname + "=\"" + escapedValue + '"', qname, escapedValue});
        d.tag.changed = true;
    }

    bool load(const QByteArray &bytes, Problem *problem);
};

bool XmpDocument::Impl::load(const QByteArray &bytes, Problem *problem)
{
    *problem = Problem::unreadable;
    if (bytes.size() > kMaxBytes)
        return false;

    // The encoding, from the byte-order mark or the first character; edits are made in UTF-8.
    const auto startsWith = [&bytes](const char *p, qsizetype n) { return bytes.size() >= n && std::memcmp(bytes.constData(), p, size_t(n)) == 0; };
    std::optional<QStringConverter::Encoding> utf16;
    qsizetype skip = 0;
    if (startsWith("\xEF\xBB\xBF", 3)) {
        encoding = Encoding::utf8Bom;
        skip = 3;
    } else if (startsWith("\xFF\xFE\0\0", 4)) {
        return false;   // UTF-32
    } else if (startsWith("\xFF\xFE", 2)) {
        encoding = Encoding::utf16leBom;
        utf16 = QStringConverter::Utf16LE;
        skip = 2;
    } else if (startsWith("\xFE\xFF", 2)) {
        encoding = Encoding::utf16beBom;
        utf16 = QStringConverter::Utf16BE;
        skip = 2;
    } else if (startsWith("<\0", 2)) {
        encoding = Encoding::utf16le;
        utf16 = QStringConverter::Utf16LE;
    } else if (startsWith("\0<", 2)) {
        encoding = Encoding::utf16be;
        utf16 = QStringConverter::Utf16BE;
    }
    if (utf16) {
        if ((bytes.size() - skip) % 2 != 0)
            return false;
        QStringDecoder decode(*utf16, QStringConverter::Flag::Stateless | QStringConverter::Flag::ConvertInitialBom);
        const QString decoded = decode(QByteArrayView(bytes).sliced(skip));
        if (decode.hasError())
            return false;   // a lone surrogate would not survive the way back
        text = decoded.toUtf8();
    } else {
        text = bytes.mid(skip);
    }
    if (text.contains('\0'))
        return false;

    if (!doc.load_buffer(text.constData(), size_t(text.size()), kParseFlags, pugi::encoding_utf8))
        return false;

    // One walk over the tree: no DOCTYPE, bounded depth, and the first rdf:Description.
    pugi::xml_node first;
    int depth = 0;
    pugi::xml_node node = doc.first_child();
    while (node) {
        if (node.type() == pugi::node_doctype || depth > kMaxDepth)
            return false;
        if (!first && node.type() == pugi::node_element && isElement(node, kRdf, "Description"))
            first = node;
        if (node.first_child()) {
            node = node.first_child();
            ++depth;
            continue;
        }
        while (node && !node.next_sibling()) {
            node = node.parent();
            --depth;
        }
        if (node)
            node = node.next_sibling();
    }
    if (!first) {
        *problem = Problem::noDescription;
        return false;
    }

    for (pugi::xml_node up = first.parent(); up && up.type() == pugi::node_element; up = up.parent())
        for (pugi::xml_attribute a = up.first_attribute(); a; a = a.next_attribute()) {
            const QByteArray name(a.name());
            QByteArray prefix;
            if (name.startsWith("xmlns:"))
                prefix = name.mid(6);
            else if (name != "xmlns")
                continue;
            if (!outer.contains(prefix))
                outer.insert(prefix, unescape(QByteArray(a.value())).toUtf8());
        }

    for (pugi::xml_node n = first; n; n = n.next_sibling()) {
        if (n.type() != pugi::node_element || !isElement(n, kRdf, "Description"))
            continue;
        Description d;
        d.node = n;
        if (!d.tag.parse(text, qsizetype(n.offset_debug()) - 1))
            return false;
        // The tag as taken apart must be the one the parser saw.
        pugi::xml_attribute a = n.first_attribute();
        for (const XmlAttribute &attr : d.tag.attrs) {
            if (!a || attr.qname != a.name())
                return false;
            a = a.next_attribute();
        }
        if (a)
            return false;
        for (pugi::xml_node c = n.first_child(); c; c = c.next_sibling()) {
            if (c.type() != pugi::node_element)
                continue;
            Child child;
            child.node = c;
            const qsizetype lt = qsizetype(c.offset_debug()) - 1;
            if (lt < d.tag.end || text[lt] != '<')
                return false;
            child.end = XmlText::elementEnd(text, lt);
            if (child.end < 0)
                return false;
            // The line it stands on goes with it: its indentation and the line break before it.
            qsizetype begin = lt;
            while (begin > d.tag.end && (text[begin - 1] == ' ' || text[begin - 1] == '\t'))
                --begin;
            if (begin > d.tag.end && text[begin - 1] == '\n')
                --begin;
            if (begin > d.tag.end && text[begin - 1] == '\r')
                --begin;
            child.begin = begin;
            d.children.push_back(child);
        }
        descriptions.push_back(std::move(d));
    }
    *problem = Problem::none;
    return true;
}

XmpDocument::XmpDocument(std::unique_ptr<Impl> impl) : d(std::move(impl)) {}
XmpDocument::XmpDocument(XmpDocument &&) noexcept = default;
XmpDocument &XmpDocument::operator=(XmpDocument &&) noexcept = default;
XmpDocument::~XmpDocument() = default;

std::optional<XmpDocument> XmpDocument::parse(const QByteArray &bytes, Problem *problem)
{
    Problem p = Problem::none;
    auto impl = std::make_unique<Impl>();
    const bool ok = impl->load(bytes, &p);
    if (problem)
        *problem = p;
    if (!ok)
        return std::nullopt;
    return XmpDocument(std::move(impl));
}

XmpDocument XmpDocument::blank()
{
    return std::move(*parse(QByteArray(kTemplate)));
}

std::optional<QString> XmpDocument::value(const char *ns, const char *name) const
{
    const QByteArray local(name);
    for (const Description &desc : d->descriptions) {
        for (const XmlAttribute &a : desc.tag.attrs)
            if (d->attributeIs(desc, a, ns, local))
                return unescape(a.raw);
        for (const Child &c : desc.children)
            if (!c.removed && isElement(c.node, ns, local))
                return textOf(c.node);
    }
    return std::nullopt;
}

void XmpDocument::set(const char *ns, const char *prefix, const char *name, const QString &value)
{
    const QByteArray local(name);
    for (Description &desc : d->descriptions) {
        auto &attrs = desc.tag.attrs;
        const auto kept = std::remove_if(attrs.begin(), attrs.end(), [&](const XmlAttribute &a) { return d->attributeIs(desc, a, ns, local); });
        if (kept != attrs.end()) {
            attrs.erase(kept, attrs.end());
            desc.tag.changed = true;
        }
        for (Child &c : desc.children)
            if (!c.removed && isElement(c.node, ns, local))
                c.removed = true;
    }
    if (value.isEmpty())
        return;
    Description &first = d->descriptions.front();
    const QByteArray p = d->prefixFor(first, ns, prefix);
    Impl::append(first, p + ':' + local, XmlText::escapeAttribute(value));
}

QByteArray XmpDocument::bytes() const
{
    struct Splice {
        qsizetype begin, end;
        QByteArray with;
    };
    std::vector<Splice> splices;
    for (const Description &desc : d->descriptions) {
        if (desc.tag.changed)
            splices.push_back({desc.tag.begin, desc.tag.end, desc.tag.render()});
        for (const Child &c : desc.children)
            if (c.removed)
                splices.push_back({c.begin, c.end, {}});
    }
    std::sort(splices.begin(), splices.end(), [](const Splice &a, const Splice &b) { return a.begin < b.begin; });
    QByteArray out;
    out.reserve(d->text.size() + 512);
    qsizetype pos = 0;
    for (const Splice &s : splices) {
        out.append(d->text.constData() + pos, s.begin - pos);
        out.append(s.with);
        pos = s.end;
    }
    out.append(d->text.constData() + pos, d->text.size() - pos);

    switch (d->encoding) {
    case Encoding::utf8: return out;
    case Encoding::utf8Bom: return "\xEF\xBB\xBF" + out;
    case Encoding::utf16le:
    case Encoding::utf16leBom:
    case Encoding::utf16be:
    case Encoding::utf16beBom: {
        const bool le = d->encoding == Encoding::utf16le || d->encoding == Encoding::utf16leBom;
        const bool bom = d->encoding == Encoding::utf16leBom || d->encoding == Encoding::utf16beBom;
        QStringEncoder encode(le ? QStringConverter::Utf16LE : QStringConverter::Utf16BE,
                              bom ? QStringConverter::Flag::WriteBom : QStringConverter::Flag::Default);
        return encode(QString::fromUtf8(out));
    }
    }
    return out;
}
