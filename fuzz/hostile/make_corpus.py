#!/usr/bin/env python3
"""Writes a corpus of pictures with hostile metadata, made from the files in fuzz/seeds.

    make_corpus.py OUTDIR [--count N] [--seed S]

Each file is a JPEG, PNG or TIFF seed (8 or 16 bits, grey or colour) stripped of its own metadata,
then given one to three of: EXIF (turns, entries sharing one large value, loops, huge counts,
wrong types, maker notes, garbage), XMP (tens of thousands of properties or attributes, deep
nesting, entity declarations, megabytes of array items, garbage), IPTC (huge or many records,
damaged image resources) and ICC profiles (wrong sizes, every colour model, megabytes, deflate
bombs, damaged pieces). Only metadata changes: the picture itself stays the seed's, turned by
the EXIF orientation where the program reads one. OUTDIR/index.csv lists name, seed, the turn
expected (1 to 8) and the mutations. The same seed gives the same files.
"""

import argparse
import csv
import os
import random
import struct
import zlib

SEEDS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "seeds")
JPEGS = ["baseline.jpg", "grey.jpg", "progressive.jpg", "rotated.jpg"]
PNGS = ["rgb.png", "rgba.png", "rgba64.png", "grey16.png", "palette.png"]
TIFFS = ["plain.tif", "lzw.tif", "grey.tif", "rgb48.tif"]
TYPE_SIZE = {1: 1, 2: 1, 3: 2, 4: 4, 5: 8, 6: 1, 7: 1, 8: 2, 9: 4, 10: 8, 11: 4, 12: 8}


# --- containers ------------------------------------------------------------------------------

def png_chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def png_chunks(data):
    pos, out = 8, []
    while pos + 8 <= len(data):
        n, kind = struct.unpack(">I4s", data[pos:pos + 8])
        out.append((kind, data[pos + 8:pos + 8 + n]))
        pos += 12 + n
    return out


def strip_png(data):
    drop = {b"tEXt", b"zTXt", b"iTXt", b"eXIf", b"iCCP"}
    return data[:8] + b"".join(png_chunk(k, d) for k, d in png_chunks(data) if k not in drop)


def into_png(data, chunks):
    return data[:33] + b"".join(chunks) + data[33:]


def jpeg_segments(data):
    """(marker, payload) up to the first scan, then the rest of the file as it is."""
    pos, out = 2, []
    while pos + 4 <= len(data) and data[pos] == 0xFF and data[pos + 1] != 0xDA:
        n = struct.unpack(">H", data[pos + 2:pos + 4])[0]
        out.append((data[pos + 1], data[pos + 4:pos + 2 + n]))
        pos += 2 + n
    return out, data[pos:]


def jpeg_segment(marker, payload):
    return bytes([0xFF, marker]) + struct.pack(">H", len(payload) + 2) + payload


def strip_jpeg(data):
    segments, rest = jpeg_segments(data)
    kept = [(m, p) for m, p in segments if m not in (0xE1, 0xE2, 0xED, 0xFE)]
    return b"\xff\xd8" + b"".join(jpeg_segment(m, p) for m, p in kept) + rest


def into_jpeg(data, segments):
    return data[:2] + b"".join(jpeg_segment(m, p[:65533]) for m, p in segments) + data[2:]


def tiff_entries(data, at):
    e = "<" if data[:2] == b"II" else ">"
    n = struct.unpack(e + "H", data[at:at + 2])[0]
    return [data[at + 2 + 12 * k:at + 14 + 12 * k] for k in range(n)], e


