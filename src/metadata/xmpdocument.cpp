#include "xmpdocument.h"

#include "xmltext.h"

#include <QHash>
#include <QSet>
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

using Bindings = QHash<QByteArray, QByteArray>;   // prefix ("" for the default) → namespace URI

// The namespace declaration an attribute makes, if it is one.
std::optional<QByteArray> declaredPrefix(const QByteArray &qname)
{
    if (qname == "xmlns")
        return QByteArray();
    if (qname.startsWith("xmlns:"))
        return qname.mid(6);
    return std::nullopt;
}

// Whether a declared prefix may start an attribute's name (another tool may have declared one
// that may not).
bool usablePrefix(const QByteArray &prefix)
{
    if (prefix.isEmpty())
        return false;
    for (qsizetype i = 0; i < prefix.size(); ++i) {
        const uchar c = uchar(prefix[i]);
        const bool start = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c >= 0x80;
        if (!start && (i == 0 || !((c >= '0' && c <= '9') || c == '-' || c == '.')))
            return false;
    }
    return true;
}

struct Child {
    QByteArray uri, local;          // the element's expanded name
    pugi::xml_node node;
    qsizetype begin = 0, end = 0;   // the element with the line it stands on
    bool removed = false;
};

struct Description {
    pugi::xml_node node;
    XmlStartTag tag;
    Bindings own;                   // declared on the description itself
    std::vector<Child> children;
    struct Added {
        QByteArray uri, local, text;
    };
    std::vector<Added> added;       // child elements written here, each on its own lines
};

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
    Bindings outer;    // declared around the descriptions
    std::vector<Description> descriptions;
    std::optional<QSet<QByteArray>> usedInFirst;   // prefixes named inside the first description
    mutable qint64 work = 0;   // nodes, attributes and bytes visited

    std::optional<QByteArray> resolve(const Description &d, const QByteArray &prefix) const
    {
        if (const auto it = d.own.constFind(prefix); it != d.own.constEnd())
            return *it;
        if (const auto it = outer.constFind(prefix); it != outer.constEnd())
            return *it;
        return std::nullopt;
    }

    bool attributeIs(const Description &d, const XmlAttribute &a, const char *ns, const QByteArray &local) const
    {
        ++work;
        const QByteArray prefix = prefixOf(a.qname);
        if (prefix.isEmpty() || prefix == "xmlns" || localOf(a.qname) != local)
            return false;
        return resolve(d, prefix) == QByteArray(ns);
    }

    // The prefixes that name something inside the first description (found once): declaring
    // one of them there would change what that name means.
    const QSet<QByteArray> &usedWithinFirst()
    {
        if (usedInFirst)
            return *usedInFirst;
        usedInFirst.emplace();
        const pugi::xml_node top = descriptions.front().node;
        pugi::xml_node node = top;
        while (node) {
            ++work;
            if (node.type() == pugi::node_element) {
                usedInFirst->insert(prefixOf(QByteArray(node.name())));
                for (pugi::xml_attribute a = node.first_attribute(); a; a = a.next_attribute(), ++work)
                    usedInFirst->insert(prefixOf(QByteArray(a.name())));
            }
            if (node.first_child()) {
                node = node.first_child();
                continue;
            }
            while (node != top && !node.next_sibling())
                node = node.parent();
            if (node == top)
                break;
            node = node.next_sibling();
        }
        return *usedInFirst;
    }

    QByteArray prefixFor(Description &d, const char *ns, const char *standard)
    {
        const QByteArray uri(ns);
        for (auto it = d.own.cbegin(); it != d.own.cend(); ++it, ++work)
            if (*it == uri && usablePrefix(it.key()))
                return it.key();
        for (auto it = outer.cbegin(); it != outer.cend(); ++it, ++work)
            if (*it == uri && usablePrefix(it.key()) && resolve(d, it.key()) == uri)
                return it.key();
        QByteArray prefix(standard);
        for (int n = 2; resolve(d, prefix) || usedWithinFirst().contains(prefix); ++n, ++work)
            prefix = QByteArray(standard) + QByteArray::number(n);
        append(d, "xmlns:" + prefix, uri);
        d.own.insert(prefix, uri);
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

    // The line break the packet uses, and the indentation of the first description's children
    // and of one more level.
    QByteArray newline() const { return text.contains("\r\n") ? QByteArray("\r\n") : QByteArray("\n"); }
    QByteArray indentBefore(qsizetype lt) const
    {
        qsizetype b = lt;
        while (b > 0 && (text[b - 1] == ' ' || text[b - 1] == '\t'))
            --b;
        return text.mid(b, lt - b);
    }
    std::pair<QByteArray, QByteArray> childIndent(const Description &d) const
    {
        const QByteArray own = indentBefore(d.tag.begin);
        if (!d.children.empty()) {
            const QByteArray child = indentBefore(qsizetype(d.children.front().node.offset_debug()) - 1);
            if (child.startsWith(own) && child.size() > own.size())
                return {child, child.mid(own.size())};
        }
        return {own + ' ', QByteArray(" ")};
    }

    bool decode(const QByteArray &bytes);
    bool load(const QByteArray &bytes, Problem *problem);
    bool takeApart(pugi::xml_node node, Bindings own);
};

