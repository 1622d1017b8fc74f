#!/usr/bin/env python3
# Prints the canonical form (C14N 2.0, white space of text trimmed) of an XMP file with the given
# properties ("namespace-uri local-name") taken out of its top-level rdf:Description elements:
# two files that print the same differ only in those properties.
import sys
import xml.dom.minidom as minidom
import xml.etree.ElementTree as ET

RDF = 'http://www.w3.org/1999/02/22-rdf-syntax-ns#'
props = {tuple(p.split(' ', 1)) for p in sys.argv[2:]}
uris = {ns for ns, _ in props}
with open(sys.argv[1], 'rb') as f:
    doc = minidom.parseString(f.read())
for d in doc.getElementsByTagNameNS(RDF, 'Description'):
    parent = d.parentNode
    if parent.namespaceURI != RDF or parent.localName != 'RDF':
        continue
    for a in list(d.attributes.values()):
        if (a.namespaceURI, a.localName) in props:
            d.removeAttributeNode(a)
    for c in list(d.childNodes):
        if c.nodeType == c.ELEMENT_NODE and (c.namespaceURI, c.localName) in props:
            d.removeChild(c)
    # A declaration the writer may have added, once nothing left uses it.
    used = set()
    stack = [d]
    while stack:
        n = stack.pop()
        if n.nodeType == n.ELEMENT_NODE:
            used.add(n.namespaceURI)
            used.update(a.namespaceURI for a in n.attributes.values() if a.prefix != 'xmlns')
            stack.extend(n.childNodes)
    for a in list(d.attributes.values()):
        if a.prefix == 'xmlns' and a.value in uris and a.value not in used:
            d.removeAttributeNode(a)
sys.stdout.write(ET.canonicalize(doc.documentElement.toxml(), strip_text=True))