def into_tiff(data, tags, shared=b""):
    """The TIFF with a new IFD0 at its end: its entries, then tags (tag, type, count, value);
    those whose value is None point at shared, put before them."""
    e = "<" if data[:2] == b"II" else ">"
    old, _ = tiff_entries(data, struct.unpack(e + "I", data[4:8])[0])
    old = [x for x in old if struct.unpack(e + "H", x[:2])[0] not in {t[0] for t in tags}]
    out = bytearray(data + b"\0" * (len(data) & 1))
    shared_at = len(out)
    out += shared + b"\0" * (len(shared) & 1)
    new = []
    for tag, kind, count, value in tags:
        if value is None:
            new.append(struct.pack(e + "HHII", tag, kind, count, shared_at))
        elif len(value) <= 4:
            new.append(struct.pack(e + "HHI", tag, kind, count) + value.ljust(4, b"\0"))
        else:
            new.append(struct.pack(e + "HHII", tag, kind, count, len(out)))
            out += value + b"\0" * (len(value) & 1)
    entries = sorted(old + new, key=lambda x: struct.unpack(e + "H", x[:2])[0])
    ifd = len(out)
    out += struct.pack(e + "H", len(entries)) + b"".join(entries) + b"\0\0\0\0"
    out[4:8] = struct.pack(e + "I", ifd)
    return bytes(out)


def tiff48():
    """A 16-bit RGB TIFF of 12 x 8 pixels, uncompressed: the 16-bit TIFF seed."""
    w, h = 12, 8
    pixels = b"".join(struct.pack("<HHH", x * 5000, y * 8000, (x * y * 997) & 0xFFFF)
                      for y in range(h) for x in range(w))
    tags = [(256, 3, 1, struct.pack("<H", w)), (257, 3, 1, struct.pack("<H", h)),
            (258, 3, 3, struct.pack("<HHH", 16, 16, 16)), (259, 3, 1, b"\1\0"),
            (262, 3, 1, b"\2\0"), (273, 4, 1, struct.pack("<I", 8)), (277, 3, 1, b"\3\0"),
            (278, 3, 1, struct.pack("<H", h)), (279, 4, 1, struct.pack("<I", len(pixels)))]
    return into_tiff(b"II*\0\x08\0\0\0" + pixels, tags)


# --- EXIF --------------------------------------------------------------------------------------

def exif(ifd0, sub=(), gps=(), shared=b"", big=False, loop=False, next_ifd=None):
    """A TIFF structure: header, shared block (entries with value None point at it), IFD0, its
    values, then the EXIF and GPS directories when given."""
    e = ">" if big else "<"
    out = bytearray((b"MM\0*" if big else b"II*\0") + b"\0\0\0\0" + shared)

    def directory(entries, links):
        at = len(out)
        entries = list(entries) + [(t, 4, 1, struct.pack(e + "I", 0)) for t in links]
        size = 2 + 12 * len(entries) + 4
        out.extend(b"\0" * size)
        body = struct.pack(e + "H", len(entries))
        for tag, kind, count, value in entries:
            if value is None:
                body += struct.pack(e + "HHII", tag, kind, count, 8)
            elif len(value) <= 4:
                body += struct.pack(e + "HHI", tag, kind, count) + value.ljust(4, b"\0")
            else:
                body += struct.pack(e + "HHII", tag, kind, count, len(out))
                out.extend(value + b"\0" * (len(value) & 1))
        body += struct.pack(e + "I", at if loop else (next_ifd or 0))
        out[at:at + size] = body
        return at

    links = ([0x8769] if sub else []) + ([0x8825] if gps else [])
    first = directory(ifd0, links)
    out[4:8] = struct.pack(e + "I", first)
    for tag, entries in ((0x8769, sub), (0x8825, gps)):
        if entries:
            where = directory(entries, [])
            for k in range(struct.unpack(e + "H", out[first:first + 2])[0]):
                p = first + 2 + 12 * k
                if struct.unpack(e + "H", out[p:p + 2])[0] == tag:
                    out[p + 8:p + 12] = struct.pack(e + "I", first if loop else where)
    return bytes(out)


def text(s):
    return (s + "\0").encode()