// The encoding, from the byte-order mark or the first character; edits are made in UTF-8.
bool XmpDocument::Impl::decode(const QByteArray &bytes)
{
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
        QStringDecoder decoder(*utf16, QStringConverter::Flag::Stateless | QStringConverter::Flag::ConvertInitialBom);
        const QString decoded = decoder(QByteArrayView(bytes).sliced(skip));
        if (decoder.hasError())
            return false;   // a lone surrogate would not survive the way back
        text = decoded.toUtf8();
    } else {
        text = bytes.mid(skip);
    }
    work += bytes.size();
    return !text.contains('\0');
}

bool XmpDocument::Impl::load(const QByteArray &bytes, Problem *problem)
{
    *problem = Problem::unreadable;
    if (bytes.size() > kMaxBytes || !decode(bytes))
        return false;
    if (!doc.load_buffer(text.constData(), size_t(text.size()), kParseFlags, pugi::encoding_utf8))
        return false;

    // One walk over the tree, with the namespaces in scope: no DOCTYPE, bounded depth, and the
    // first rdf:Description with the declarations around it.
    Bindings bound;
    std::vector<std::pair<QByteArray, std::optional<QByteArray>>> undo;   // to leave an element's scope
    std::vector<size_t> scopes;
    std::optional<pugi::xml_node> first;
    pugi::xml_node node = doc.first_child();
    while (node) {
        ++work;
        if (node.type() == pugi::node_doctype || scopes.size() > size_t(kMaxDepth))
            return false;
        if (node.type() == pugi::node_element) {
            scopes.push_back(undo.size());
            Bindings own;
            for (pugi::xml_attribute a = node.first_attribute(); a; a = a.next_attribute(), ++work)
                if (const auto prefix = declaredPrefix(QByteArray(a.name())))
                    own.insert(*prefix, unescape(QByteArray(a.value())).toUtf8());
            const QByteArray qname(node.name());
            if (!first && localOf(qname) == "Description" && own.value(prefixOf(qname), bound.value(prefixOf(qname))) == kRdf) {
                first = node;
                outer = bound;
            }
            for (auto it = own.cbegin(); it != own.cend(); ++it) {
                const auto was = bound.constFind(it.key());
                undo.emplace_back(it.key(), was == bound.constEnd() ? std::nullopt : std::optional<QByteArray>(*was));
                bound.insert(it.key(), *it);
            }
        }
        if (node.type() == pugi::node_element && node.first_child()) {
            node = node.first_child();
            continue;
        }
        // Leave the elements that end here.
        for (;;) {
            if (node.type() == pugi::node_element) {
                for (size_t mark = scopes.back(); undo.size() > mark; undo.pop_back()) {
                    if (undo.back().second)
                        bound.insert(undo.back().first, *undo.back().second);
                    else
                        bound.remove(undo.back().first);
                }
                scopes.pop_back();
            }
            if (node.next_sibling() || !node.parent() || node.parent().type() != pugi::node_element)
                break;
            node = node.parent();
        }
        node = node.next_sibling();
    }
    if (!first) {
        *problem = Problem::noDescription;
        return false;
    }

    for (pugi::xml_node n = *first; n; n = n.next_sibling()) {
        ++work;
        if (n.type() != pugi::node_element)
            continue;
        Bindings own;
        for (pugi::xml_attribute a = n.first_attribute(); a; a = a.next_attribute(), ++work)
            if (const auto prefix = declaredPrefix(QByteArray(a.name())))
                own.insert(*prefix, unescape(QByteArray(a.value())).toUtf8());
        const QByteArray qname(n.name());
        if (localOf(qname) == "Description" && own.value(prefixOf(qname), outer.value(prefixOf(qname))) == kRdf)
            if (!takeApart(n, own))
                return false;
    }
    *problem = Problem::none;
    return true;
}

