#pragma once
// An XMP packet edited in place, so that a sidecar written by another program keeps every byte
// that is not one of the properties set here: its quoting, line breaks, indentation, comments,
// processing instructions, encoding and byte-order mark. pugixml checks the file and gives its
// structure; the edits are spliced into the original text (the start tags of the top-level
// rdf:Description elements are rebuilt attribute by attribute, removed child elements are cut
// out with the line they stand on). Properties live in the descriptions that are siblings of
// the first rdf:Description; they are read from any of them and written to the first.
//
// A file with a DOCTYPE (entities are never expanded), nested deeper than kMaxDepth or larger
// than kMaxBytes is refused like a file that is not XML. Not thread-safe; one owner at a time.
#include <QByteArray>
#include <QList>
#include <QPair>
#include <QStringList>
#include <QString>
#include <memory>
#include <optional>

class XmpDocument
{
public:
    static constexpr qsizetype kMaxBytes = 8 * 1024 * 1024;
    static constexpr int kMaxDepth = 256;

    enum class Problem { none, unreadable, noDescription };

    XmpDocument(XmpDocument &&) noexcept;
    XmpDocument &operator=(XmpDocument &&) noexcept;
    ~XmpDocument();

    // Absent, with the reason in `problem`, for text that is not a usable XMP packet.
    static std::optional<XmpDocument> parse(const QByteArray &bytes, Problem *problem = nullptr);
    // The packet of a new sidecar: x:xmpmeta, rdf:RDF and one empty rdf:Description that
    // declares the XMP basic and Photo Mechanic namespaces, indented one space per level.
    static XmpDocument blank();

    // The first value of property `name` in namespace `ns`, as an attribute or as a child
    // element's text, with character references resolved; absent when the packet has none.
    std::optional<QString> value(const char *ns, const char *name) const;
    bool holds(const char *ns, const char *name) const { return value(ns, name).has_value(); }

    // Removes the property in every form from every description; then, unless `value` is
    // empty, adds it as an attribute of the first description under the prefix already bound
    // to `ns`, else under `prefix` (or a numbered variant when that one is taken), declared there.
    void set(const char *ns, const char *prefix, const char *name, const QString &value);

    // Structured properties, written as child elements of the first description after every
    // form of the property was removed (as set() does): an rdf:Seq, rdf:Bag or rdf:Alt (each item
    // with xml:lang="x-default") of `items`, or a struct whose fields share the property's
    // namespace. Nothing is added when `items` (or every field) is empty.
    enum class Container { seq, bag, alt };
    void setArray(const char *ns, const char *prefix, const char *name, Container kind, const QStringList &items);
    void setStruct(const char *ns, const char *prefix, const char *name, const QList<QPair<QByteArray, QString>> &fields);

    // The packet as it is now, in its original encoding.
    QByteArray bytes() const;

    // Nodes, attributes and bytes visited so far: in proportion to the packet's size whatever
    // its content (the fuzz target holds it to that).
    qint64 work() const;

private:
    struct Impl;
    explicit XmpDocument(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> d;
};