# Tags a mutation leaves alone: the orientation (each mutation sets the turn it means) and what a
# TIFF's decoder reads (picture_header.cpp's kDecoderTiffTags).
KEPT_TAGS = {0x0112, 254, 256, 257, 258, 259, 262, 266, 273, 277, 278, 279, 280, 281, 282, 283,
             284, 296, 317, 318, 319, 320, 322, 323, 324, 325, 332, 338, 339, 340, 341, 347, 529,
             530, 531, 532, 34675}


def random_entries(rng, n):
    out = []
    while len(out) < n:
        kind = rng.choice([1, 2, 3, 4, 5, 7, 10, 13, 0, 99])
        count = rng.choice([0, 1, 2, 7, 0xFFFF, 0x7FFFFFFF, 0xFFFFFFFF, rng.randrange(1, 5000)])
        value = rng.randbytes(4) if rng.random() < 0.5 else rng.randbytes(rng.randrange(5, 300))
        tag = rng.choice([0x010F, 0x0110, 0x9003, 0x927C, 0xA005, 0x8769, 0x8825, 0xC612,
                          rng.randrange(65536)])
        if tag not in KEPT_TAGS:
            out.append((tag, kind, count, value))
    return out


def exif_mutation(rng):
    """EXIF data, its name, and the turn the program takes from it (1 to 8)."""
    kind = rng.choice(["turn", "turn-odd", "shared", "many", "loop", "counts", "makernote",
                       "gps", "garbage", "prefixed", "typed"])
    big = kind == "turn" and rng.random() < 0.5
    e, want = (">" if big else "<"), rng.randrange(1, 9)
    base = [(0x010F, 2, 7, text("Camera")), (0x0110, 2, 6, text("Model")),
            (0x0132, 2, 20, text("2024:01:02 03:04:05"))]
    sub = [(0x829A, 5, 1, struct.pack(e + "II", 1, 250)),
           (0x9003, 2, 20, text("2024:01:02 03:04:05"))]
    if kind in ("turn", "prefixed"):
        blob = exif(base + [(0x0112, 3, 1, struct.pack(e + "H", want))], sub, big=big)
        return (b"Exif\0\0" if kind == "prefixed" else b"") + blob, kind, want
    if kind == "turn-odd":  # a turn of a wrong value or type: only a LONG one counts
        kind_, value = rng.choice([(3, 0), (3, 9), (3, 0xFFFF), (2, 6), (7, 6), (4, 6)])
        blob = exif(base + [(0x0112, kind_, 1, struct.pack("<I", value))])
        return blob, kind, value if kind_ == 4 else 1
    if kind == "shared":
        size = rng.choice([1 << 10, 1 << 16, 1 << 16, 1 << 20, 4 << 20])
        tag = rng.choice([0x010E, 0x013B, 0x8298, 0x9286, 0xC000])
        n = rng.choice([10, 200, 1000, 3000])
        return exif([(tag, rng.choice([2, 7]), size, None)] * n, [(0x9286, 7, size, None)] * n,
                    shared=b"x" * size), kind, 1
    if kind == "many":
        return exif(base + random_entries(rng, rng.choice([300, 5000, 20000]))), kind, 1
    if kind == "loop":
        return exif(base, sub, [(1, 2, 2, b"N\0")], loop=True), kind, 1
    if kind == "counts":
        return exif(base + random_entries(rng, 40), random_entries(rng, 40)), kind, 1
    if kind == "makernote":
        note = rng.choice([b"Nikon\0\x02\x10\0\0", b"OLYMP\0\1\0", b"", b"Canon"]) + \
            exif(random_entries(rng, rng.choice([10, 400])))[8:]
        return exif([(0x010F, 2, 6, text(rng.choice(["Canon", "NIKON", "OLYMPUS", "SONY"])))],
                    sub + [(0x927C, 7, len(note), note)]), kind, 1
    if kind == "gps":
        return exif(base, (), [(2, 5, 3, rng.randbytes(24)), (0x1B, 7, 100000, rng.randbytes(64))]
                    + random_entries(rng, 20)), kind, 1
    if kind == "typed":
        return exif([(0x010F, 3, 1, b"\7\0"), (0xC612, 1, 4, b"\1\4\0\0"), (0x0100, 4, 1,
                     b"\0\0\1\0")] + base[1:], [(0x829A, 2, 8, b"1/250\0\0\0")]), kind, 1
    return rng.randbytes(rng.choice([10, 1000, 100000])), kind, 1