// A top-level description: its start tag attribute by attribute, its children's names and extents.
bool XmpDocument::Impl::takeApart(pugi::xml_node n, Bindings own)
{
    Description d;
    d.node = n;
    d.own = std::move(own);
    if (!d.tag.parse(text, qsizetype(n.offset_debug()) - 1))
        return false;
    work += d.tag.end - d.tag.begin;
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
        ++work;
        if (c.type() != pugi::node_element)
            continue;
        Child child;
        child.node = c;
        const QByteArray qname(c.name());
        child.local = localOf(qname);
        const QByteArray prefix = prefixOf(qname);
        const QByteArray declaration = prefix.isEmpty() ? QByteArray("xmlns") : "xmlns:" + prefix;
        if (const pugi::xml_attribute decl = c.attribute(declaration.constData()))
            child.uri = unescape(QByteArray(decl.value())).toUtf8();
        else
            child.uri = resolve(d, prefix).value_or(QByteArray());
        const qsizetype lt = qsizetype(c.offset_debug()) - 1;
        if (lt < d.tag.end || text[lt] != '<')
            return false;
        child.end = XmlText::elementEnd(text, lt);
        if (child.end < 0)
            return false;
        work += child.end - lt;
        // The line it stands on goes with it: its indentation and the line break before it.
        qsizetype begin = lt;
        while (begin > d.tag.end && (text[begin - 1] == ' ' || text[begin - 1] == '\t'))
            --begin;
        if (begin > d.tag.end && text[begin - 1] == '\n')
            --begin;
        if (begin > d.tag.end && text[begin - 1] == '\r')
            --begin;
        child.begin = begin;
        d.children.push_back(std::move(child));
    }
    descriptions.push_back(std::move(d));
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

qint64 XmpDocument::work() const
{
    return d->work;
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
        for (const Child &c : desc.children) {
            ++d->work;
            if (!c.removed && c.local == local && c.uri == ns)
                return textOf(c.node);
        }
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
        for (Child &c : desc.children) {
            ++d->work;
            if (c.local == local && c.uri == ns)
                c.removed = true;
        }
        std::erase_if(desc.added, [&](const Description::Added &a) { return a.local == local && a.uri == ns; });
    }
    if (value.isEmpty())
        return;
    Description &first = d->descriptions.front();
    const QByteArray p = d->prefixFor(first, ns, prefix);
    Impl::append(first, p + ':' + local, XmlText::escapeAttribute(value));
}

