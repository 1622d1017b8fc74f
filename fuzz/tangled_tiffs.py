#!/usr/bin/env python3
"""Writes small hostile TIFFs (a few KB each) into the fuzz corpora of the TIFF walkers: loops,
sub-IFD and EXIF pointers fanning out, deep chains, counts far past the file, overlapping IFDs.
Run from the repository's root: python3 fuzz/tangled_tiffs.py"""
import os
import struct

CORPORA = ["fuzz/corpus/tiffreader", "fuzz/corpus/imagecompleteness", "fuzz/corpus/rawpreview"]


class Tiff:
    def __init__(self, big=False, magic=42):
        self.e = ">" if big else "<"
        self.b = bytearray((b"MM" if big else b"II") + struct.pack(self.e + "HI", magic, 8))

    def ifd(self, entries, next_=0, at=None):
        """entries: (tag, type, count, value); returns the IFD's offset."""
        if at is None:
            if len(self.b) % 2:
                self.b += b"\0"
            at = len(self.b)
        raw = struct.pack(self.e + "H", len(entries))
        for tag, typ, count, value in entries:
            raw += struct.pack(self.e + "HHII", tag, typ, count, value)
        raw += struct.pack(self.e + "I", next_)
        self.b[at:at + len(raw)] = raw
        return at

    def put32(self, at, v):
        self.b[at:at + 4] = struct.pack(self.e + "I", v)


def fan_out(big):
    """40 IFDs, each pointing at the next ten as sub-IFDs, at the next as EXIF, and back at IFD0."""
    t = Tiff(big)
    n, fan = 40, 10
    size = 2 + 12 * 4 + 4 + 4 * fan
    at = [8 + i * size for i in range(n)]
    for i in range(n):
        arr = at[i] + 2 + 12 * 4 + 4
        t.ifd([(330, 4, fan, arr), (34665, 4, 1, at[(i + 1) % n]), (273, 4, 1, 0), (279, 4, 1, 0)],
              next_=at[0] if i % 3 == 0 else at[(i + 2) % n], at=at[i])
        for k in range(fan):
            t.put32(arr + 4 * k, at[(i + 1 + k) % n])
    return bytes(t.b)


def huge_counts():
    """Strip, tile and sub-IFD arrays claiming billions of values, and one claiming 1000 inside."""
    t = Tiff()
    table = 8 + 2 + 12 * 7 + 4
    t.ifd([(273, 4, 0xFFFFFFFF, 8), (279, 3, 0x7FFFFFFF, 8), (324, 4, 1000, table), (325, 4, 1000, table),
           (330, 13, 0x40000000, 8), (34665, 4, 0xFFFF, 8), (513, 4, 2, 8)])
    t.b += b"\0" * 4000
    return bytes(t.b)


def overlapping():
    """IFDs starting at every even offset of the same bytes, each a valid IFD of the others' bytes."""
    t = Tiff()
    body = bytearray()
    for i in range(300):
        body += struct.pack("<HHI", 1, 330 if i % 2 else 34665, 4 if i % 3 else 1) + struct.pack("<H", 8 + 2 * (i + 1))
    t.b += body
    return bytes(t.b)


def deep_chain(big):
    """A chain of 200 IFDs, each also its own sub-IFD and EXIF IFD, the last pointing back."""
    t = Tiff(big)
    n = 200
    size = 2 + 12 * 3 + 4
    at = [8 + i * size for i in range(n)]
    for i in range(n):
        t.ifd([(330, 4, 1, at[i]), (34665, 4, 1, at[i]), (274, 3, 1, 6)], next_=at[(i + 1) % n], at=at[i])
    return bytes(t.b)


def many_entries():
    """IFD0 of 1100 entries (more than any camera writes), all sub-IFD pointers back at itself."""
    t = Tiff()
    t.ifd([(330, 4, 1, 8)] * 1100)
    return bytes(t.b)


def in_jpeg():
    """A JPEG whose EXIF block holds the fanning TIFF (the walk into an embedded preview's EXIF)."""
    exif = b"Exif\0\0" + fan_out(False)[:3000]
    seg = b"\xFF\xE1" + struct.pack(">H", len(exif) + 2) + exif
    jpeg = b"\xFF\xD8" + seg + b"\xFF\xC0\x00\x11\x08\x00\xC8\x01\x2C\x03\x01\x22\x00\x02\x11\x01\x03\x11\x01" + b"\xFF\xD9"
    t = Tiff()
    start = 8 + 2 + 12 * 2 + 4
    t.ifd([(513, 4, 1, start), (514, 4, 1, len(jpeg))])
    t.b += jpeg + b"\0" * 64
    return bytes(t.b)


FILES = {
    "tangled-fan-out-ii.tif": fan_out(False),
    "tangled-fan-out-mm.tif": fan_out(True),
    "tangled-huge-counts.tif": huge_counts(),
    "tangled-overlapping.tif": overlapping(),
    "tangled-deep-chain.tif": deep_chain(False),
    "tangled-many-entries.tif": many_entries(),
    "tangled-in-jpeg.nef": in_jpeg(),
}

if __name__ == "__main__":
    for corpus in CORPORA:
        os.makedirs(corpus, exist_ok=True)
        for name, data in FILES.items():
            with open(os.path.join(corpus, name), "wb") as f:
                f.write(data)
    print(", ".join(f"{k} {len(v)} B" for k, v in FILES.items()))