def tiff_exif_mutation(rng, e):
    """Entries for a TIFF's own directory (where its EXIF is), a block they may share, their
    name and the turn."""
    kind = rng.choice(["turn", "turn-odd", "shared", "many", "pointers"])
    want = rng.randrange(1, 9)
    if kind == "turn":
        return [(0x0112, 3, 1, struct.pack(e + "H", want))], b"", kind, want
    if kind == "turn-odd":
        kind_ = rng.choice([2, 7, 4])
        return [(0x0112, kind_, 1, struct.pack(e + "I", 6))], b"", kind, 6 if kind_ == 4 else 1
    if kind == "shared":
        size = rng.choice([1 << 16, 1 << 16, 1 << 20, 4 << 20])
        tag = rng.choice([0x010E, 0x013B, 0x8298, 0xC000])
        return [(tag, 2, size, None)] * rng.choice([10, 1000, 3000]), b"s" * size, kind, 1
    if kind == "many":
        return random_entries(rng, rng.choice([100, 3000])), b"", kind, 1
    return [(0x8769, 4, 1, struct.pack(e + "I", rng.randrange(1 << 20))),
            (0x8825, 4, 1, struct.pack(e + "I", 4))], b"", kind, 1


# --- XMP, IPTC, ICC -------------------------------------------------------------------------