void XmpDocument::setArray(const char *ns, const char *prefix, const char *name, Container kind, const QStringList &items)
{
    set(ns, prefix, name, QString());
    QStringList kept;
    for (const QString &item : items)
        if (!item.isEmpty())
            kept.append(item);
    if (kept.isEmpty())
        return;
    Description &first = d->descriptions.front();
    const QByteArray p = d->prefixFor(first, ns, prefix);
    const QByteArray rdf = d->prefixFor(first, kRdf, "rdf");
    const auto [indent, step] = d->childIndent(first);
    const QByteArray nl = d->newline();
    const QByteArray qname = p + ':' + name;
    const QByteArray container = rdf + (kind == Container::seq ? ":Seq" : kind == Container::bag ? ":Bag" : ":Alt");
    const QByteArray li = rdf + (kind == Container::alt ? ":li xml:lang=\"x-default\"" : ":li");
    QByteArray out = nl + indent + '<' + qname + '>' + nl + indent + step + '<' + container + '>';
    for (const QString &item : kept)
        out += nl + indent + step + step + '<' + li + '>' + XmlText::escapeAttribute(item) + "</" + rdf + ":li>";
    out += nl + indent + step + "</" + container + '>' + nl + indent + "</" + qname + '>';
    d->work += out.size();
    first.added.push_back({QByteArray(ns), QByteArray(name), out});
}

void XmpDocument::setStruct(const char *ns, const char *prefix, const char *name, const QList<QPair<QByteArray, QString>> &fields)
{
    set(ns, prefix, name, QString());
    bool any = false;
    for (const auto &f : fields)
        any = any || !f.second.isEmpty();
    if (!any)
        return;
    Description &first = d->descriptions.front();
    const QByteArray p = d->prefixFor(first, ns, prefix);
    const QByteArray rdf = d->prefixFor(first, kRdf, "rdf");
    const auto [indent, step] = d->childIndent(first);
    const QByteArray nl = d->newline();
    const QByteArray qname = p + ':' + name;
    QByteArray out = nl + indent + '<' + qname + ' ' + rdf + ":parseType=\"Resource\">";
    for (const auto &f : fields)
        if (!f.second.isEmpty())
            out += nl + indent + step + '<' + p + ':' + f.first + '>' + XmlText::escapeAttribute(f.second) + "</" + p + ':' + f.first + '>';
    out += nl + indent + "</" + qname + '>';
    d->work += out.size();
    first.added.push_back({QByteArray(ns), QByteArray(name), out});
}

QByteArray XmpDocument::bytes() const
{
    struct Splice {
        qsizetype begin, end;
        QByteArray with;
    };
    std::vector<Splice> splices;
    for (const Description &desc : d->descriptions) {
        QByteArray added;
        for (const auto &a : desc.added)
            added += a.text;
        const bool opens = !added.isEmpty() && desc.tag.tail.endsWith("/>");
        if (opens) {
            // An empty description opens to take the new children.
            XmlStartTag open = desc.tag;
            open.tail.chop(2);
            while (!open.tail.isEmpty() && XmlText::isSpace(open.tail.back()))
                open.tail.chop(1);
            open.tail += '>';
            splices.push_back({desc.tag.begin, desc.tag.end,
                               open.render() + added + d->newline() + d->indentBefore(desc.tag.begin) + "</"
                                   + desc.tag.head.mid(1) + '>'});
            continue;   // no children to cut
        }
        if (desc.tag.changed)
            splices.push_back({desc.tag.begin, desc.tag.end, desc.tag.render()});
        for (const Child &c : desc.children)
            if (c.removed)
                splices.push_back({c.begin, c.end, {}});
        if (!added.isEmpty()) {
            // Before the closing tag, after the last thing that is not white space.
            const qsizetype end = XmlText::elementEnd(d->text, desc.tag.begin);
            qsizetype at = d->text.lastIndexOf("</", end - 1);
            while (at > desc.tag.end && XmlText::isSpace(d->text[at - 1]))
                --at;
            splices.push_back({at, at, added});
        }
    }
    std::stable_sort(splices.begin(), splices.end(), [](const Splice &a, const Splice &b) { return a.begin < b.begin; });
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