def xmp_mutation(rng):
    kind = rng.choice(["properties", "attributes", "deep", "entities", "items", "garbage",
                       "namespaces", "turned"])
    n = rng.choice([100, 5000, 12000, 30000, 60000])
    head = ('<?xpacket begin="" id="W5M0MpCehiHzreSzNTczkc9d"?><x:xmpmeta xmlns:x="adobe:ns:meta/">'
            '<rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">')
    tail = "</rdf:RDF></x:xmpmeta><?xpacket end=\"w\"?>"
    about = '<rdf:Description rdf:about="" xmlns:my="http://example.com/my/" ' \
            'xmlns:tiff="http://ns.adobe.com/tiff/1.0/"'
    if kind == "properties":
        body = about + ">" + "".join(f"<my:p{i}>v</my:p{i}>" for i in range(n)) + "</rdf:Description>"
    elif kind == "attributes":
        body = about + " " + " ".join(f'my:a{i}="v"' for i in range(n)) + "/>"
    elif kind == "deep":
        depth = rng.choice([50, 70, 1000, 20000])
        body = about + "><my:d>" + "<rdf:Bag><rdf:li>" * depth + "x" + \
            "</rdf:li></rdf:Bag>" * depth + "</my:d></rdf:Description>"
    elif kind == "entities":
        dtd = '<!DOCTYPE x [<!ENTITY a "aaaaaaaaaa">' + "".join(
            f'<!ENTITY {c} "&{p};&{p};&{p};&{p};&{p};&{p};&{p};&{p};&{p};&{p};">'
            for p, c in zip("abcdefgh", "bcdefghi")) + "]>"
        return (dtd + head + about + "><my:x>&i;</my:x></rdf:Description>" + tail).encode(), kind
    elif kind == "items":
        body = about + "><my:bag><rdf:Bag>" + "<rdf:li>item</rdf:li>" * (n * 2) + \
            "</rdf:Bag></my:bag></rdf:Description>"
    elif kind == "namespaces":
        body = "<rdf:Description rdf:about=\"\" " + " ".join(
            f'xmlns:n{i}="http://example.com/{i}/" n{i}:p="v"' for i in range(n // 10)) + "/>"
    elif kind == "turned":
        body = about + ' tiff:Orientation="6"><my:kept>yes</my:kept></rdf:Description>'
    else:
        return rng.randbytes(rng.choice([50, 5000])), kind
    return (head + body + tail).encode(), kind


def iptc_mutation(rng):
    kind = rng.choice(["records", "long", "extended", "resources", "garbage"])
    record = lambda tag, data: b"\x1c\x02" + bytes([tag]) + struct.pack(">H", len(data)) + data
    if kind == "records":
        data = b"".join(record(25, b"keyword%d" % i) for i in range(rng.choice([10, 50000])))
    elif kind == "long":
        data = b"\x1c\x02\x78" + struct.pack(">H", 0x7FFF) + b"caption"
    elif kind == "extended":
        data = b"\x1c\x02\x78\x80\x04" + struct.pack(">I", 0x7FFFFFFF) + b"x" * 100
    elif kind == "resources":
        data = b"8BIM\x04\x04\0\0" + struct.pack(">I", rng.choice([0xFFFFFFF0, 10, 100000])) + \
            record(5, b"title") * 3
    else:
        data = rng.randbytes(rng.choice([20, 3000]))
    resources = b"8BIM\x04\x04\0\0" + struct.pack(">I", len(data)) + data + b"\0" * (len(data) & 1)
    return (data if kind == "resources" else resources), kind


def icc_mutation(rng, grey):
    kind = rng.choice(["fitting", "other-model", "size", "tags", "garbage"] * 6 + ["huge"])
    model = (b"GRAY" if grey else b"RGB ") if kind == "fitting" else \
        rng.choice([b"CMYK", b"Lab ", b"GRAY", b"RGB ", b"\0\0\0\0"])
    tags = struct.pack(">I", 2) + b"desc" + struct.pack(">II", 156, 0x7FFFFFFF) + \
        b"wtpt" + struct.pack(">II", 0xFFFFFF00, 20) if kind == "tags" else struct.pack(">I", 0)
    body = tags + (b"\0" * (17 << 20) if kind == "huge" else b"\0" * 64)
    size = 128 + len(body)
    claim = size if kind != "size" else rng.choice([0, 127, size * 3, 0xFFFFFFFF])
    header = struct.pack(">I", claim) + b"lcms" + b"\x04\x30\0\0" + b"mntr" + model + b"XYZ " + \
        b"\0" * 12 + b"acsp" + b"\0" * 88
    data = rng.randbytes(rng.choice([100, 5000])) if kind == "garbage" else header + body
    return data, kind


# --- putting it together ---------------------------------------------------------------------

def place_jpeg(rng, data, kinds, grey):
    segments, turn, names = [], 1, []
    for kind in kinds:
        if kind == "exif":
            blob, name, turn = exif_mutation(rng)
            segments.append((0xE1, b"Exif\0\0" + (blob[6:] if blob.startswith(b"Exif") else blob)))
        elif kind == "xmp":
            blob, name = xmp_mutation(rng)
            segments.append((0xE1, b"http://ns.adobe.com/xap/1.0/\0" + blob))
        elif kind == "iptc":
            blob, name = iptc_mutation(rng)
            segments.append((0xED, b"Photoshop 3.0\0" + blob))
        else:
            blob, name = icc_mutation(rng, grey)
            pieces = [blob[i:i + 65519] for i in range(0, len(blob), 65519)][:300]
            for k, piece in enumerate(pieces):
                sequence = k + 1 if rng.random() < 0.9 else rng.randrange(256)
                segments.append((0xE2, b"ICC_PROFILE\0" + bytes([sequence & 255, len(pieces) & 255]) + piece))
        names.append(f"{kind}:{name}")
    return into_jpeg(data, segments), turn, names


def place_png(rng, data, kinds, grey):
    chunks, turn, names = [], 1, []
    for kind in kinds:
        if kind == "exif":
            blob, name, turn = exif_mutation(rng)
            if rng.random() < 0.2:  # as ImageMagick and exiv2 write it: not read for the turn
                hexed = b"\nexif\n%8d\n" % len(blob) + blob.hex().encode()
                chunks.append(png_chunk(b"zTXt", b"Raw profile type exif\0\0" + zlib.compress(hexed)))
                name, turn = name + "-raw", 1
            else:
                chunks.append(png_chunk(b"eXIf", blob))
        elif kind == "xmp":
            blob, name = xmp_mutation(rng)
            packed = rng.random() < 0.3
            chunks.append(png_chunk(b"iTXt", b"XML:com.adobe.xmp\0" + (b"\1\0" if packed else b"\0\0") +
                                    b"\0\0" + (zlib.compress(blob) if packed else blob)))
        elif kind == "iptc":
            blob, name = iptc_mutation(rng)
            hexed = b"\niptc\n%8d\n" % len(blob) + blob.hex().encode()
            chunks.append(png_chunk(b"zTXt", b"Raw profile type iptc\0\0" + zlib.compress(hexed)))
        else:
            blob, name = icc_mutation(rng, grey)
            if rng.random() < 0.1:  # inflates to 256 MiB
                blob, name = zlib.compress(b"\0" * (256 << 20), 9), "deflate-bomb"
            else:
                blob = zlib.compress(blob)
            chunks.append(png_chunk(b"iCCP", b"profile\0\0" + blob))
        names.append(f"{kind}:{name}")
    return into_png(data, chunks), turn, names


def place_tiff(rng, data, kinds, grey):
    e = "<" if data[:2] == b"II" else ">"
    tags, shared, turn, names = [], b"", 1, []
    for kind in kinds:
        if kind == "exif":
            entries, shared, name, turn = tiff_exif_mutation(rng, e)
            tags += entries
        elif kind == "xmp":
            blob, name = xmp_mutation(rng)
            tags.append((700, 1, len(blob), blob))
        elif kind == "iptc":
            blob, name = iptc_mutation(rng)
            tags.append((rng.choice([33723, 34377]), 7, len(blob), blob))
        else:
            blob, name = icc_mutation(rng, grey)
            tags.append((34675, 7, len(blob), blob))
        names.append(f"{kind}:{name}")
    return into_tiff(data, tags, shared), turn, names


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("outdir")
    parser.add_argument("--count", type=int, default=1500)
    parser.add_argument("--seed", type=int, default=1)
    args = parser.parse_args()
    rng = random.Random(args.seed)
    os.makedirs(args.outdir, exist_ok=True)
    seeds = {}
    for name in JPEGS + PNGS + TIFFS:
        path = os.path.join(SEEDS, name)
        data = tiff48() if name == "rgb48.tif" else open(path, "rb").read()
        seeds[name] = strip_jpeg(data) if name.endswith(".jpg") else \
            strip_png(data) if name.endswith(".png") else data
        with open(os.path.join(args.outdir, "ref-" + name), "wb") as f:
            f.write(seeds[name])
    with open(os.path.join(args.outdir, "index.csv"), "w", newline="") as index:
        rows = csv.writer(index)
        rows.writerow(["name", "seed", "turn", "mutations"])
        for n in range(args.count):
            seed = rng.choice(JPEGS + PNGS + TIFFS)
            kinds = rng.sample(["exif", "xmp", "iptc", "icc"], rng.choice([1, 1, 2, 3]))
            grey = "grey" in seed
            place = place_jpeg if seed.endswith(".jpg") else place_png if seed.endswith(".png") \
                else place_tiff
            data, turn, names = place(rng, seeds[seed], kinds, grey)
            name = f"{n:05d}{os.path.splitext(seed)[1]}"
            with open(os.path.join(args.outdir, name), "wb") as f:
                f.write(data)
            rows.writerow([name, seed, turn, " ".join(names)])


if __name__ == "__main__":
    main()
