#!/usr/bin/env python3
"""Writes a deterministic corpus of hostile pictures for clarovi-cli.

    make_corpus.py OUTDIR [--count N] [--seed S]

OUTDIR receives N files (default 10000) and an index.csv with one row per file:
name, family, kind, format (what the content really is), expect (accept / refuse / any) and
detail (what was done). The same seed always gives the same files.

Families, roughly balanced:
  valid       small well-formed PNG, JPEG, TIFF, BMP, GIF and WebP files in many variants
  refused     well-formed pictures in formats clarovi must refuse (ICO, CUR, PNM, XPM, XBM, TGA,
              MNG, WBMP, ICNS, SVG)
  truncate, bitflip, overwrite, header, chunks
              mutations of small seed pictures
  extension   pictures and text named with the wrong extension
  tiny        zero-byte, one-byte and magic-only files
  bomb        decompression and allocation bombs, and pictures around 100 megapixels
  hang        progressive JPEGs with thousands of repeated scans, files with thousands of chunks
  aspect      extreme aspect ratios that decode fine, and 1 x 1 in every accepted format

Everything is written with the Python standard library, except JPEG, WebP (lossy), ICNS and a few
others, which go through Qt's own writers: encode_seed.cpp beside this script is compiled once into
the temporary folder (g++ and the Qt 6 Gui development files are needed) and kept running as a
co-process while the corpus is written.
"""

import argparse
import csv
import hashlib
import os
import random
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import time
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))
MAX_PIXELS = 100_000_000

# --------------------------------------------------------------------------------------------
# Pixel content

SHIFT = [bytes((i + k) & 255 for i in range(256)) for k in range(256)]
PATTERNS = ("noise", "gradient", "flat", "checker", "blocks")


def pick_pattern(rng, w, h):
    if w * h > 256 * 256:
        return rng.choice(("gradient", "flat", "checker", "blocks"))
    return rng.choice(PATTERNS)


def pick_size(rng, hi=700, lo=8):
    def one():
        r = rng.random()
        if r < 0.6 or hi <= 128:
            return rng.randint(lo, min(hi, 128))
        if r < 0.9 or hi <= 400:
            return rng.randint(128, min(hi, 400))
        return rng.randint(400, hi)

    return one(), one()


def rows_of(rng, w, h, nb, pattern):
    """h rows of w pixels of nb bytes each, as a list of bytes objects."""
    rl = w * nb
    if h == 0 or rl == 0:
        return [b""] * h
    if pattern == "noise":
        data = rng.randbytes(rl * h)
        return [data[i * rl : (i + 1) * rl] for i in range(h)]
    if pattern == "flat":
        return [rng.randbytes(nb) * w] * h
    if pattern == "checker":
        a, b, s = rng.randbytes(nb), rng.randbytes(nb), rng.choice((1, 2, 4, 8))
        ra = ((a * s + b * s) * (w // (2 * s) + 1))[:rl]
        rb = ((b * s + a * s) * (w // (2 * s) + 1))[:rl]
        return [ra if (y // s) % 2 == 0 else rb for y in range(h)]
    if pattern == "blocks":
        s = rng.choice((8, 16, 32))
        rows = []
        for y in range(h):
            if y % s == 0:
                row = b"".join(rng.randbytes(nb) * s for _ in range(w // s + 1))[:rl]
            rows.append(row)
        return rows
    # gradient
    off = [rng.randrange(256) for _ in range(nb)]
    base = bytes((x * 255 // max(1, w - 1) + off[c]) & 255 for x in range(w) for c in range(nb))
    k = rng.choice((0, 128, 255))
    return [base.translate(SHIFT[(y * k // max(1, h)) & 255]) for y in range(h)]


# --------------------------------------------------------------------------------------------
# Small helpers


def le16(v):
    return struct.pack("<H", v & 0xFFFF)


def le32(v):
    return struct.pack("<I", v & 0xFFFFFFFF)


def be16(v):
    return struct.pack(">H", v & 0xFFFF)


def be32(v):
    return struct.pack(">I", v & 0xFFFFFFFF)


class BitsLSB:
    """Bit writer, least significant bit first (GIF, WebP lossless)."""

    def __init__(self):
        self.out = bytearray()
        self.acc = 0
        self.n = 0

    def put(self, value, bits):
        self.acc |= (value & ((1 << bits) - 1)) << self.n
        self.n += bits
        while self.n >= 8:
            self.out.append(self.acc & 255)
            self.acc >>= 8
            self.n -= 8

    def done(self):
        if self.n:
            self.out.append(self.acc & 255)
            self.acc = 0
            self.n = 0
        return bytes(self.out)


class BitsMSB:
    """Bit writer, most significant bit first, optionally stuffing 0x00 after 0xFF (JPEG)."""

    def __init__(self, stuff=False):
        self.out = bytearray()
        self.acc = 0
        self.n = 0
        self.stuff = stuff

    def put(self, value, bits):
        self.acc = (self.acc << bits) | (value & ((1 << bits) - 1))
        self.n += bits
        while self.n >= 8:
            self.n -= 8
            byte = (self.acc >> self.n) & 255
            self.out.append(byte)
            if self.stuff and byte == 0xFF:
                self.out.append(0)
        self.acc &= (1 << self.n) - 1

    def pad_ones(self):
        if self.n:
            self.put((1 << (8 - self.n)) - 1, 8 - self.n)

    def done(self):
        if self.n:
            self.put(0, 8 - self.n)
        return bytes(self.out)


# --------------------------------------------------------------------------------------------
# PNG (and the chunk layer MNG shares)

PNG_SIG = b"\x89PNG\r\n\x1a\n"
MNG_SIG = b"\x8aMNG\r\n\x1a\n"
PNG_CHANNELS = {0: 1, 2: 3, 3: 1, 4: 2, 6: 4}
PNG_DEPTHS = {0: (1, 2, 4, 8, 16), 2: (8, 16), 3: (1, 2, 4, 8), 4: (8, 16), 6: (8, 16)}
ADAM7 = (
    (0, 0, 8, 8),
    (4, 0, 8, 8),
    (0, 4, 4, 8),
    (2, 0, 4, 4),
    (0, 2, 2, 4),
    (1, 0, 2, 2),
    (0, 1, 1, 2),
)


def chunk(kind, data, length=None, crc=None):
    n = len(data) if length is None else length
    c = zlib.crc32(kind + data) if crc is None else crc
    return be32(n) + kind + data + be32(c)


def ihdr(w, h, depth, ctype, interlace=0, comp=0, filt=0):
    return chunk(
        b"IHDR",
        struct.pack(
            ">IIBBBBB", w & 0xFFFFFFFF, h & 0xFFFFFFFF, depth, ctype, comp, filt, interlace
        ),
    )


def paeth(a, b, c):
    p = a + b - c
    pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
    if pa <= pb and pa <= pc:
        return a
    return b if pb <= pc else c


def filter_row(ft, row, prev, bpp):
    if ft == 0:
        return row
    out = bytearray(len(row))
    for i in range(len(row)):
        a = row[i - bpp] if i >= bpp else 0
        b = prev[i]
        c = prev[i - bpp] if i >= bpp else 0
        if ft == 1:
            p = a
        elif ft == 2:
            p = b
        elif ft == 3:
            p = (a + b) >> 1
        else:
            p = paeth(a, b, c)
        out[i] = (row[i] - p) & 255
    return bytes(out)


def png_raw(rng, w, h, depth, ctype, pattern, interlace=0, filtering=False):
    """Filtered scanlines (with their filter bytes) for the whole image, every pass."""
    bitspp = depth * PNG_CHANNELS[ctype]
    bpp = max(1, bitspp // 8)
    passes = [(w, h)]
    if interlace:
        passes = []
        for xs, ys, dx, dy in ADAM7:
            passes.append(
                ((w - xs + dx - 1) // dx if w > xs else 0, (h - ys + dy - 1) // dy if h > ys else 0)
            )
    out = []
    for pw, ph in passes:
        if pw == 0 or ph == 0:
            continue
        rb = (pw * bitspp + 7) // 8
        if bitspp >= 8:
            rows = rows_of(rng, pw, ph, bitspp // 8, pattern)
        else:
            rows = rows_of(rng, rb, ph, 1, pattern)
        if not filtering or rb * ph > 65536:
            out.extend(b"\0" + r for r in rows)
            continue
        prev = bytes(rb)
        for r in rows:
            ft = rng.randrange(5)
            out.append(bytes([ft]) + filter_row(ft, r, prev, bpp))
            prev = r
    return b"".join(out)


def png_palette(rng, depth):
    n = 1 << min(depth, 8)
    return rng.randbytes(3 * n)


def png_file(
    w,
    h,
    depth,
    ctype,
    idat,
    *,
    interlace=0,
    plte=None,
    trns=None,
    before=(),
    after=(),
    idat_split=1,
    sig=PNG_SIG,
):
    parts = [sig, ihdr(w, h, depth, ctype, interlace)]
    parts.extend(before)
    if plte is not None:
        parts.append(chunk(b"PLTE", plte))
    if trns is not None:
        parts.append(chunk(b"tRNS", trns))
    if idat_split <= 1 or len(idat) < 2:
        parts.append(chunk(b"IDAT", idat))
    else:
        step = max(1, len(idat) // idat_split)
        for k in range(0, len(idat), step):
            parts.append(chunk(b"IDAT", idat[k : k + step]))
    parts.extend(after)
    parts.append(chunk(b"IEND", b""))
    return b"".join(parts)


def png_ancillary(rng, ctype, depth):
    """A few well-formed ancillary chunks."""
    out = []
    # Either sRGB alone or gAMA (and sRGB primaries): libpng complains about a mismatch.
    if rng.random() < 0.2:
        out.append(chunk(b"sRGB", bytes([rng.randrange(4)])))
    elif rng.random() < 0.3:
        out.append(chunk(b"gAMA", be32(rng.choice((45455, 100000, 22727)))))
        if rng.random() < 0.3:
            out.append(
                chunk(
                    b"cHRM",
                    struct.pack(">8I", 31270, 32900, 64000, 33000, 30000, 60000, 15000, 6000),
                )
            )
    if rng.random() < 0.3:
        out.append(chunk(b"pHYs", struct.pack(">IIB", 2835, 2835, 1)))
    if rng.random() < 0.3:
        out.append(chunk(b"tEXt", b"Comment\0" + rng.choice((b"hello", b"x" * 300, b""))))
    if rng.random() < 0.2:
        out.append(chunk(b"zTXt", b"Title\0\0" + zlib.compress(b"clarovi " * 40)))
    if rng.random() < 0.2:
        out.append(chunk(b"iTXt", b"Author\0\0\0en\0\0" + "é".encode() * 10))
    if rng.random() < 0.15:
        out.append(chunk(b"tIME", struct.pack(">HBBBBB", 2024, 5, 17, 12, 30, 0)))
    if rng.random() < 0.1 and ctype in (0, 4):
        out.append(chunk(b"bKGD", be16(rng.randrange(1 << min(depth, 16)))))
    return out


def gen_png(rng, hi=700, w=None, h=None, ctype=None, depth=None, interlace=None, pattern=None):
    if w is None:
        w, h = pick_size(rng, hi)
    if ctype is None:
        ctype = rng.choice((0, 0, 2, 2, 2, 3, 3, 4, 6, 6))
    if depth is None:
        depth = rng.choice(PNG_DEPTHS[ctype])
    if interlace is None:
        interlace = 1 if (rng.random() < 0.25 and w * h <= 300 * 300) else 0
    if pattern is None:
        pattern = pick_pattern(rng, w, h)
    filtering = w * h <= 64 * 64 and rng.random() < 0.7
    raw = png_raw(rng, w, h, depth, ctype, pattern, interlace, filtering)
    level = rng.randrange(10)
    plte = png_palette(rng, depth) if ctype == 3 else None
    trns = None
    if rng.random() < 0.25:
        if ctype == 3:
            trns = rng.randbytes(rng.randint(1, len(plte) // 3))
        elif ctype == 0:
            trns = be16(rng.randrange(1 << depth))
        elif ctype == 2:
            trns = be16(rng.randrange(1 << depth)) * 3
    if ctype == 2 and plte is None and rng.random() < 0.1:
        plte = png_palette(rng, 8)  # a suggested palette, allowed for RGB
    before = png_ancillary(rng, ctype, depth)
    split = rng.choice((1, 1, 1, 2, 5, 50))
    data = png_file(
        w,
        h,
        depth,
        ctype,
        zlib.compress(raw, level),
        interlace=interlace,
        plte=plte,
        trns=trns,
        before=before,
        idat_split=split,
    )
    names = {0: "grey", 2: "rgb", 3: "palette", 4: "grey+alpha", 6: "rgba"}
    detail = (
        f"png {w}x{h} {depth}-bit {names[ctype]}{' interlaced' if interlace else ''} "
        f"{pattern} level={level} idat-chunks~{split}{' trns' if trns else ''}"
        f"{' filtered' if filtering else ''}"
    )
    return data, "png", detail


def png_chunks(data, start=8):
    """(offset, length, type) of every chunk; a chunk running past the end is listed with it."""
    out = []
    p = start
    while p + 8 <= len(data):
        n = struct.unpack(">I", data[p : p + 4])[0]
        out.append((p, n, data[p + 4 : p + 8]))
        if p + 12 + n > len(data):
            break
        p += 12 + n
    return out


def png_fix_crcs(data, start=8):
    out = bytearray(data)
    for p, n, kind in png_chunks(data, start):
        end = p + 8 + n
        if end + 4 <= len(out):
            out[end : end + 4] = be32(zlib.crc32(bytes(out[p + 4 : end])))
    return bytes(out)


# --------------------------------------------------------------------------------------------
# JPEG: a baseline encoder of its own (DC only), for CMYK / YCCK / odd samplings, and a parser

JPEG_DC_BITS = [0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0]
JPEG_DC_VALS = list(range(12))
JPEG_AC_BITS = [1, 1] + [0] * 14  # EOB and ZRL only: every block is flat
JPEG_AC_VALS = [0x00, 0xF0]


def huffman_codes(bits, vals):
    table, code, k = {}, 0, 0
    for length in range(1, 17):
        for _ in range(bits[length - 1]):
            table[vals[k]] = (code, length)
            k += 1
            code += 1
        code <<= 1
    return table


DC_CODES = huffman_codes(JPEG_DC_BITS, JPEG_DC_VALS)
AC_CODES = huffman_codes(JPEG_AC_BITS, JPEG_AC_VALS)


def segment(marker, payload):
    return bytes([0xFF, marker]) + be16(len(payload) + 2) + payload


def jpeg_dc(
    rng,
    w,
    h,
    comps,
    pattern,
    *,
    restart=0,
    adobe=None,
    jfif=True,
    claim=None,
    mcu_limit=None,
    eoi=True,
):
    """A baseline JPEG whose 8x8 blocks are flat. comps: [(id, H, V), ...]."""
    hmax = max(c[1] for c in comps)
    vmax = max(c[2] for c in comps)
    mcux = (w + 8 * hmax - 1) // (8 * hmax)
    mcuy = (h + 8 * vmax - 1) // (8 * vmax)
    out = [b"\xff\xd8"]
    if jfif:
        out.append(segment(0xE0, b"JFIF\0\x01\x01\0\0\x01\0\x01\0\0"))
    if adobe is not None:
        out.append(segment(0xEE, b"Adobe" + struct.pack(">HHHB", 100, 0, 0, adobe)))
    out.append(segment(0xDB, b"\x00" + bytes([8] * 64)))
    cw, ch = claim if claim else (w, h)
    sof = struct.pack(">BHHB", 8, ch, cw, len(comps))
    for cid, hh, vv in comps:
        sof += bytes([cid, (hh << 4) | vv, 0])
    out.append(segment(0xC0, sof))
    out.append(segment(0xC4, b"\x00" + bytes(JPEG_DC_BITS) + bytes(JPEG_DC_VALS)))
    out.append(segment(0xC4, b"\x10" + bytes(JPEG_AC_BITS) + bytes(JPEG_AC_VALS)))
    if restart:
        out.append(segment(0xDD, be16(restart)))
    sos = bytes([len(comps)])
    for cid, _, _ in comps:
        sos += bytes([cid, 0x00])
    out.append(segment(0xDA, sos + b"\x00\x3f\x00"))
    bits = BitsMSB(stuff=True)
    pred = [0] * len(comps)
    base = [rng.randrange(-100, 100) for _ in comps]
    total = mcux * mcuy if mcu_limit is None else min(mcu_limit, mcux * mcuy)
    rst = 0
    eob_code, eob_len = AC_CODES[0x00]
    for m in range(total):
        if restart and m and m % restart == 0:
            bits.pad_ones()
            out_scan = bits.done()
            out.append(out_scan)
            out.append(bytes([0xFF, 0xD0 + rst]))
            rst = (rst + 1) % 8
            bits = BitsMSB(stuff=True)
            pred = [0] * len(comps)
        mx, my = m % mcux, m // mcux
        for ci, (cid, hh, vv) in enumerate(comps):
            for v in range(vv):
                for u in range(hh):
                    bx, by = mx * hh + u, my * vv + v
                    if pattern == "noise":
                        dc = rng.randrange(-120, 120)
                    elif pattern == "flat":
                        dc = base[ci]
                    elif pattern == "checker":
                        dc = base[ci] if (bx + by) % 2 else -base[ci]
                    elif pattern == "blocks":
                        dc = ((bx // 4) * 37 + (by // 4) * 91 + ci * 13) % 240 - 120
                    else:
                        dc = max(-120, min(120, base[ci] + (bx + by) % 60 - 30))
                    diff = dc - pred[ci]
                    pred[ci] = dc
                    cat = abs(diff).bit_length()
                    code, length = DC_CODES[cat]
                    bits.put(code, length)
                    if cat:
                        bits.put(diff if diff > 0 else diff + (1 << cat) - 1, cat)
                    bits.put(eob_code, eob_len)
    bits.pad_ones()
    out.append(bits.done())
    if eoi:
        out.append(b"\xff\xd9")
    return b"".join(out)


def jpeg_segments(data):
    """(start, end, marker) of every marker segment; an SOS segment includes its entropy data."""
    segs = []
    if data[:2] != b"\xff\xd8":
        return segs
    segs.append((0, 2, 0xD8))
    p, n = 2, len(data)
    while p + 1 < n:
        if data[p] != 0xFF:
            q = data.find(b"\xff", p)
            if q < 0:
                break
            p = q
            continue
        m = data[p + 1]
        if m == 0xFF:
            p += 1
            continue
        if m in (0x00, 0x01, 0xD8) or 0xD0 <= m <= 0xD7:
            segs.append((p, p + 2, m))
            p += 2
            continue
        if m == 0xD9:
            segs.append((p, p + 2, m))
            p += 2
            continue
        if p + 4 > n:
            segs.append((p, n, m))
            break
        end = p + 2 + struct.unpack(">H", data[p + 2 : p + 4])[0]
        if m == 0xDA:
            q = end
            while True:
                q = data.find(b"\xff", q)
                if q < 0 or q + 1 >= n:
                    q = n
                    break
                nxt = data[q + 1]
                if nxt == 0 or 0xD0 <= nxt <= 0xD7 or nxt == 0xFF:
                    q += 1 if nxt == 0xFF else 2
                    continue
                break
            end = q
        segs.append((p, min(end, n), m))
        p = end
    return segs


# --------------------------------------------------------------------------------------------
# TIFF


def tiff_lzw(raw):
    """TIFF LZW of literals only, clearing often enough that codes stay 9 bits wide."""
    bits = BitsMSB()
    bits.put(256, 9)
    n = 0
    for b in raw:
        bits.put(b, 9)
        n += 1
        if n == 250:
            bits.put(256, 9)
            n = 0
    bits.put(257, 9)
    return bits.done()


def packbits(row):
    out = bytearray()
    i, n = 0, len(row)
    while i < n:
        j = i + 1
        while j < n and j - i < 128 and row[j] == row[i]:
            j += 1
        if j - i >= 3:
            out += bytes([(257 - (j - i)) & 255, row[i]])
            i = j
            continue
        j = i
        while j < n and j - i < 128 and not (j + 2 < n and row[j] == row[j + 1] == row[j + 2]):
            j += 1
        if j == i:
            j = i + 1
        out.append(j - i - 1)
        out += row[i:j]
        i = j
    return bytes(out)


TIFF_TYPES = {1: "B", 2: "B", 3: "H", 4: "I", 5: "II", 8: "h", 9: "i", 16: "Q"}
TIFF_SIZES = {1: 1, 2: 1, 3: 2, 4: 4, 5: 8, 7: 1, 8: 2, 9: 4, 16: 8}


def tiff_compress(raw, rowlen, compression, level=6):
    if compression == 5:
        return tiff_lzw(raw)
    if compression in (8, 32946):
        return zlib.compress(raw, level)
    if compression == 32773:
        return b"".join(packbits(raw[k : k + rowlen]) for k in range(0, len(raw), max(1, rowlen)))
    return raw


def tiff_file(
    w,
    h,
    spp,
    bits,
    photometric,
    rows,
    *,
    compression=1,
    tile=None,
    rps=None,
    planar=1,
    big=False,
    colormap=None,
    extra=None,
    sampleformat=None,
    level=6,
    claim=None,
    raw_segments=None,
    extra_tags=(),
    tile_claim=None,
):
    """A one-page TIFF. rows: chunky rows of ceil(w*spp*bits/8) bytes each."""
    e = ">" if big else "<"
    segs = []
    rowbytes = (w * spp * bits + 7) // 8
    if raw_segments is not None:
        segs = raw_segments
    elif tile:
        tw, th = tile
        pxb = spp * bits // 8
        for ty in range(0, h, th):
            for tx in range(0, w, tw):
                t = bytearray()
                for y in range(ty, ty + th):
                    r = rows[y][tx * pxb : (tx + tw) * pxb] if y < h else b""
                    t += r + bytes(tw * pxb - len(r))
                segs.append(tiff_compress(bytes(t), tw * pxb, compression, level))
    else:
        rps = rps or h
        planes = [rows]
        if planar == 2 and spp > 1:
            planes = [[r[c::spp] for r in rows] for c in range(spp)]
        for plane in planes:
            prl = len(plane[0]) if plane else 0
            for y in range(0, h, rps):
                segs.append(tiff_compress(b"".join(plane[y : y + rps]), prl, compression, level))
    body = bytearray(b"MM\0*" if big else b"II*\0")
    body += b"\0\0\0\0"
    offsets = []
    for s in segs:
        offsets.append(len(body))
        body += s
        if len(body) % 2:
            body += b"\0"
    cw, ch = claim if claim else (w, h)
    tags = [
        (256, 4, [cw]),
        (257, 4, [ch]),
        (258, 3, [bits] * spp),
        (259, 3, [compression]),
        (262, 3, [photometric]),
        (277, 3, [spp]),
        (282, 5, [72, 1]),
        (283, 5, [72, 1]),
        (284, 3, [planar]),
        (296, 3, [2]),
    ]
    if tile:
        tw, th = tile_claim or tile
        tags += [
            (322, 4, [tw]),
            (323, 4, [th]),
            (324, 4, offsets),
            (325, 4, [len(s) for s in segs]),
        ]
    else:
        tags += [(273, 4, offsets), (278, 4, [rps or h]), (279, 4, [len(s) for s in segs])]
    if colormap is not None:
        tags.append((320, 3, colormap))
    if extra is not None:
        tags.append((338, 3, [extra]))
    if sampleformat is not None:
        tags.append((339, 3, [sampleformat] * spp))
    tags.extend(extra_tags)
    tags.sort(key=lambda t: t[0])
    ifd_at = len(body)
    struct.pack_into(e + "I", body, 4, ifd_at)
    out_of_line = bytearray()
    ool_base = ifd_at + 2 + 12 * len(tags) + 4
    entries = bytearray(struct.pack(e + "H", len(tags)))
    for tag, typ, values in tags:
        if typ == 5:
            count = len(values) // 2
            payload = struct.pack(e + "%dI" % len(values), *values)
        elif typ == 2:
            count = len(values)
            payload = bytes(values)
        else:
            count = len(values)
            payload = struct.pack(e + TIFF_TYPES[typ] * len(values), *values)
        if len(payload) <= 4:
            field = payload + bytes(4 - len(payload))
        else:
            field = struct.pack(e + "I", ool_base + len(out_of_line))
            out_of_line += payload
            if len(out_of_line) % 2:
                out_of_line += b"\0"
        entries += struct.pack(e + "HHI", tag, typ, count) + field
    entries += b"\0\0\0\0"
    return bytes(body + entries + out_of_line)


def gen_tiff_py(rng, hi=700, w=None, h=None):
    if w is None:
        w, h = pick_size(rng, hi)
    compression = rng.choice((1, 5, 8, 32946, 32773))
    if compression in (5, 32773) and w * h > 256 * 256:
        compression = rng.choice((1, 8))
    kind = rng.choice(("grey", "grey", "rgb", "rgb", "rgba", "palette", "bilevel"))
    bits = 8
    if kind in ("grey", "rgb", "rgba") and rng.random() < 0.3:
        bits = 16
    spp = {"grey": 1, "rgb": 3, "rgba": 4, "palette": 1, "bilevel": 1}[kind]
    photometric = {"grey": rng.choice((0, 1)), "rgb": 2, "rgba": 2, "palette": 3, "bilevel": 1}[
        kind
    ]
    if kind == "bilevel":
        bits = 1
    pattern = pick_pattern(rng, w, h)
    if bits == 1:
        rows = rows_of(rng, (w + 7) // 8, h, 1, pattern)
    else:
        rows = rows_of(rng, w, h, spp * bits // 8, pattern)
    tile = None
    if bits >= 8 and rng.random() < 0.3:
        # Mostly tiles that fit the picture; now and then larger ones, which are legal too.
        def side(n):
            fit = [t for t in (16, 32, 64, 128, 256) if t <= max(16, (n + 15) // 16 * 16)]
            return rng.choice(fit if rng.random() < 0.85 else (16, 32, 64, 128, 256))

        tile = (side(w), side(h))
    planar = 2 if (not tile and spp > 1 and bits == 8 and rng.random() < 0.2) else 1
    rps = rng.choice((1, 2, 8, 16, 64, h))
    colormap = None
    if kind == "palette":
        colormap = [rng.randrange(65536) for _ in range(3 * 256)]
    extra = rng.choice((1, 2)) if kind == "rgba" else None
    big = rng.random() < 0.3
    data = tiff_file(
        w,
        h,
        spp,
        bits,
        photometric,
        rows,
        compression=compression,
        tile=tile,
        rps=rps,
        planar=planar,
        big=big,
        colormap=colormap,
        extra=extra,
        level=rng.randrange(1, 10),
    )
    comp = {1: "none", 5: "lzw", 8: "deflate", 32946: "old-deflate", 32773: "packbits"}[compression]
    layout = f"tiles {tile[0]}x{tile[1]}" if tile else f"strips of {rps} rows"
    detail = (
        f"tiff {w}x{h} {kind} {bits}-bit {comp} {layout} planar={planar} "
        f"{'big' if big else 'little'}-endian {pattern}"
    )
    return data, "tif", detail


# --------------------------------------------------------------------------------------------
# BMP


def rle8_rows(rng, rows):
    out = bytearray()
    for row in rows:
        i, n = 0, len(row)
        while i < n:
            j = i + 1
            while j < n and j - i < 255 and row[j] == row[i]:
                j += 1
            if j - i >= 2 or n - i < 3 or rng.random() < 0.5:
                out += bytes([j - i, row[i]])
                i = j
                continue
            k = min(n, i + rng.randint(3, 255))
            out += bytes([0, k - i]) + row[i:k]
            if (k - i) % 2:
                out.append(0)
            i = k
        out += b"\0\0"
    out += b"\0\1"
    return bytes(out)


def rle4_rows(rows):
    """rows: per pixel nibble values (bytes, one pixel per byte)."""
    out = bytearray()
    for row in rows:
        i, n = 0, len(row)
        while i < n:
            j = i + 1
            while j < n and j - i < 255 and row[j] == row[i]:
                j += 1
            out += bytes([j - i, (row[i] << 4) | row[i]])
            i = j
        out += b"\0\0"
    out += b"\0\1"
    return bytes(out)


def bmp_file(
    w,
    h,
    bitcount,
    pixel_data,
    *,
    palette=b"",
    compression=0,
    header=40,
    topdown=False,
    masks=None,
    claim=None,
):
    """pixel_data is already laid out (padded rows, bottom-up unless topdown, or RLE)."""
    cw, ch = claim if claim else (w, h)
    if header == 12:
        info = struct.pack("<IHHHH", 12, cw & 0xFFFF, ch & 0xFFFF, 1, bitcount)
    else:
        height = -ch if topdown else ch
        ncol = len(palette) // 4
        info = struct.pack(
            "<IiiHHIIiiII",
            header,
            cw,
            height,
            1,
            bitcount,
            compression,
            len(pixel_data),
            2835,
            2835,
            ncol,
            0,
        )
        if header >= 52:
            m = masks or (0, 0, 0, 0)
            info += struct.pack("<IIII", *m)[: header - 40 if header < 56 else 16]
        if header >= 108:
            info += b"BGRs" + bytes(36) + bytes(12)
        if header >= 124:
            info += struct.pack("<IIII", 4, 0, 0, 0)
        info = info[:header] + bytes(max(0, header - len(info)))
    extra_masks = b""
    if header == 40 and compression in (3, 6) and masks:
        extra_masks = struct.pack("<III", *masks[:3])
        if compression == 6:
            extra_masks += le32(masks[3])
    offset = 14 + len(info) + len(extra_masks) + len(palette)
    size = offset + len(pixel_data)
    return (
        b"BM" + struct.pack("<IHHI", size, 0, 0, offset) + info + extra_masks + palette + pixel_data
    )


def bmp_rows(rows, stride, topdown):
    pad = [r + bytes(stride - len(r)) for r in rows]
    if not topdown:
        pad.reverse()
    return b"".join(pad)


def gen_bmp_py(rng, hi=700, w=None, h=None):
    if w is None:
        w, h = pick_size(rng, hi)
    kind = rng.choice(
        (
            "24",
            "32",
            "32-bitfields",
            "16",
            "16-565",
            "8",
            "8-rle",
            "4",
            "4-rle",
            "1",
            "24-core",
            "8-core",
        )
    )
    header = rng.choice((40, 40, 40, 108, 124))
    topdown = rng.random() < 0.2 and "rle" not in kind
    pattern = pick_pattern(rng, w, h)
    palette = b""
    compression = 0
    masks = None
    if kind.endswith("core"):
        header = 12
        topdown = False
    bitcount = int(kind.split("-")[0])
    if bitcount <= 8:
        n = 1 << bitcount
        if header == 12:
            palette = rng.randbytes(3 * n)
        else:
            palette = b"".join(rng.randbytes(3) + b"\0" for _ in range(n))
    if kind == "8-rle":
        compression = 1
        rows = rows_of(rng, w, h, 1, pattern)
        rows.reverse()
        data = rle8_rows(rng, rows)
    elif kind == "4-rle":
        compression = 2
        rows = [
            r.translate(bytes(i & 15 for i in range(256))) for r in rows_of(rng, w, h, 1, pattern)
        ]
        rows.reverse()
        data = rle4_rows(rows)
    else:
        stride = ((w * bitcount + 31) // 32) * 4
        if bitcount >= 8:
            rows = rows_of(rng, w, h, bitcount // 8, pattern)
        else:
            rows = rows_of(rng, (w * bitcount + 7) // 8, h, 1, pattern)
        data = bmp_rows(rows, stride, topdown)
        if kind == "32-bitfields":
            compression = 3
            masks = (0x00FF0000, 0x0000FF00, 0x000000FF, 0xFF000000)
            if header == 40:
                header = 108
        elif kind == "16-565":
            compression = 3
            masks = (0xF800, 0x07E0, 0x001F, 0)
    data = bmp_file(
        w,
        h,
        bitcount,
        data,
        palette=palette,
        compression=compression,
        header=header,
        topdown=topdown,
        masks=masks,
    )
    detail = f"bmp {w}x{h} {kind} header={header}{' top-down' if topdown else ''} {pattern}"
    return data, "bmp", detail


# --------------------------------------------------------------------------------------------
# GIF


def gif_lzw(indices, mincode, literal_only=False):
    clear, eoi = 1 << mincode, (1 << mincode) + 1
    bits = BitsLSB()
    w = mincode + 1
    nxt = eoi + 1
    table = {}
    bits.put(clear, w)
    if not indices:
        bits.put(eoi, w)
        return bits.done()
    ent = indices[0]
    for c in indices[1:]:
        key = (ent, c)
        if not literal_only and key in table:
            ent = table[key]
            continue
        bits.put(ent, w)
        if nxt > (1 << w) - 1 and w < 12:
            w += 1
        if nxt < 4096:
            table[key] = nxt
            nxt += 1
        else:
            bits.put(clear, w)
            table = {}
            w = mincode + 1
            nxt = eoi + 1
        ent = c
    bits.put(ent, w)
    if nxt > (1 << w) - 1 and w < 12:
        w += 1
    bits.put(eoi, w)
    return bits.done()


def gif_lzw_flat(npixels, colour, mincode, clear_when_full=True):
    """The LZW stream of npixels pixels of one colour, built from run lengths (a bomb)."""
    clear, eoi = 1 << mincode, (1 << mincode) + 1
    bits = BitsLSB()
    w, nxt = mincode + 1, eoi + 1
    bits.put(clear, w)
    run = {1: colour}
    longest, rem = 1, npixels
    while rem > 0:
        n = min(longest, rem)
        bits.put(run[n], w)
        if nxt > (1 << w) - 1 and w < 12:
            w += 1
        rem -= n
        if rem <= 0:
            break
        if nxt < 4096:
            if n == longest:
                run[longest + 1] = nxt
                longest += 1
            nxt += 1
        elif clear_when_full:
            bits.put(clear, w)
            run, longest = {1: colour}, 1
            w, nxt = mincode + 1, eoi + 1
    bits.put(eoi, w)
    return bits.done()


def sub_blocks(data, size=255):
    out = bytearray()
    for k in range(0, len(data), size):
        piece = data[k : k + size]
        out.append(len(piece))
        out += piece
    out.append(0)
    return bytes(out)


def gif_table_bits(ncolours):
    n = max(2, ncolours)
    return max(1, (n - 1).bit_length())


def gif_file(sw, sh, frames, *, gct=None, version=b"GIF89a", loop=None, bg=0):
    out = bytearray(version)
    packed = 0
    if gct is not None:
        tb = gif_table_bits(len(gct) // 3)
        gct = gct + bytes(3 * (1 << tb) - len(gct))
        packed = 0x80 | 0x70 | (tb - 1)
    out += struct.pack("<HHBBB", sw & 0xFFFF, sh & 0xFFFF, packed, bg, 0)
    if gct is not None:
        out += gct
    if loop is not None:
        out += b"\x21\xff\x0bNETSCAPE2.0\x03\x01" + le16(loop) + b"\0"
    for f in frames:
        if f.get("gce") is not None:
            disposal, delay, transparent = f["gce"]
            flags = (disposal << 2) | (1 if transparent is not None else 0)
            out += (
                b"\x21\xf9\x04" + bytes([flags]) + le16(delay) + bytes([transparent or 0]) + b"\0"
            )
        if f.get("comment"):
            out += b"\x21\xfe" + sub_blocks(f["comment"])
        lct = f.get("lct")
        fp = 0
        if lct is not None:
            tb = gif_table_bits(len(lct) // 3)
            lct = lct + bytes(3 * (1 << tb) - len(lct))
            fp = 0x80 | (tb - 1)
        if f.get("interlace"):
            fp |= 0x40
        out += b"\x2c" + struct.pack("<HHHHB", f["x"], f["y"], f["w"] & 0xFFFF, f["h"] & 0xFFFF, fp)
        if lct is not None:
            out += lct
        out.append(f["mincode"])
        out += sub_blocks(f["data"])
    out += b"\x3b"
    return bytes(out)


def gif_frame(rng, w, h, ncol, pattern, x=0, y=0, interlace=False, literal_only=False):
    rows = rows_of(rng, w, h, 1, pattern)
    table = bytes(i % ncol for i in range(256))
    rows = [r.translate(table) for r in rows]
    if interlace:
        order = (
            list(range(0, h, 8))
            + list(range(4, h, 8))
            + list(range(2, h, 4))
            + list(range(1, h, 2))
        )
        rows = [rows[k] for k in order]
    mincode = max(2, gif_table_bits(ncol))
    data = gif_lzw(b"".join(rows), mincode, literal_only)
    return {
        "x": x,
        "y": y,
        "w": w,
        "h": h,
        "mincode": mincode,
        "data": data,
        "interlace": interlace,
    }


def gen_gif(rng, hi=700, w=None, h=None, frames=None):
    if w is None:
        w, h = pick_size(rng, min(hi, 300))
    ncol = rng.choice((2, 4, 16, 64, 256, rng.randint(2, 256)))
    gct = rng.randbytes(3 * ncol)
    pattern = pick_pattern(rng, w, h)
    if frames is None:
        frames = 1 if rng.random() < 0.6 else rng.randint(2, 8)
    fl = []
    for k in range(frames):
        if k == 0:
            fw, fh, fx, fy = w, h, 0, 0
        else:
            fw, fh = rng.randint(1, w), rng.randint(1, h)
            fx, fy = rng.randint(0, w - fw), rng.randint(0, h - fh)
        fr = gif_frame(
            rng,
            fw,
            fh,
            ncol,
            pattern if k == 0 else pick_pattern(rng, fw, fh),
            fx,
            fy,
            interlace=rng.random() < 0.2,
            literal_only=rng.random() < 0.1,
        )
        if frames > 1 or rng.random() < 0.3:
            fr["gce"] = (
                rng.randrange(4),
                rng.randrange(20),
                rng.randrange(ncol) if rng.random() < 0.3 else None,
            )
        if rng.random() < 0.15:
            lc = rng.randint(ncol, 256)
            fr["lct"] = rng.randbytes(3 * lc)
        fl.append(fr)
    version = b"GIF87a" if frames == 1 and rng.random() < 0.2 and "gce" not in fl[0] else b"GIF89a"
    data = gif_file(w, h, fl, gct=gct, version=version, loop=0 if frames > 1 else None)
    detail = f"gif {w}x{h} {frames} frame(s) {ncol} colours {version.decode()} {pattern}"
    return data, "gif", detail


# --------------------------------------------------------------------------------------------
# WebP (containers, and a lossless bit stream of one colour)


def riff_chunk(fourcc, data, size=None):
    n = len(data) if size is None else size
    return fourcc + le32(n) + data + (b"\0" if len(data) % 2 else b"")


def riff_webp(chunks, size=None):
    body = b"WEBP" + b"".join(chunks)
    return b"RIFF" + le32(len(body) if size is None else size) + body


def vp8l_flat(w, h, argb):
    a, r, g, b = (argb >> 24) & 255, (argb >> 16) & 255, (argb >> 8) & 255, argb & 255
    bits = BitsLSB()
    bits.put(0x2F, 8)
    bits.put(w - 1, 14)
    bits.put(h - 1, 14)
    bits.put(1 if a != 255 else 0, 1)
    bits.put(0, 3)
    bits.put(0, 1)  # no transform
    bits.put(0, 1)  # no colour cache
    bits.put(0, 1)  # no meta prefix codes
    for sym in (g, r, b, a, 0):
        bits.put(1, 1)  # simple code
        bits.put(0, 1)  # one symbol
        if sym < 2:
            bits.put(0, 1)
            bits.put(sym, 1)
        else:
            bits.put(1, 1)
            bits.put(sym, 8)
    return bits.done()


def vp8x(flags, cw, ch):
    return riff_chunk(
        b"VP8X",
        bytes([flags, 0, 0, 0]) + (cw - 1).to_bytes(3, "little") + (ch - 1).to_bytes(3, "little"),
    )


def riff_chunks(data):
    """(offset, size, fourcc) of the chunks inside a RIFF WEBP file."""
    out = []
    p = 12
    while p + 8 <= len(data):
        n = struct.unpack("<I", data[p + 4 : p + 8])[0]
        out.append((p, n, data[p : p + 4]))
        p += 8 + n + (n & 1)
    return out


# --------------------------------------------------------------------------------------------
# Formats the program must refuse


def ico_bmp_image(rng, w, h, bpp):
    pattern = pick_pattern(rng, w, h)
    palette = b""
    if bpp <= 8:
        palette = b"".join(rng.randbytes(3) + b"\0" for _ in range(1 << bpp))
    stride = ((w * bpp + 31) // 32) * 4
    if bpp >= 8:
        rows = rows_of(rng, w, h, bpp // 8, pattern)
    else:
        rows = rows_of(rng, (w * bpp + 7) // 8, h, 1, pattern)
    xor = bmp_rows(rows, stride, False)
    mstride = ((w + 31) // 32) * 4
    andmask = bytes(mstride * h) if rng.random() < 0.7 else rng.randbytes(mstride * h)
    info = struct.pack("<IiiHHIIiiII", 40, w, 2 * h, 1, bpp, 0, len(xor) + len(andmask), 0, 0, 0, 0)
    return info + palette + xor + andmask


def ico_file(images, cur=False, count=None):
    """images: (w, h, bpp, data)"""
    n = len(images) if count is None else count
    out = bytearray(struct.pack("<HHH", 0, 2 if cur else 1, n))
    offset = 6 + 16 * len(images)
    blobs = []
    for w, h, bpp, data in images:
        if cur:
            a, b = w // 2 & 0xFFFF, h // 2 & 0xFFFF
        else:
            a, b = 1, bpp
        out += struct.pack("<BBBBHHII", w & 255, h & 255, 0, 0, a, b, len(data), offset)
        offset += len(data)
        blobs.append(data)
    return bytes(out) + b"".join(blobs)


def gen_ico(rng, hi=700, cur=False):
    images = []
    for _ in range(rng.choice((1, 1, 2, 3))):
        s = rng.choice((16, 24, 32, 48, 64, 128, 256))
        if rng.random() < 0.3:
            data = gen_png(rng, w=s, h=s, ctype=6, depth=8, interlace=0)[0]
            images.append((s, s, 32, data))
        else:
            bpp = rng.choice((1, 4, 8, 24, 32))
            images.append((s, s, bpp, ico_bmp_image(rng, s, s, bpp)))
    kinds = ",".join(f"{w}x{h}@{b}{'png' if d[:4] == PNG_SIG[:4] else ''}" for w, h, b, d in images)
    return ico_file(images, cur), "cur" if cur else "ico", f"{'cur' if cur else 'ico'} {kinds}"


def gen_pnm(rng, hi=700):
    w, h = pick_size(rng, min(hi, 200))
    kind = rng.choice("123456")
    pattern = pick_pattern(rng, w, h)
    maxval = rng.choice((255, 255, 65535, 15))
    if kind in "14":
        header = f"P{kind}\n# clarovi\n{w} {h}\n".encode()
        rows = rows_of(rng, (w + 7) // 8, h, 1, pattern)
        if kind == "4":
            body = b"".join(rows)
        else:
            body = (
                "\n".join(
                    " ".join(str((r[x // 8] >> (7 - x % 8)) & 1) for x in range(w)) for r in rows
                ).encode()
                + b"\n"
            )
        ext = "pbm"
    else:
        ch = 1 if kind in "25" else 3
        ext = "pgm" if ch == 1 else "ppm"
        header = f"P{kind}\n{w} {h}\n{maxval}\n".encode()
        wide = maxval > 255
        rows = rows_of(rng, w, h, ch * (2 if wide else 1), pattern)
        if kind in "56":
            if wide:
                body = b"".join(rows)
            else:
                body = b"".join(
                    r.translate(bytes(v * maxval // 255 for v in range(256))) for r in rows
                )
        else:
            vals = []
            for r in rows:
                if wide:
                    vals.append(
                        " ".join(
                            str(((r[i] << 8) | r[i + 1]) % (maxval + 1))
                            for i in range(0, len(r), 2)
                        )
                    )
                else:
                    vals.append(" ".join(str(v * maxval // 255) for v in r))
            body = "\n".join(vals).encode() + b"\n"
    return header + body, ext, f"pnm P{kind} {w}x{h} maxval={maxval} {pattern}"


XPM_CHARS = (
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.+@#$%&*=-;>,')!~{]^/(_:<[}|"
)


def gen_xpm_py(rng, hi=700):
    w, h = pick_size(rng, min(hi, 160))
    cpp = rng.choice((1, 1, 2))
    ncol = rng.randint(1, 60 if cpp == 1 else 300)
    keys = []
    for k in range(ncol):
        if cpp == 1:
            keys.append(XPM_CHARS[k % len(XPM_CHARS)])
        else:
            keys.append(XPM_CHARS[k // len(XPM_CHARS)] + XPM_CHARS[k % len(XPM_CHARS)])
    lines = [f"{w} {h} {ncol} {cpp}"]
    for k in keys:
        colour = "None" if rng.random() < 0.05 else "#%06X" % rng.randrange(1 << 24)
        lines.append(f"{k} c {colour}")
    pattern = pick_pattern(rng, w, h)
    for r in rows_of(rng, w, h, 1, pattern):
        lines.append("".join(keys[v % ncol] for v in r))
    text = (
        "/* XPM */\nstatic char *clarovi[] = {\n"
        + ",\n".join('"' + line.replace("\\", "\\\\").replace('"', '\\"') + '"' for line in lines)
        + "\n};\n"
    )
    return text.encode(), "xpm", f"xpm {w}x{h} {ncol} colours cpp={cpp} {pattern}"


def gen_xbm_py(rng, hi=700):
    w, h = pick_size(rng, min(hi, 200))
    data = rng.randbytes(((w + 7) // 8) * h)
    body = ", ".join("0x%02x" % b for b in data)
    text = (
        f"#define clarovi_width {w}\n#define clarovi_height {h}\n"
        f"static unsigned char clarovi_bits[] = {{\n{body} }};\n"
    )
    return text.encode(), "xbm", f"xbm {w}x{h}"


def tga_rle(pixels, px):
    out = bytearray()
    n = len(pixels) // px
    i = 0
    while i < n:
        j = i + 1
        while (
            j < n and j - i < 128 and pixels[j * px : (j + 1) * px] == pixels[i * px : (i + 1) * px]
        ):
            j += 1
        if j - i > 1:
            out.append(0x80 | (j - i - 1))
            out += pixels[i * px : (i + 1) * px]
            i = j
            continue
        j = i + 1
        while (
            j < n
            and j - i < 128
            and (j + 1 >= n or pixels[j * px : (j + 1) * px] != pixels[(j + 1) * px : (j + 2) * px])
        ):
            j += 1
        out.append(j - i - 1)
        out += pixels[i * px : j * px]
        i = j
    return bytes(out)


def tga_file(
    w,
    h,
    itype,
    depth,
    pixels,
    *,
    cmap=b"",
    cmap_depth=0,
    top=False,
    ident=b"",
    footer=True,
    alpha_bits=0,
):
    ncmap = len(cmap) // max(1, cmap_depth // 8)
    header = struct.pack(
        "<BBBHHBHHHHBB",
        len(ident),
        1 if cmap else 0,
        itype,
        0,
        ncmap,
        cmap_depth,
        0,
        0,
        w & 0xFFFF,
        h & 0xFFFF,
        depth,
        (0x20 if top else 0) | alpha_bits,
    )
    out = header + ident + cmap + pixels
    if footer:
        out += bytes(8) + b"TRUEVISION-XFILE.\0"
    return out


def gen_tga(rng, hi=700):
    w, h = pick_size(rng, min(hi, 200))
    kind = rng.choice(("rgb24", "rgba32", "grey", "mapped", "rgb16"))
    rle = rng.random() < 0.4
    pattern = pick_pattern(rng, w, h)
    cmap, cd = b"", 0
    if kind == "rgb24":
        itype, depth, px = 2, 24, 3
    elif kind == "rgba32":
        itype, depth, px = 2, 32, 4
    elif kind == "rgb16":
        itype, depth, px = 2, 16, 2
    elif kind == "grey":
        itype, depth, px = 3, 8, 1
    else:
        itype, depth, px = 1, 8, 1
        cmap, cd = rng.randbytes(3 * 256), 24
    pixels = b"".join(rows_of(rng, w, h, px, pattern))
    if rle:
        itype += 8
        pixels = tga_rle(pixels, px)
    data = tga_file(
        w,
        h,
        itype,
        depth,
        pixels,
        cmap=cmap,
        cmap_depth=cd,
        top=rng.random() < 0.5,
        footer=rng.random() < 0.5,
        alpha_bits=8 if depth == 32 else 0,
    )
    return data, "tga", f"tga {w}x{h} {kind}{' rle' if rle else ''} {pattern}"


def mng_file(mw, mh, pngs, simplicity=1, frames=0):
    out = [
        MNG_SIG,
        chunk(
            b"MHDR",
            struct.pack(">7I", mw & 0xFFFFFFFF, mh & 0xFFFFFFFF, 1, 0, frames, 0, simplicity),
        ),
    ]
    for p in pngs:
        out.append(p[8:])
    out.append(chunk(b"MEND", b""))
    return b"".join(out)


def gen_mng(rng, hi=700):
    w, h = pick_size(rng, min(hi, 200))
    n = rng.choice((1, 1, 2, 3))
    pngs = [
        gen_png(rng, w=w, h=h, ctype=rng.choice((2, 6, 0)), depth=8, interlace=0)[0]
        for _ in range(n)
    ]
    return mng_file(w, h, pngs, frames=n), "mng", f"mng {w}x{h} {n} frame(s)"


def wbmp_int(v):
    groups = []
    while True:
        groups.append(v & 0x7F)
        v >>= 7
        if not v:
            break
    groups.reverse()
    return bytes([g | 0x80 for g in groups[:-1]] + [groups[-1]])


def gen_wbmp(rng, hi=700):
    w, h = pick_size(rng, min(hi, 300))
    rows = rows_of(rng, (w + 7) // 8, h, 1, pick_pattern(rng, w, h))
    return b"\0\0" + wbmp_int(w) + wbmp_int(h) + b"".join(rows), "wbmp", f"wbmp {w}x{h}"


def gen_svg(rng, hi=700):
    w, h = pick_size(rng, hi)
    shapes = []
    for _ in range(rng.randint(1, 20)):
        shapes.append(
            '<rect x="%d" y="%d" width="%d" height="%d" fill="#%06x"/>'
            % (
                rng.randrange(w),
                rng.randrange(h),
                rng.randint(1, w),
                rng.randint(1, h),
                rng.randrange(1 << 24),
            )
        )
    text = (
        '<?xml version="1.0" encoding="UTF-8"?>\n'
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{w}" height="{h}" '
        f'viewBox="0 0 {w} {h}">\n' + "\n".join(shapes) + "\n</svg>\n"
    )
    data = text.encode()
    if rng.random() < 0.2:
        import gzip

        return gzip.compress(data, mtime=0), "svgz", f"svgz {w}x{h}"
    return data, "svg", f"svg {w}x{h} {len(shapes)} rectangles"


# --------------------------------------------------------------------------------------------
# Qt's writers, through encode_seed.cpp


class QtEncoder:
    def __init__(self, workdir):
        source = os.path.join(HERE, "encode_seed.cpp")
        with open(source, "rb") as f:
            digest = hashlib.sha1(f.read()).hexdigest()[:12]
        self.binary = os.path.join(tempfile.gettempdir(), f"clarovi-encode-seed-{digest}")
        if not os.path.exists(self.binary):
            flags = subprocess.run(
                ["pkg-config", "--cflags", "--libs", "Qt6Gui"],
                check=True,
                capture_output=True,
                text=True,
            ).stdout.split()
            tmp = self.binary + ".part%d" % os.getpid()
            subprocess.run(
                ["g++", "-std=c++20", "-O1", "-fPIC", source, "-o", tmp] + flags, check=True
            )
            os.replace(tmp, self.binary)
        env = dict(os.environ, QT_QPA_PLATFORM="offscreen")
        env.setdefault("XDG_RUNTIME_DIR", workdir)
        self.out = os.path.join(workdir, "qt-out")
        self.proc = subprocess.Popen(
            [self.binary],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
            text=True,
            env=env,
            bufsize=1,
        )
        self.count = 0
        self.cache = {}

    def encode(self, fmt, w, h, pixels, pattern, seed, **opts):
        key = (fmt, w, h, pixels, pattern, seed, tuple(sorted(opts.items())))
        if key in self.cache:
            return self.cache[key]
        ext = {"jpeg": "jpg"}.get(fmt, fmt)
        path = f"{self.out}.{ext}"
        fields = [path, fmt, str(w), str(h), pixels, pattern, str(seed)]
        fields += [f"{k}={v}" for k, v in opts.items()]
        self.proc.stdin.write(" ".join(fields) + "\n")
        self.proc.stdin.flush()
        answer = self.proc.stdout.readline().strip()
        self.count += 1
        data = None
        if answer == "ok":
            with open(path, "rb") as f:
                data = f.read()
            os.unlink(path)
        if w * h <= 1 << 16:
            self.cache[key] = data
        return data

    def close(self):
        self.proc.stdin.close()
        self.proc.wait()


QT = None


def mono_width(w, pixels):
    """Qt's 1-bit conversions leave the padding bits of each row unset: keep rows whole bytes."""
    return (w + 7) // 8 * 8 if pixels == "mono" else w


def qt_image(rng, fmt, w, h, pixels=None, pattern=None, **opts):
    pattern = pattern or pick_pattern(rng, w, h)
    pixels = pixels or "rgb32"
    w = mono_width(w, pixels)
    data = QT.encode(fmt, w, h, pixels, pattern, rng.randrange(1 << 48), **opts)
    if data is None:
        raise RuntimeError(f"Qt could not write {fmt} {w}x{h} {pixels}")
    return data, pattern


def gen_jpeg(rng, hi=700, w=None, h=None, progressive=None):
    if w is None:
        w, h = pick_size(rng, hi)
    if progressive is None and rng.random() < 0.25:
        comps, adobe, what = rng.choice(
            (
                ([(1, 1, 1), (2, 1, 1), (3, 1, 1), (4, 1, 1)], 0, "cmyk"),
                ([(1, 2, 2), (2, 1, 1), (3, 1, 1), (4, 2, 2)], 2, "ycck 2x2"),
                ([(1, 1, 1), (2, 1, 1), (3, 1, 1), (4, 1, 1)], 2, "ycck"),
                ([(1, 2, 2), (2, 1, 1), (3, 1, 1)], None, "ycbcr 4:2:0"),
                ([(1, 2, 1), (2, 1, 1), (3, 1, 1)], None, "ycbcr 4:2:2"),
                ([(1, 1, 2), (2, 1, 1), (3, 1, 1)], None, "ycbcr 4:4:0"),
                ([(1, 1, 1)], None, "grey"),
                ([(1, 1, 1), (2, 1, 1), (3, 1, 1)], 0, "adobe rgb"),
            )
        )
        pattern = pick_pattern(rng, w, h)
        restart = rng.choice((0, 0, 1, 3, 17))
        data = jpeg_dc(rng, w, h, comps, pattern, restart=restart, adobe=adobe, jfif=adobe is None)
        return data, "jpg", f"jpeg {w}x{h} baseline {what} flat blocks restart={restart} {pattern}"
    pixels = rng.choice(("rgb32", "rgb32", "grey8", "argb32"))
    prog = rng.random() < 0.35 if progressive is None else progressive
    quality = rng.choice((1, 10, 50, 75, 90, 95, 100, rng.randint(1, 100)))
    opt = rng.random() < 0.3
    data, pattern = qt_image(
        rng, "jpeg", w, h, pixels, quality=quality, progressive=int(prog), optimized=int(opt)
    )
    return (
        data,
        "jpg",
        (
            f"jpeg {w}x{h} {'progressive' if prog else 'baseline'} {pixels} "
            f"quality={quality}{' optimized' if opt else ''} {pattern}"
        ),
    )


def gen_webp(rng, hi=700, w=None, h=None):
    if w is None:
        w, h = pick_size(rng, hi)
    if rng.random() < 0.1:
        argb = rng.randrange(1 << 32)
        data = riff_webp([riff_chunk(b"VP8L", vp8l_flat(w, h, argb))])
        return data, "webp", f"webp {w}x{h} lossless one colour {argb:08x} (hand-written)"
    pixels = rng.choice(("rgb32", "argb32"))
    quality = rng.choice((100, 100, 1, 50, 75, 90, rng.randint(0, 99)))
    data, pattern = qt_image(rng, "webp", w, h, pixels, quality=quality)
    kind = "lossless" if quality >= 100 else f"lossy quality={quality}"
    return data, "webp", f"webp {w}x{h} {kind} {pixels} {pattern}"


def gen_tiff(rng, hi=700, w=None, h=None):
    if rng.random() < 0.25:
        if w is None:
            w, h = pick_size(rng, hi)
        pixels = rng.choice(("rgb32", "argb32", "grey8", "grey16", "indexed8", "mono", "rgba64"))
        w = mono_width(w, pixels)
        comp = rng.choice((0, 1))
        data, pattern = qt_image(rng, "tiff", w, h, pixels, compression=comp)
        return data, "tif", f"tiff {w}x{h} {pixels} {'lzw' if comp else 'none'} (Qt) {pattern}"
    return gen_tiff_py(rng, hi, w, h)


def gen_bmp(rng, hi=700, w=None, h=None):
    if rng.random() < 0.15:
        if w is None:
            w, h = pick_size(rng, hi)
        pixels = rng.choice(("rgb32", "argb32", "indexed8", "mono", "grey8"))
        w = mono_width(w, pixels)
        data, pattern = qt_image(rng, "bmp", w, h, pixels)
        return data, "bmp", f"bmp {w}x{h} {pixels} (Qt) {pattern}"
    return gen_bmp_py(rng, hi, w, h)


def gen_qt_simple(fmt, ext, pixel_choices, hi_cap):
    def gen(rng, hi=700):
        w, h = pick_size(rng, min(hi, hi_cap))
        if fmt == "icns":
            w = h = rng.choice((16, 32, 64, 128, 256))
        pixels = rng.choice(pixel_choices)
        w = mono_width(w, pixels)
        data, pattern = qt_image(rng, fmt, w, h, pixels)
        return data, ext, f"{fmt} {w}x{h} {pixels} (Qt) {pattern}"

    return gen


def gen_png_qt(rng, hi=700):
    w, h = pick_size(rng, hi)
    pixels = rng.choice(("rgb32", "argb32", "grey8", "grey16", "indexed8", "mono", "rgba64"))
    w = mono_width(w, pixels)
    data, pattern = qt_image(rng, "png", w, h, pixels, quality=rng.choice((0, 50, 100)))
    return data, "png", f"png {w}x{h} {pixels} (Qt) {pattern}"


VALID = {
    "png": lambda rng, hi=700: gen_png_qt(rng, hi) if rng.random() < 0.15 else gen_png(rng, hi),
    "jpeg": gen_jpeg,
    "tiff": gen_tiff,
    "bmp": gen_bmp,
    "gif": gen_gif,
    "webp": gen_webp,
}

REFUSED = {
    "ico": gen_ico,
    "cur": lambda rng, hi=700: gen_ico(rng, hi, cur=True),
    "pnm": lambda rng, hi=700: gen_pnm_any(rng, hi),
    "xpm": lambda rng, hi=700: gen_xpm_py(rng, hi)
    if rng.random() < 0.5
    else gen_qt_simple("xpm", "xpm", ("rgb32", "argb32", "indexed8"), 150)(rng, hi),
    "xbm": lambda rng, hi=700: gen_xbm_py(rng, hi)
    if rng.random() < 0.5
    else gen_qt_simple("xbm", "xbm", ("mono",), 200)(rng, hi),
    "tga": gen_tga,
    "mng": gen_mng,
    "wbmp": lambda rng, hi=700: gen_wbmp(rng, hi)
    if rng.random() < 0.5
    else gen_qt_simple("wbmp", "wbmp", ("mono", "rgb32"), 300)(rng, hi),
    "icns": gen_qt_simple("icns", "icns", ("rgb32", "argb32"), 256),
    "svg": gen_svg,
}


def gen_pnm_any(rng, hi=700):
    if rng.random() < 0.6:
        return gen_pnm(rng, hi)
    fmt = rng.choice(("ppm", "pgm", "pbm"))
    return gen_qt_simple(fmt, fmt, ("rgb32", "grey8", "mono"), 300)(rng, hi)


ACCEPTED_EXTS = ("png", "jpg", "jpeg", "tif", "tiff", "bmp", "gif", "webp")


def content_format(data):
    if data.startswith(PNG_SIG):
        return "png"
    if data.startswith(MNG_SIG):
        return "mng"
    if data.startswith(b"\xff\xd8"):
        return "jpeg"
    if data[:6] in (b"GIF87a", b"GIF89a"):
        return "gif"
    if data[:2] == b"BM":
        return "bmp"
    if data[:4] in (b"II*\0", b"MM\0*"):
        return "tiff"
    if data[:4] == b"RIFF" and data[8:12] == b"WEBP":
        return "webp"
    if data[:4] in (b"\0\0\1\0", b"\0\0\2\0"):
        return "ico"
    if data[:4] == b"icns":
        return "icns"
    if data[:1] == b"P" and data[1:2] in b"1234567":
        return "pnm"
    if b"XPM" in data[:20]:
        return "xpm"
    if data[:7] == b"#define":
        return "xbm"
    if b"<svg" in data[:300] or data[:2] == b"\x1f\x8b":
        return "svg"
    return "other"


# --------------------------------------------------------------------------------------------
# Mutations


class Field:
    __slots__ = ("off", "size", "endian", "name")

    def __init__(self, off, size, endian, name):
        self.off, self.size, self.endian, self.name = off, size, endian, name


def fields_png(data, start=8):
    out = []
    for p, n, kind in png_chunks(data, start):
        out.append(Field(p, 4, ">", f"{kind.decode('latin-1')}.length"))
        if kind == b"IHDR" and p + 21 <= len(data):
            out += [
                Field(p + 8, 4, ">", "IHDR.width"),
                Field(p + 12, 4, ">", "IHDR.height"),
                Field(p + 16, 1, ">", "IHDR.bit-depth"),
                Field(p + 17, 1, ">", "IHDR.colour-type"),
                Field(p + 18, 1, ">", "IHDR.compression"),
                Field(p + 19, 1, ">", "IHDR.filter"),
                Field(p + 20, 1, ">", "IHDR.interlace"),
            ]
        if kind == b"MHDR" and p + 36 <= len(data):
            out += [
                Field(p + 8, 4, ">", "MHDR.width"),
                Field(p + 12, 4, ">", "MHDR.height"),
                Field(p + 24, 4, ">", "MHDR.frames"),
            ]
        if kind == b"IDAT" and p + 10 <= len(data):
            out.append(Field(p + 8, 2, ">", "IDAT.zlib-header"))
    return out


def fields_jpeg(data):
    out = []
    for s, e, m in jpeg_segments(data):
        if e - s < 4 or m in (0xD8, 0xD9) or 0xD0 <= m <= 0xD7:
            continue
        out.append(Field(s + 2, 2, ">", "%02X.length" % m))
        if m in (0xC0, 0xC1, 0xC2, 0xC3, 0xC9, 0xCA) and s + 10 <= len(data):
            out += [
                Field(s + 4, 1, ">", "SOF.precision"),
                Field(s + 5, 2, ">", "SOF.height"),
                Field(s + 7, 2, ">", "SOF.width"),
                Field(s + 9, 1, ">", "SOF.components"),
            ]
            for k in range(min(4, data[s + 9])):
                if s + 12 + 3 * k < len(data):
                    out += [
                        Field(s + 10 + 3 * k, 1, ">", "SOF.component-id"),
                        Field(s + 11 + 3 * k, 1, ">", "SOF.sampling"),
                        Field(s + 12 + 3 * k, 1, ">", "SOF.quant-table"),
                    ]
            out.append(Field(s + 1, 1, ">", "SOF.marker"))
        elif m == 0xDA and s + 5 <= len(data):
            ns = data[s + 4]
            out.append(Field(s + 4, 1, ">", "SOS.components"))
            for k in range(min(4, ns)):
                if s + 6 + 2 * k < len(data):
                    out += [
                        Field(s + 5 + 2 * k, 1, ">", "SOS.component-id"),
                        Field(s + 6 + 2 * k, 1, ">", "SOS.tables"),
                    ]
            q = s + 5 + 2 * ns
            if q + 3 <= len(data):
                out += [
                    Field(q, 1, ">", "SOS.Ss"),
                    Field(q + 1, 1, ">", "SOS.Se"),
                    Field(q + 2, 1, ">", "SOS.AhAl"),
                ]
        elif m == 0xC4 and s + 21 <= len(data):
            out.append(Field(s + 4, 1, ">", "DHT.class-id"))
            for k in range(16):
                out.append(Field(s + 5 + k, 1, ">", "DHT.count"))
        elif m == 0xDB and s + 5 <= len(data):
            out.append(Field(s + 4, 1, ">", "DQT.precision-id"))
        elif m == 0xDD and s + 6 <= len(data):
            out.append(Field(s + 4, 2, ">", "DRI.interval"))
    return out


TIFF_NAMES = {
    256: "width",
    257: "height",
    258: "bits-per-sample",
    259: "compression",
    262: "photometric",
    273: "strip-offsets",
    277: "samples-per-pixel",
    278: "rows-per-strip",
    279: "strip-byte-counts",
    284: "planar",
    320: "colour-map",
    322: "tile-width",
    323: "tile-length",
    324: "tile-offsets",
    325: "tile-byte-counts",
    338: "extra-samples",
    339: "sample-format",
    317: "predictor",
}


def tiff_entries(data):
    """(entry offset, tag, type, count) of the first IFD, and the byte order."""
    if len(data) < 8:
        return "<", 0, []
    e = ">" if data[:2] == b"MM" else "<"
    ifd = struct.unpack(e + "I", data[4:8])[0]
    if ifd + 2 > len(data):
        return e, ifd, []
    n = struct.unpack(e + "H", data[ifd : ifd + 2])[0]
    out = []
    for k in range(n):
        p = ifd + 2 + 12 * k
        if p + 12 > len(data):
            break
        tag, typ, count = struct.unpack(e + "HHI", data[p : p + 8])
        out.append((p, tag, typ, count))
    return e, ifd, out


def fields_tiff(data):
    e, ifd, entries = tiff_entries(data)
    out = [Field(4, 4, e, "header.ifd-offset")]
    if ifd + 2 <= len(data):
        out.append(Field(ifd, 2, e, "IFD.count"))
    for p, tag, typ, count in entries:
        name = TIFF_NAMES.get(tag, str(tag))
        out += [Field(p + 2, 2, e, f"{name}.type"), Field(p + 4, 4, e, f"{name}.count")]
        size = TIFF_SIZES.get(typ, 1) * count
        if size <= 4:
            out.append(
                Field(p + 8, TIFF_SIZES.get(typ, 4) if typ in (3, 4) else 4, e, f"{name}.value")
            )
        else:
            out.append(Field(p + 8, 4, e, f"{name}.offset"))
            off = struct.unpack(e + "I", data[p + 8 : p + 12])[0]
            if typ in (3, 4) and off + size <= len(data):
                for k in range(min(count, 4)):
                    out.append(Field(off + k * TIFF_SIZES[typ], TIFF_SIZES[typ], e, f"{name}[{k}]"))
    if entries:
        last = entries[-1][0] + 12
        if last + 4 <= len(data):
            out.append(Field(last, 4, e, "IFD.next"))
    return out


def fields_bmp(data):
    out = [
        Field(2, 4, "<", "file-size"),
        Field(10, 4, "<", "pixel-offset"),
        Field(14, 4, "<", "header-size"),
    ]
    if len(data) >= 26 and struct.unpack("<I", data[14:18])[0] == 12:
        return out + [
            Field(18, 2, "<", "width"),
            Field(20, 2, "<", "height"),
            Field(24, 2, "<", "bit-count"),
        ]
    return out + [
        Field(18, 4, "<", "width"),
        Field(22, 4, "<", "height"),
        Field(26, 2, "<", "planes"),
        Field(28, 2, "<", "bit-count"),
        Field(30, 4, "<", "compression"),
        Field(34, 4, "<", "image-size"),
        Field(46, 4, "<", "colours-used"),
        Field(54, 4, "<", "mask-or-palette"),
    ]


def gif_blocks(data):
    """(offset, kind, end) of the blocks after the header; kind is 'image', 'ext' or 'trailer'."""
    out = []
    if len(data) < 13:
        return out
    p = 13
    if data[10] & 0x80:
        p += 3 * (2 << (data[10] & 7))
    while p < len(data):
        b = data[p]
        if b == 0x3B:
            out.append((p, "trailer", p + 1))
            break
        if b == 0x21:
            q = p + 2
        elif b == 0x2C:
            if p + 10 > len(data):
                break
            q = p + 10
            if data[p + 9] & 0x80:
                q += 3 * (2 << (data[p + 9] & 7))
            q += 1
        else:
            break
        while q < len(data) and data[q]:
            q += 1 + data[q]
        q += 1
        out.append((p, "image" if b == 0x2C else "ext", min(q, len(data))))
        p = q
    return out


def fields_gif(data):
    out = [
        Field(6, 2, "<", "screen-width"),
        Field(8, 2, "<", "screen-height"),
        Field(10, 1, "<", "screen-flags"),
    ]
    for p, kind, end in gif_blocks(data):
        if kind == "image":
            out += [
                Field(p + 1, 2, "<", "frame-left"),
                Field(p + 3, 2, "<", "frame-top"),
                Field(p + 5, 2, "<", "frame-width"),
                Field(p + 7, 2, "<", "frame-height"),
                Field(p + 9, 1, "<", "frame-flags"),
            ]
            q = p + 10 + (3 * (2 << (data[p + 9] & 7)) if data[p + 9] & 0x80 else 0)
            if q + 2 <= len(data):
                out += [
                    Field(q, 1, "<", "lzw-minimum-code-size"),
                    Field(q + 1, 1, "<", "sub-block-size"),
                ]
        elif kind == "ext" and p + 3 <= len(data):
            out.append(Field(p + 2, 1, "<", "extension-size"))
    return out


def fields_webp(data):
    out = [Field(4, 4, "<", "RIFF.size")]
    for p, n, fourcc in riff_chunks(data):
        name = fourcc.decode("latin-1")
        out.append(Field(p + 4, 4, "<", f"{name}.size"))
        if fourcc == b"VP8L" and p + 13 <= len(data):
            out += [Field(p + 9, 4, "<", "VP8L.dimensions"), Field(p + 8, 1, "<", "VP8L.signature")]
        elif fourcc == b"VP8 " and p + 18 <= len(data):
            out += [
                Field(p + 14, 2, "<", "VP8.width"),
                Field(p + 16, 2, "<", "VP8.height"),
                Field(p + 8, 3, "<", "VP8.frame-tag"),
            ]
        elif fourcc == b"VP8X" and p + 18 <= len(data):
            out += [
                Field(p + 8, 1, "<", "VP8X.flags"),
                Field(p + 12, 3, "<", "VP8X.canvas-width"),
                Field(p + 15, 3, "<", "VP8X.canvas-height"),
            ]
        elif fourcc == b"ANMF" and p + 24 <= len(data):
            out += [Field(p + 14, 3, "<", "ANMF.width"), Field(p + 17, 3, "<", "ANMF.height")]
    return out


def fields_ico(data):
    out = [Field(2, 2, "<", "type"), Field(4, 2, "<", "count")]
    if len(data) < 6:
        return out
    n = struct.unpack("<H", data[4:6])[0]
    for k in range(min(n, 8)):
        p = 6 + 16 * k
        if p + 16 > len(data):
            break
        out += [
            Field(p, 1, "<", "entry.width"),
            Field(p + 1, 1, "<", "entry.height"),
            Field(p + 6, 2, "<", "entry.bit-count"),
            Field(p + 8, 4, "<", "entry.size"),
            Field(p + 12, 4, "<", "entry.offset"),
        ]
        off = struct.unpack("<I", data[p + 12 : p + 16])[0]
        if off + 16 <= len(data):
            if data[off : off + 8] == PNG_SIG:
                out += [Field(off + 16, 4, ">", "png.width"), Field(off + 20, 4, ">", "png.height")]
            else:
                out += [
                    Field(off + 4, 4, "<", "dib.width"),
                    Field(off + 8, 4, "<", "dib.height"),
                    Field(off + 14, 2, "<", "dib.bit-count"),
                ]
    return out


def fields_tga(data):
    return [
        Field(0, 1, "<", "id-length"),
        Field(1, 1, "<", "colour-map-type"),
        Field(2, 1, "<", "image-type"),
        Field(5, 2, "<", "colour-map-length"),
        Field(7, 1, "<", "colour-map-depth"),
        Field(12, 2, "<", "width"),
        Field(14, 2, "<", "height"),
        Field(16, 1, "<", "depth"),
        Field(17, 1, "<", "descriptor"),
    ]


def fields_of(data):
    fmt = content_format(data)
    if fmt == "png":
        return fmt, fields_png(data)
    if fmt == "mng":
        return fmt, fields_png(data)
    if fmt == "jpeg":
        return fmt, fields_jpeg(data)
    if fmt == "tiff":
        return fmt, fields_tiff(data)
    if fmt == "bmp":
        return fmt, fields_bmp(data)
    if fmt == "gif":
        return fmt, fields_gif(data)
    if fmt == "webp":
        return fmt, fields_webp(data)
    if fmt == "ico":
        return fmt, fields_ico(data)
    if fmt == "other" and len(data) > 18 and data[2] in (1, 2, 3, 9, 10, 11):
        return "tga", fields_tga(data)
    return fmt, []


def interesting_value(rng, size, orig, name):
    bits = size * 8
    top = (1 << bits) - 1
    c = [
        0,
        1,
        2,
        top,
        top - 1,
        1 << (bits - 1),
        (1 << (bits - 1)) - 1,
        orig + 1,
        orig - 1,
        orig * 2,
        orig * 256,
        rng.randrange(top + 1),
    ]
    if bits >= 16:
        c += [255, 256, 16383, 16384, 65500, 65535, 8191]
    if bits >= 24:
        c += [65536, 30000, 100000, 1 << 24, (1 << 24) - 1]
    if bits >= 32:
        c += [0x40000000, 100_000_000, 100_000_001, 10000, 1_000_000, 0x7FFFFFF0, 0xFFFFFFF8]
    if bits == 8:
        c += [3, 4, 5, 7, 9, 12, 15, 16, 17, 31, 32, 33, 64, 0x11, 0x22, 0x44, 0xF0]
    return rng.choice(c) & top


def set_field(buf, f, value):
    if f.off + f.size > len(buf):
        return
    raw = value.to_bytes(f.size, "big" if f.endian == ">" else "little")
    buf[f.off : f.off + f.size] = raw


def get_field(data, f):
    raw = data[f.off : f.off + f.size]
    return int.from_bytes(raw, "big" if f.endian == ">" else "little")


TEXT_NUMBER = re.compile(rb"\d+")


def mutate_header(rng, data):
    fmt, fields = fields_of(data)
    if not fields:
        numbers = list(TEXT_NUMBER.finditer(data[:4096]))
        if not numbers:
            return mutate_overwrite(rng, data)
        buf = bytearray(data)
        done = []
        for _ in range(rng.randint(1, 3)):
            m = rng.choice(numbers)
            new = str(
                rng.choice(
                    (
                        0,
                        -1,
                        -2147483648,
                        2147483647,
                        4294967296,
                        999999999,
                        65536,
                        100000,
                        99999999999999999999,
                        rng.randrange(10**9),
                    )
                )
            ).encode()
            done.append(f"number {m.group().decode()}->{new.decode()}")
            buf = buf[: m.start()] + new + buf[m.end() :]
            numbers = list(TEXT_NUMBER.finditer(bytes(buf[:4096])))
            if not numbers:
                break
        return bytes(buf), "text-number", "; ".join(done)
    buf = bytearray(data)
    dims = [
        f for f in fields if any(k in f.name for k in ("width", "height", "dimension", "canvas"))
    ]
    changes = []
    for _ in range(rng.choice((1, 1, 1, 2, 3))):
        pool = dims if dims and rng.random() < 0.45 else fields
        f = rng.choice(pool)
        old = get_field(buf, f)
        new = interesting_value(rng, f.size, old, f.name)
        set_field(buf, f, new)
        changes.append(f"{f.name} {old}->{new}")
    fixed = ""
    if fmt in ("png", "mng") and rng.random() < 0.8:
        buf = bytearray(png_fix_crcs(bytes(buf)))
        fixed = " (crc fixed)"
    return bytes(buf), fmt + "-fields", "; ".join(changes) + fixed


def mutate_truncate(rng, data):
    n = len(data)
    r = rng.random()
    if n <= 1:
        return b"", "truncate", "to 0 bytes"
    if r < 0.3:
        cut = rng.randint(1, min(n - 1, 64))
    elif r < 0.45:
        cut = n - rng.randint(1, min(n - 1, 16))
    else:
        cut = rng.randint(1, n - 1)
    return data[:cut], "truncate", f"cut at {cut} of {n} bytes"


def fix_png_maybe(rng, data, buf):
    if content_format(data) in ("png", "mng") and rng.random() < 0.5:
        return png_fix_crcs(bytes(buf)), " (crc fixed)"
    return bytes(buf), ""


def mutate_bitflip(rng, data):
    if not data:
        return data, "bitflip", "empty"
    buf = bytearray(data)
    k = rng.choice((1, 1, 2, 3, 5, 8, 13, 20, 35, 50))
    head = rng.random() < 0.5
    where = []
    for _ in range(k):
        p = rng.randrange(min(len(buf), 512)) if head else rng.randrange(len(buf))
        buf[p] ^= 1 << rng.randrange(8)
        where.append(p)
    out, fixed = fix_png_maybe(rng, data, buf)
    return out, "bitflip", f"{k} bit(s) at {sorted(where)[:8]}{'...' if k > 8 else ''}{fixed}"


def mutate_overwrite(rng, data):
    if not data:
        return data, "overwrite", "empty"
    buf = bytearray(data)
    n = len(buf)
    length = min(n, rng.choice((1, 2, 4, 8, 16, 64, 256, max(1, n // 10))))
    p = rng.randrange(max(1, n - length + 1)) if rng.random() < 0.6 else rng.randrange(min(n, 256))
    how = rng.choice(("zeros", "ones", "random", "byte", "copy"))
    if how == "zeros":
        run = bytes(length)
    elif how == "ones":
        run = b"\xff" * length
    elif how == "random":
        run = rng.randbytes(length)
    elif how == "byte":
        run = bytes([rng.randrange(256)]) * length
    else:
        q = rng.randrange(max(1, n - length + 1))
        run = bytes(buf[q : q + length])
    buf[p : p + len(run)] = run
    buf = buf[:n]
    out, fixed = fix_png_maybe(rng, data, buf)
    return out, "overwrite", f"{length} bytes at {p} with {how}{fixed}"


def mutate_chunks(rng, data):
    fmt = content_format(data)
    if fmt in ("png", "mng"):
        chunks = [(p, p + 12 + n, t) for p, n, t in png_chunks(data)]
        if not chunks:
            return mutate_generic_slices(rng, data)
        sig = data[:8]
        parts = [data[s:e] for s, e, _ in chunks]
        names = [t.decode("latin-1") for _, _, t in chunks]
        op = rng.choice(
            (
                "dup",
                "remove",
                "remove-critical",
                "swap",
                "unknown-critical",
                "unknown-ancillary",
                "split-idat",
                "second-ihdr",
                "many-text",
                "empty-idat",
                "iend-early",
            )
        )
        if op == "dup":
            k = rng.randrange(len(parts))
            times = rng.choice((1, 1, 2, 10))
            at = k + 1 if rng.random() < 0.7 else rng.randrange(len(parts) + 1)
            parts[at:at] = [parts[k]] * times
            what = f"duplicated {names[k]} x{times}"
        elif op == "remove":
            k = rng.randrange(len(parts))
            del parts[k]
            what = f"removed {names[k]}"
        elif op == "remove-critical":
            want = rng.choice(("IHDR", "IDAT", "IEND", "PLTE", "MHDR", "MEND"))
            ks = [k for k, nm in enumerate(names) if nm == want]
            for k in reversed(ks):
                del parts[k]
            what = f"removed every {want} ({len(ks)})"
        elif op == "swap" and len(parts) > 1:
            a, b = rng.sample(range(len(parts)), 2)
            parts[a], parts[b] = parts[b], parts[a]
            what = f"swapped {names[a]} and {names[b]}"
        elif op == "unknown-critical":
            at = rng.randrange(1, len(parts) + 1)
            parts.insert(at, chunk(b"ZZzZ", rng.randbytes(rng.randrange(20))))
            what = f"inserted unknown critical chunk at {at}"
        elif op == "unknown-ancillary":
            at = rng.randrange(1, len(parts) + 1)
            parts.insert(at, chunk(b"zzZz", rng.randbytes(rng.randrange(2000))))
            what = f"inserted unknown ancillary chunk at {at}"
        elif op == "split-idat":
            idat = b"".join(data[s + 8 : e - 4] for s, e, t in chunks if t == b"IDAT")
            first = next((k for k, nm in enumerate(names) if nm == "IDAT"), None)
            if first is None:
                return mutate_generic_slices(rng, data)
            parts = [p for p, nm in zip(parts, names) if nm != "IDAT"]
            pieces = [chunk(b"IDAT", idat[k : k + 1]) for k in range(min(len(idat), 30000))]
            parts[first:first] = pieces
            what = f"IDAT split into {len(pieces)} one-byte chunks"
        elif op == "second-ihdr":
            at = rng.randrange(1, len(parts) + 1)
            parts.insert(
                at,
                ihdr(
                    rng.choice((1, 64, 5000, 70000)),
                    rng.choice((1, 64, 5000)),
                    8,
                    rng.choice((0, 2, 6)),
                ),
            )
            what = f"second IHDR at {at}"
        elif op == "many-text":
            n = rng.choice((100, 1000, 5000))
            parts[1:1] = [chunk(b"tEXt", b"k\0" + str(k).encode()) for k in range(n)]
            what = f"{n} tEXt chunks"
        elif op == "empty-idat":
            first = next((k for k, nm in enumerate(names) if nm == "IDAT"), 1)
            parts[first:first] = [chunk(b"IDAT", b"")] * rng.choice((1, 100))
            what = "empty IDAT chunks before the data"
        else:
            end = next((k for k, nm in enumerate(names) if nm == "IDAT"), 1)
            parts.insert(end, chunk(b"IEND", b""))
            what = "IEND before IDAT"
        return sig + b"".join(parts), f"{fmt}-chunks", what
    if fmt == "jpeg":
        segs = jpeg_segments(data)
        if len(segs) < 3:
            return mutate_generic_slices(rng, data)
        parts = [data[s:e] for s, e, _ in segs]
        marks = [m for _, _, m in segs]
        tail = data[segs[-1][1] :]
        op = rng.choice(
            ("dup", "remove", "remove-kind", "swap", "rst", "app", "soi", "fill", "dnl", "dup-scan")
        )
        if op == "dup":
            k = rng.randrange(1, len(parts))
            times = rng.choice((1, 2, 50))
            parts[k + 1 : k + 1] = [parts[k]] * times
            what = f"duplicated marker {marks[k]:02X} x{times}"
        elif op == "remove":
            k = rng.randrange(1, len(parts))
            del parts[k]
            what = f"removed marker {marks[k]:02X}"
        elif op == "remove-kind":
            want = rng.choice((0xDB, 0xC4, 0xC0, 0xC2, 0xDA, 0xD9, 0xDD))
            keep = [(p, m) for p, m in zip(parts, marks) if m != want]
            parts = [p for p, _ in keep]
            what = f"removed every {want:02X}"
        elif op == "swap":
            a, b = rng.sample(range(1, len(parts)), 2)
            parts[a], parts[b] = parts[b], parts[a]
            what = f"swapped {marks[a]:02X} and {marks[b]:02X}"
        elif op == "rst":
            k = next((i for i, m in enumerate(marks) if m == 0xDA), None)
            if k is None:
                return mutate_generic_slices(rng, data)
            scan = bytearray(parts[k])
            for _ in range(rng.randint(1, 20)):
                p = (
                    rng.randrange(min(len(scan), 16), len(scan) + 1)
                    if len(scan) > 16
                    else len(scan)
                )
                scan[p:p] = bytes([0xFF, 0xD0 + rng.randrange(8)])
            parts[k] = bytes(scan)
            what = "restart markers inserted in the scan"
        elif op == "app":
            n = rng.choice((1, 100, 2000))
            size = rng.choice((0, 10, 65533))
            app = segment(0xE0 + rng.randrange(16), rng.randbytes(size))
            parts[1:1] = [app] * n
            what = f"{n} APP segments of {size} bytes"
        elif op == "soi":
            parts.insert(rng.randrange(1, len(parts)), b"\xff\xd8")
            what = "second SOI"
        elif op == "fill":
            k = rng.randrange(1, len(parts))
            parts[k] = b"\xff" * rng.choice((1, 100, 10000)) + parts[k]
            what = f"fill bytes before {marks[k]:02X}"
        elif op == "dnl":
            k = next((i for i, m in enumerate(marks) if m == 0xDA), len(parts) - 1)
            parts.insert(k + 1, segment(0xDC, be16(rng.choice((0, 1, 65535)))))
            what = "DNL after the scan"
        else:
            ks = [i for i, m in enumerate(marks) if m == 0xDA]
            if not ks:
                return mutate_generic_slices(rng, data)
            k = rng.choice(ks)
            parts.insert(k + 1, parts[k])
            what = "scan duplicated"
        return b"".join(parts) + tail, "jpeg-markers", what
    if fmt == "gif":
        blocks = gif_blocks(data)
        if not blocks:
            return mutate_generic_slices(rng, data)
        head = data[: blocks[0][0]]
        parts = [data[s:e] for s, _, e in blocks]
        kinds = [k for _, k, _ in blocks]
        op = rng.choice(
            ("no-trailer", "dup-frame", "remove-frames", "junk-ext", "no-gct", "empty-frame")
        )
        if op == "no-trailer":
            parts = [p for p, k in zip(parts, kinds) if k != "trailer"]
            what = "trailer removed"
        elif op == "dup-frame":
            ks = [i for i, k in enumerate(kinds) if k == "image"] or [0]
            k = rng.choice(ks)
            n = rng.choice((1, 10, 1000))
            parts[k + 1 : k + 1] = [parts[k]] * n
            what = f"frame duplicated x{n}"
        elif op == "remove-frames":
            parts = [p for p, k in zip(parts, kinds) if k != "image"]
            what = "every frame removed"
        elif op == "junk-ext":
            ext = (
                b"\x21"
                + bytes([rng.randrange(256)])
                + sub_blocks(rng.randbytes(rng.randrange(600)))
            )
            parts.insert(rng.randrange(len(parts) + 1), ext)
            what = "unknown extension inserted"
        elif op == "no-gct":
            hb = bytearray(head)
            hb[10] &= 0x7F
            head = bytes(hb)
            what = "global colour table flag cleared"
        else:
            frame = b"\x2c" + struct.pack("<HHHHB", 0, 0, 0, 0, 0) + b"\x02\x00"
            parts.insert(0, frame)
            what = "zero-size frame first"
        return head + b"".join(parts), "gif-blocks", what
    if fmt == "tiff":
        e, ifd, entries = tiff_entries(data)
        if not entries:
            return mutate_generic_slices(rng, data)
        recs = [data[p : p + 12] for p, _, _, _ in entries]
        tags = [t for _, t, _, _ in entries]
        op = rng.choice(("dup", "remove", "shuffle", "loop", "chain", "many"))
        nxt = 0
        if op == "dup":
            k = rng.randrange(len(recs))
            recs.insert(k, recs[k])
            what = f"tag {tags[k]} duplicated"
        elif op == "remove":
            k = rng.randrange(len(recs))
            del recs[k]
            what = f"tag {TIFF_NAMES.get(tags[k], tags[k])} removed"
        elif op == "shuffle":
            rng.shuffle(recs)
            what = "entries out of order"
        elif op == "loop":
            nxt = ifd
            what = "next IFD points to the first"
        elif op == "chain":
            nxt = len(data)
            what = "next IFD points past the end"
        else:
            recs = recs * rng.choice((10, 300))
            what = f"entries repeated to {len(recs)}"
        body = bytearray(data)
        if len(body) % 2:
            body.append(0)
        new_at = len(body)
        if op == "loop":
            nxt = new_at
        body += (
            struct.pack(e + "H", len(recs) & 0xFFFF) + b"".join(recs) + struct.pack(e + "I", nxt)
        )
        struct.pack_into(e + "I", body, 4, new_at)
        return bytes(body), "tiff-ifd", what
    if fmt == "webp":
        chunks = riff_chunks(data)
        if not chunks:
            return mutate_generic_slices(rng, data)
        parts = [data[p : p + 8 + n + (n & 1)] for p, n, _ in chunks]
        names = [f.decode("latin-1") for _, _, f in chunks]
        op = rng.choice(("dup", "remove", "unknown", "alph", "vp8x-first", "keep-size"))
        if op == "dup":
            k = rng.randrange(len(parts))
            parts.insert(k, parts[k])
            what = f"{names[k]} duplicated"
        elif op == "remove":
            k = rng.randrange(len(parts))
            del parts[k]
            what = f"{names[k]} removed"
        elif op == "unknown":
            parts.insert(
                rng.randrange(len(parts) + 1),
                riff_chunk(b"ZZZZ", rng.randbytes(rng.randrange(300))),
            )
            what = "unknown chunk inserted"
        elif op == "alph":
            parts.insert(
                rng.randrange(len(parts) + 1),
                riff_chunk(
                    b"ALPH", bytes([rng.randrange(256)]) + rng.randbytes(rng.randrange(200))
                ),
            )
            what = "junk ALPH chunk"
        elif op == "vp8x-first":
            parts.insert(0, vp8x(0x10, rng.randint(1, 300), rng.randint(1, 300)))
            what = "VP8X with another canvas size inserted"
        else:
            k = rng.randrange(len(parts))
            del parts[k]
            return (
                riff_webp(parts, size=struct.unpack("<I", data[4:8])[0]),
                "webp-chunks",
                f"{names[k]} removed, RIFF size kept",
            )
        return riff_webp(parts), "webp-chunks", what
    return mutate_generic_slices(rng, data)


def mutate_generic_slices(rng, data):
    n = len(data)
    if n < 4:
        return data + data, "slices", "doubled"
    a = rng.randrange(n)
    b = min(n, a + rng.randint(1, max(1, min(4096, n // 4))))
    if rng.random() < 0.5:
        times = rng.choice((1, 2, 100))
        return (
            data[:b] + data[a:b] * times + data[b:],
            "slices",
            f"bytes {a}..{b} repeated x{times}",
        )
    return data[:a] + data[b:], "slices", f"bytes {a}..{b} removed"


# --------------------------------------------------------------------------------------------
# Bombs

ZEROS_CACHE = {}


def zeros_deflate(nbytes, level=9):
    if (nbytes, level) in ZEROS_CACHE:
        return ZEROS_CACHE[(nbytes, level)]
    c = zlib.compressobj(level)
    chunk_size = 1 << 20
    zero = bytes(chunk_size)
    out = []
    left = nbytes
    while left > 0:
        k = min(left, chunk_size)
        out.append(c.compress(zero[:k]))
        left -= k
    out.append(c.flush())
    data = b"".join(out)
    if nbytes >= 1 << 20:
        ZEROS_CACHE[(nbytes, level)] = data
    return data


def flat_rows_deflate(rowlen, h, value=b"\0", level=9, filter_byte=b"\0"):
    row = filter_byte + (value * (rowlen // len(value) + 1))[:rowlen]
    c = zlib.compressobj(level)
    out = []
    block = row * max(1, (1 << 20) // len(row))
    rows_per_block = max(1, (1 << 20) // len(row))
    left = h
    while left > 0:
        k = min(left, rows_per_block)
        out.append(c.compress(block[: k * len(row)]))
        left -= k
    out.append(c.flush())
    return b"".join(out)


def bomb_png_ihdr(rng):
    w, h = rng.choice(
        (
            (30000, 30000),
            (100000, 1),
            (1, 100000),
            (65535, 65535),
            (0x7FFFFFFF, 1),
            (1, 0x7FFFFFFF),
            (100000, 100000),
            (20000, 5000),
            (10001, 10000),
            (16384, 16384),
            (1000000, 1),
            (50000, 2000),
            (9999, 10000),
            (4000, 4000),
            (2**31 - 1, 2**31 - 1),
            (5000, 20000),
        )
    )
    ctype = rng.choice((0, 2, 6))
    depth = 8
    rowlen = w * PNG_CHANNELS[ctype]
    raw = (rowlen + 1) * h
    how = rng.choice(("zeros-tiny", "zeros-partial", "empty", "missing", "zeros-full"))
    if how == "zeros-full" and raw > 4 << 20:
        how = "zeros-partial"
    if how == "zeros-tiny":
        idat = zlib.compress(bytes(rng.randint(1, 64)))
    elif how == "zeros-partial":
        idat = zeros_deflate(min(raw - 1, rng.choice((1000, 100000, 1 << 20))))
    elif how == "zeros-full":
        idat = zeros_deflate(raw)
    elif how == "empty":
        idat = b""
    else:
        idat = None
    parts = [PNG_SIG, ihdr(w, h, depth, ctype)]
    if idat is not None:
        parts.append(chunk(b"IDAT", idat))
    parts.append(chunk(b"IEND", b""))
    expect = "refuse" if w * h > MAX_PIXELS else ("accept" if how == "zeros-full" else "any")
    return b"".join(parts), "png", f"png IHDR {w}x{h} ctype={ctype} IDAT {how}", expect


def bomb_png_text_length(rng):
    kind = rng.choice((b"tEXt", b"zTXt", b"iTXt", b"iCCP"))
    claim = rng.choice((0x80000000, 0x7FFFFFFF, 0xFFFFFFFF, 0x7FFFFFF0, 0x40000000))
    base = gen_png(rng, w=32, h=32, ctype=2, depth=8, interlace=0)[0]
    cs = png_chunks(base)
    idat_at = next(p for p, n, t in cs if t == b"IDAT")
    before = rng.random() < 0.7
    at = idat_at if before else len(base) - 12
    body = rng.choice((bytes(10000), rng.randbytes(10000), b"key\0" + b"v" * 10000))
    bad = be32(claim) + kind + body
    data = base[:at] + bad + base[at:]
    return (
        data,
        "png",
        f"png with {kind.decode()} claiming {claim} bytes ({'before' if before else 'after'} IDAT)",
        "any",
    )


def bomb_png_text_deflate(rng):
    kind = rng.choice((b"zTXt", b"iTXt", b"iCCP"))
    size = rng.choice((10 << 20, 50 << 20, 100 << 20))
    payload = zeros_deflate(size)
    if kind == b"zTXt":
        body = b"Comment\0\0" + payload
    elif kind == b"iTXt":
        body = b"Comment\0\1\0en\0\0" + payload
    else:
        body = b"profile\0\0" + payload
    data = gen_png(rng, w=48, h=48, ctype=2, depth=8, interlace=0, pattern="gradient")[0]
    at = 33
    return (
        data[:at] + chunk(kind, body) + data[at:],
        "png",
        f"png {kind.decode()} inflating to {size >> 20} MiB",
        "any",
    )


def bomb_png_100mp(rng, slot):
    cases = (
        (10000, 10000, 0, "accept"),
        (9999, 10000, 2, "accept"),
        (10001, 10000, 0, "refuse"),
        (10000, 10001, 6, "refuse"),
        (12500, 8000, 0, "accept"),
        (100000001, 1, 0, "refuse"),
    )
    w, h, ctype, expect = cases[slot % len(cases)]
    rowlen = w * PNG_CHANNELS[ctype]
    idat = flat_rows_deflate(rowlen, h, bytes([rng.randrange(256)]) * PNG_CHANNELS[ctype])
    data = png_file(w, h, 8, ctype, idat)
    return data, "png", f"png {w}x{h} ({w * h} pixels) ctype={ctype} flat, decodes for real", expect


def bomb_png_under(rng):
    s = rng.choice((1000, 2000, 3000, 4000))
    w, h = s, rng.choice((s, s // 2))
    ctype = rng.choice((0, 2))
    rowlen = w * PNG_CHANNELS[ctype]
    idat = flat_rows_deflate(rowlen, h, rng.randbytes(PNG_CHANNELS[ctype]))
    return (
        png_file(w, h, 8, ctype, idat),
        "png",
        f"png {w}x{h} flat ctype={ctype} ({len(idat)} bytes of IDAT)",
        "accept",
    )


def bomb_gif_screen(rng):
    sw, sh = rng.choice(((65535, 65535), (65535, 1), (1, 65535), (30000, 30000), (65535, 2000)))
    fw, fh = rng.randint(1, 64), rng.randint(1, 64)
    fr = gif_frame(rng, fw, fh, 4, "noise")
    data = gif_file(sw, sh, [fr], gct=rng.randbytes(12))
    return (
        data,
        "gif",
        f"gif screen {sw}x{sh} with a {fw}x{fh} frame",
        "refuse" if sw * sh > MAX_PIXELS else "any",
    )


def bomb_gif_frame(rng):
    fw, fh = rng.choice(((65535, 65535), (65535, 1), (1, 65535), (20000, 20000)))
    sw, sh = rng.randint(1, 64), rng.randint(1, 64)
    data = gif_lzw(
        rng.randbytes(rng.randint(1, 300)).translate(bytes(i & 3 for i in range(256))), 2
    )
    fr = {"x": 0, "y": 0, "w": fw, "h": fh, "mincode": 2, "data": data}
    return (
        gif_file(sw, sh, [fr], gct=rng.randbytes(12)),
        "gif",
        f"gif screen {sw}x{sh} frame {fw}x{fh}, short data",
        "any",
    )


def bomb_gif_lzw(rng):
    w, h = rng.choice(
        (
            (2000, 2000),
            (4000, 4000),
            (8000, 8000),
            (10000, 9999),
            (16000, 6000),
            (20000, 20000),
            (65535, 1500),
        )
    )
    full = rng.random() < 0.7
    mincode = rng.choice((2, 8))
    data = gif_lzw_flat(w * h, 1, mincode, clear_when_full=full)
    fr = {"x": 0, "y": 0, "w": w, "h": h, "mincode": mincode, "data": data}
    gct = rng.randbytes(3 * (1 << mincode))
    expect = "refuse" if w * h > MAX_PIXELS else ("accept" if full else "any")
    return (
        gif_file(w, h, [fr], gct=gct),
        "gif",
        f"gif {w}x{h} one colour, LZW {'clearing' if full else 'deferred clear'} ({len(data)} bytes)",
        expect,
    )


def bomb_tiff_claim(rng):
    w, h = rng.choice(
        (
            (100000, 100000),
            (100000, 1000),
            (65536, 65536),
            (1 << 31, 1),
            (1, 1 << 31),
            (30000, 30000),
            (0xFFFFFFFF, 0xFFFFFFFF),
            (20000, 5001),
        )
    )
    spp = rng.choice((1, 3))
    strip = rng.randbytes(rng.randint(1, 200))
    comp = rng.choice((1, 8, 5))
    rps = rng.choice((1, h, 0xFFFFFFFF))
    data = tiff_file(
        8,
        8,
        spp,
        8,
        1 if spp == 1 else 2,
        None,
        compression=comp,
        raw_segments=[strip],
        claim=(w, h),
        rps=rps,
    )
    return (
        data,
        "tiff",
        f"tiff claiming {w}x{h} spp={spp} compression={comp} rows-per-strip={rps} with one short strip",
        "refuse" if w * h > MAX_PIXELS else "any",
    )


def bomb_tiff_tiles(rng):
    tw, th = rng.choice(
        ((65536, 65536), (65536, 16), (16, 65536), (1 << 31, 1 << 31), (0, 0), (4294967280, 16))
    )
    w, h = rng.choice(((64, 64), (1000, 1000), (8000, 8000)))
    seg = zlib.compress(bytes(rng.choice((64, 4096, 100000))))
    data = tiff_file(
        w,
        h,
        1,
        8,
        1,
        None,
        compression=8,
        tile=(tw or 16, th or 16),
        raw_segments=[seg],
        tile_claim=(tw, th),
    )
    return data, "tiff", f"tiff {w}x{h} tiles claimed {tw}x{th}, one short tile", "any"


def bomb_tiff_deflate(rng):
    mode = rng.choice(("real", "real", "overlong", "claim"))
    if mode == "real":
        s = rng.choice((2000, 4000, 8000, 9999))
        w, h = s, rng.choice((s, s // 2, 1000))
        seg = zeros_deflate(w * h)
        data = tiff_file(w, h, 1, 8, 1, None, compression=8, raw_segments=[seg], rps=h)
        return (
            data,
            "tiff",
            f"tiff {w}x{h} grey deflate, one flat strip of {len(seg)} bytes",
            "accept",
        )
    if mode == "overlong":
        w, h = 64, 64
        size = rng.choice((10 << 20, 100 << 20))
        seg = zeros_deflate(size)
        data = tiff_file(w, h, 1, 8, 1, None, compression=8, raw_segments=[seg], rps=h)
        return data, "tiff", f"tiff 64x64 whose strip inflates to {size >> 20} MiB", "any"
    w, h = rng.choice(((20000, 20000), (12000, 9000)))
    seg = zeros_deflate(1 << 20)
    data = tiff_file(w, h, 1, 8, 1, None, compression=8, raw_segments=[seg], rps=h)
    return data, "tiff", f"tiff claiming {w}x{h} with 1 MiB of zeros deflated", "refuse"


def bomb_bmp_dims(rng):
    w, h = rng.choice(
        (
            (2**31 - 1, 1),
            (1, 2**31 - 1),
            (1, -(2**31)),
            (2**31 - 1, -(2**31)),
            (-1, 1),
            (65536, 65536),
            (100000, 1001),
            (40000, -3000),
            (0, 100),
        )
    )
    bitcount = rng.choice((1, 8, 24, 32))
    palette = (
        b"".join(rng.randbytes(3) + b"\0" for _ in range(1 << bitcount)) if bitcount <= 8 else b""
    )
    data = rng.randbytes(rng.randint(0, 512))
    info = struct.pack("<IiiHHIIiiII", 40, w, h, 1, bitcount, 0, 0, 2835, 2835, 0, 0)
    off = 14 + 40 + len(palette)
    out = b"BM" + struct.pack("<IHHI", off + len(data), 0, 0, off) + info + palette + data
    return (
        out,
        "bmp",
        f"bmp {w}x{h} {bitcount}-bit with {len(data)} bytes of pixels",
        "refuse" if abs(w * h) > MAX_PIXELS else "any",
    )


def bomb_bmp_rle(rng):
    w, h = rng.choice(
        ((8000, 8000), (10000, 10000), (9000, 11000), (30000, 30000), (65535, 1500), (20000, 4999))
    )
    bit4 = rng.random() < 0.3
    mode = rng.choice(("eob", "delta", "runs", "eol"))
    if mode == "eob":
        rle = b"\0\1"
    elif mode == "delta":
        rle = (b"\0\2\xff\xff") * rng.choice((10, 1000)) + b"\0\1"
    elif mode == "runs":
        rle = (b"\xff\x07" * (w // 255 + 1) + b"\0\0") * rng.choice((1, 10, 100)) + b"\0\1"
    else:
        rle = b"\0\0" * rng.choice((h, h * 4)) + b"\0\1"
    pal = b"".join(rng.randbytes(3) + b"\0" for _ in range(16 if bit4 else 256))
    data = bmp_file(w, h, 4 if bit4 else 8, rle, palette=pal, compression=2 if bit4 else 1)
    return (
        data,
        "bmp",
        f"bmp RLE{'4' if bit4 else '8'} {w}x{h} with {mode} ({len(rle)} bytes)",
        "refuse" if w * h > MAX_PIXELS else "any",
    )


def bomb_webp_flat(rng, real):
    if real:
        w, h = rng.choice(
            ((10000, 10000), (9999, 9999), (16383, 6103), (16383, 1000), (5000, 5000))
        )
    else:
        w, h = rng.choice(((16383, 16383), (16384, 16384), (16383, 10000), (12000, 12000)))
    argb = rng.randrange(1 << 32)
    data = riff_webp([riff_chunk(b"VP8L", vp8l_flat(w, h, argb))])
    return (
        data,
        "webp",
        f"webp lossless {w}x{h} of one colour ({len(data)} bytes)",
        "refuse" if w * h > MAX_PIXELS else "accept",
    )


def bomb_webp_flat_claim(rng):
    return bomb_webp_flat(rng, False)


def bomb_webp_flat_real(rng):
    return bomb_webp_flat(rng, True)


def bomb_webp_canvas(rng):
    cw, ch = rng.choice(
        ((1 << 24, 1 << 24), (1 << 24, 1), (16384, 16384), (1, 1 << 24), (100000, 1001))
    )
    w, h = rng.randint(1, 64), rng.randint(1, 64)
    image = riff_chunk(b"VP8L", vp8l_flat(w, h, rng.randrange(1 << 32)))
    flags = rng.choice((0x00, 0x10, 0x02))
    data = riff_webp([vp8x(flags, cw, ch), image])
    return (
        data,
        "webp",
        f"webp VP8X canvas {cw}x{ch} flags={flags:#x} around a {w}x{h} image",
        "refuse" if cw * ch > MAX_PIXELS else "any",
    )


def bomb_webp_vp8(rng):
    base, _ = qt_image(rng, "webp", 16, 16, "rgb32", "noise", quality=50)
    buf = bytearray(base)
    for p, n, fourcc in riff_chunks(base):
        if fourcc == b"VP8 ":
            w, h = rng.choice(((16383, 16383), (16383, 1), (10000, 10000), (12000, 9000)))
            buf[p + 14 : p + 16] = le16(w)
            buf[p + 16 : p + 18] = le16(h)
            return (
                bytes(buf),
                "webp",
                f"webp lossy key frame claiming {w}x{h} with 16x16 data",
                "refuse" if w * h > MAX_PIXELS else "any",
            )
    return bomb_webp_canvas(rng)


def bomb_jpeg_claim(rng):
    w, h = rng.choice(
        (
            (65500, 65500),
            (65535, 65535),
            (10000, 9999),
            (65500, 1500),
            (65500, 1),
            (1, 65500),
            (30000, 30000),
            (12000, 12000),
        )
    )
    comps = rng.choice(
        ([(1, 1, 1)], [(1, 2, 2), (2, 1, 1), (3, 1, 1)], [(1, 1, 1), (2, 1, 1), (3, 1, 1)])
    )
    mcus = rng.choice((0, 1, 10, 1000))
    data = jpeg_dc(
        rng, 16, 16, comps, "noise", claim=(w, h), mcu_limit=mcus, eoi=rng.random() < 0.7
    )
    return (
        data,
        "jpeg",
        f"jpeg claiming {w}x{h} with {mcus} MCU(s) of scan",
        "refuse" if w * h > MAX_PIXELS else "any",
    )


def bomb_ico_png(rng):
    s = rng.choice((15000, 15000, 30000, 65535, 100000))
    png = b"".join(
        [PNG_SIG, ihdr(s, s, 8, 6), chunk(b"IDAT", zlib.compress(bytes(1000))), chunk(b"IEND", b"")]
    )
    return ico_file([(0, 0, 32, png)]), "ico", f"ico holding a {s}x{s} PNG", "refuse"


def bomb_ico_count(rng):
    n = rng.choice((65535, 10000, 256))
    img = ico_bmp_image(rng, 16, 16, 32)
    data = ico_file([(16, 16, 32, img)], count=n)
    return data, "ico", f"ico claiming {n} images, holding one", "refuse"


def bomb_mng_width(rng):
    w = rng.choice((16_000_000, 16_777_215, 0x7FFFFFFF))
    idat = (
        zlib.compress(rng.randbytes(9000), 0)
        if rng.random() < 0.5
        else zeros_deflate(9_000_000)[:9000]
    )
    png = b"".join([PNG_SIG, ihdr(w, 1, 8, 2), chunk(b"IDAT", idat), chunk(b"IEND", b"")])
    return (
        mng_file(64, 64, [png]),
        "mng",
        f"mng ({len(idat)} bytes of IDAT) whose PNG claims width {w}",
        "refuse",
    )


def bomb_mng_mhdr(rng):
    w, h = rng.choice(((30000, 30000), (65535, 65535), (0x7FFFFFFF, 0x7FFFFFFF)))
    png = b"".join(
        [PNG_SIG, ihdr(1, 1, 8, 0), chunk(b"IDAT", zlib.compress(b"\0\0")), chunk(b"IEND", b"")]
    )
    return mng_file(w, h, [png]), "mng", f"mng whose MHDR claims {w}x{h}", "refuse"


def bomb_xpm(rng):
    header = rng.choice(
        (
            "1 1 1 999999999",
            "1 1 999999999 1",
            "100000 100000 1 1",
            "1 1 1 2147483647",
            "65535 65535 2 1",
            "2147483647 1 1 1",
            "1 100000000 1 1",
        )
    )
    text = (
        '/* XPM */\nstatic char *bomb[] = {\n"%s",\n"a c #FF0000",\n"b c #00FF00",\n"a",\n};\n'
        % header
    )
    return text.encode(), "xpm", f'xpm header "{header}"', "refuse"


def bomb_pnm(rng):
    kind = rng.choice(
        (
            "P5 65535 65535 255",
            "P6 30000 30000 65535",
            "P4 100000 100000",
            "P2 99999 99999 255",
            "P6 1 1 4294967295",
            "P5 -1 -1 255",
        )
    )
    return (
        (kind + "\n").encode() + rng.randbytes(rng.randint(0, 100)),
        "pnm",
        f'pnm header "{kind}"',
        "refuse",
    )


def bomb_tga(rng):
    w, h = rng.choice(((65535, 65535), (65535, 1), (30000, 30000)))
    itype = rng.choice((2, 10, 3, 11))
    pixels = bytes([0xFF, 1, 2, 3]) * rng.randint(1, 10) if itype >= 9 else rng.randbytes(30)
    return (
        tga_file(w, h, itype, 24 if itype in (2, 10) else 8, pixels),
        "tga",
        f"tga type {itype} claiming {w}x{h}",
        "refuse",
    )


BOMBS = (
    (bomb_png_ihdr, 10),
    (bomb_png_text_length, 6),
    (bomb_png_text_deflate, 3),
    (bomb_png_under, 2),
    (bomb_gif_screen, 6),
    (bomb_gif_frame, 4),
    (bomb_gif_lzw, 4),
    (bomb_tiff_claim, 6),
    (bomb_tiff_tiles, 5),
    (bomb_tiff_deflate, 4),
    (bomb_bmp_dims, 6),
    (bomb_bmp_rle, 6),
    (bomb_webp_flat_claim, 4),
    (bomb_webp_flat_real, 1),
    (bomb_webp_canvas, 4),
    (bomb_webp_vp8, 3),
    (bomb_jpeg_claim, 7),
    (bomb_ico_png, 3),
    (bomb_ico_count, 1),
    (bomb_mng_width, 3),
    (bomb_mng_mhdr, 3),
    (bomb_xpm, 3),
    (bomb_pnm, 2),
    (bomb_tga, 2),
)
BOMB_NAMES = {
    bomb_png_ihdr: "png-ihdr",
    bomb_png_text_length: "png-chunk-length",
    bomb_png_text_deflate: "png-text-inflate",
    bomb_png_under: "png-flat-large",
    bomb_gif_screen: "gif-screen",
    bomb_gif_frame: "gif-frame",
    bomb_gif_lzw: "gif-lzw",
    bomb_tiff_claim: "tiff-claim",
    bomb_tiff_tiles: "tiff-tiles",
    bomb_tiff_deflate: "tiff-deflate",
    bomb_bmp_dims: "bmp-dims",
    bomb_bmp_rle: "bmp-rle",
    bomb_webp_canvas: "webp-canvas",
    bomb_webp_flat_claim: "webp-flat",
    bomb_webp_flat_real: "webp-flat-real",
    bomb_webp_vp8: "webp-vp8",
    bomb_jpeg_claim: "jpeg-claim",
    bomb_ico_png: "ico-png",
    bomb_ico_count: "ico-count",
    bomb_mng_width: "mng-width",
    bomb_mng_mhdr: "mng-mhdr",
    bomb_xpm: "xpm-header",
    bomb_pnm: "pnm-header",
    bomb_tga: "tga-claim",
}


# --------------------------------------------------------------------------------------------
# Hangs


class ProgressiveBases:
    """Progressive JPEGs from Qt's writer, split into their header, scans and end."""

    def __init__(self):
        self.cache = {}

    def get(self, size, pattern, pixels, seed):
        key = (size, pattern, pixels, seed)
        if key not in self.cache:
            data = QT.encode("jpeg", size, size, pixels, pattern, seed, quality=85, progressive=1)
            if data is None:
                raise RuntimeError("Qt could not write a progressive JPEG")
            segs = jpeg_segments(data)
            scans = []
            for i, (s, e, m) in enumerate(segs):
                if m != 0xDA:
                    continue
                # Each scan comes with the Huffman tables written just before it.
                j = i
                while j > 0 and segs[j - 1][2] in (0xC4, 0xDD):
                    j -= 1
                scans.append((segs[j][0], s, e))
            self.cache[key] = (data, scans)
        return self.cache[key]


BASES = ProgressiveBases()


def scan_fields(data, s):
    ns = data[s + 4]
    q = s + 5 + 2 * ns
    return ns, data[q], data[q + 1], data[q + 2] >> 4, data[q + 2] & 15


def scan_params(data, s):
    ns, ss, se, ah, al = scan_fields(data, s)
    kind = ("DC" if ss == 0 else "AC") + (" refine" if ah else " first")
    return f"{kind} Ss={ss} Se={se} Ah={ah} Al={al} comps={ns}"


def hang_jpeg(rng):
    """A progressive JPEG whose scans are repeated before EOI. libjpeg decodes every one of them;
    an AC refinement scan walks every coefficient of every block, so at 2000 x 2000 each repeat
    costs about a millisecond."""
    big = rng.random() < 0.5
    size = 2000 if big else 64
    pattern = rng.choice(("flat", "gradient", "blocks") if big else PATTERNS)
    pixels = rng.choice(("rgb32", "grey8"))
    data, scans = BASES.get(size, pattern, pixels, rng.randrange(2))
    if not scans:
        return hang_png_chunks(rng)
    reps = rng.choice((1000, 2000, 5000, 10000, 20000, 20000))
    refine = [
        k
        for k, (t, s, e) in enumerate(scans)
        if scan_fields(data, s)[3] and scan_fields(data, s)[1] > 0 and e - t <= 4000
    ]
    small = [k for k, (t, s, e) in enumerate(scans) if e - t <= 2000]
    r = rng.random()
    if refine and r < 0.6:
        chosen = [scans[rng.choice(refine)]]
    elif r < 0.8:
        k = rng.randrange(len(scans))
        chosen = scans[k : k + rng.randint(2, 4)]
    elif small:
        chosen = [scans[rng.choice(small)]]
    else:
        chosen = [rng.choice(scans)]
    blob = b"".join(data[t:e] for t, s, e in chosen)
    cap = 700_000
    reps = max(1, min(reps, cap // max(1, len(blob))))
    end = scans[-1][2]
    out = data[:end] + blob * reps + data[end:]
    what = "; ".join(scan_params(data, s) for t, s, e in chosen)
    return (
        out,
        "jpeg",
        f"progressive jpeg {size}x{size} {pixels} {pattern}, scan(s) [{what}] repeated {reps} times",
        "any",
    )


def hang_png_chunks(rng):
    n = rng.choice((20000, 40000))
    kind = rng.choice((b"tEXt", b"zzZz", b"IDAT-empty", b"sPLT"))
    base = gen_png(rng, w=16, h=16, ctype=2, depth=8, interlace=0)[0]
    cs = png_chunks(base)
    idat_at = next(p for p, _, t in cs if t == b"IDAT")
    if kind == b"IDAT-empty":
        piece = chunk(b"IDAT", b"")
        at = idat_at
    elif kind == b"tEXt":
        piece = chunk(b"tEXt", b"k\0v")
        at = idat_at
    elif kind == b"sPLT":
        piece = chunk(b"sPLT", b"p\0\x08" + bytes(6))
        at = idat_at
    else:
        piece = chunk(b"zzZz", b"")
        at = idat_at
    return base[:at] + piece * n + base[at:], "png", f"png with {n} {kind.decode()} chunks", "any"


def hang_gif_frames(rng):
    n = rng.choice((2000, 10000))
    fr = gif_frame(rng, 1, 1, 2, "flat")
    fr["gce"] = (0, 0, None)
    frames = [fr] * n
    return (
        gif_file(4, 4, frames, gct=rng.randbytes(6), loop=0),
        "gif",
        f"gif with {n} 1x1 frames",
        "any",
    )


def hang_tiff_pages(rng):
    n = rng.choice((1000, 5000))
    one = tiff_file(4, 4, 1, 8, 1, [bytes(4)] * 4)
    e = "<"
    ifd_at = struct.unpack("<I", one[4:8])[0]
    ifd = one[ifd_at:]
    count = struct.unpack("<H", ifd[:2])[0]
    body = bytearray(one[:ifd_at])
    entries = ifd[2 : 2 + 12 * count]
    ool = ifd[2 + 12 * count + 4 :]
    pages = []
    size = 2 + 12 * count + 4 + len(ool)
    # The out-of-line values sit after each copy; their offsets are rewritten for every copy.
    ool_start_old = ifd_at + 2 + 12 * count + 4
    for k in range(n):
        at = len(body)
        shift = at - ifd_at
        rec = bytearray(entries)
        for j in range(count):
            typ, cnt = struct.unpack(e + "HI", rec[12 * j + 2 : 12 * j + 8])
            if TIFF_SIZES.get(typ, 1) * cnt > 4:
                off = struct.unpack(e + "I", rec[12 * j + 8 : 12 * j + 12])[0]
                if off >= ool_start_old:
                    struct.pack_into(e + "I", rec, 12 * j + 8, off + shift)
        nxt = at + size if k + 1 < n else 0
        body += struct.pack(e + "H", count) + rec + struct.pack(e + "I", nxt) + ool
    return bytes(body), "tiff", f"tiff with {n} pages", "any"


HANGS = ((hang_jpeg, 17), (hang_png_chunks, 1), (hang_gif_frames, 1), (hang_tiff_pages, 1))
HANG_NAMES = {
    hang_jpeg: "jpeg-scans",
    hang_png_chunks: "png-many-chunks",
    hang_gif_frames: "gif-many-frames",
    hang_tiff_pages: "tiff-many-pages",
}


# --------------------------------------------------------------------------------------------
# Extreme aspect ratios

ASPECT_FIXED = (
    ("png", 2049, 1),
    ("png", 8192, 3),
    ("bmp", 1, 10000),
    ("tiff", 9999, 1),
    ("jpeg", 1, 65500),
    ("png", 7, 5000),
    ("png", 1, 1),
    ("jpeg", 1, 1),
    ("tiff", 1, 1),
    ("bmp", 1, 1),
    ("gif", 1, 1),
    ("webp", 1, 1),
    ("png16", 1, 1),
    ("pngpal", 1, 1),
    ("jpegprog", 1, 1),
    ("webplossy", 1, 1),
    ("gifanim", 1, 1),
    ("bmprle", 1, 1),
    ("tifftile", 1, 1),
    ("jpegcmyk", 1, 1),
)


def aspect_image(rng, fmt, w, h):
    if fmt == "png":
        return gen_png(rng, w=w, h=h, interlace=0 if w * h > 100000 else None)[:2]
    if fmt == "png16":
        return gen_png(rng, w=w, h=h, ctype=6, depth=16)[:2]
    if fmt == "pngpal":
        return gen_png(rng, w=w, h=h, ctype=3, depth=rng.choice((1, 8)))[:2]
    if fmt == "bmp":
        return gen_bmp_py(rng, w=w, h=h)[:2]
    if fmt == "bmprle":
        rows = [bytes([rng.randrange(256)]) * w for _ in range(h)]
        pal = b"".join(rng.randbytes(3) + b"\0" for _ in range(256))
        return bmp_file(w, h, 8, rle8_rows(rng, rows), palette=pal, compression=1), "bmp"
    if fmt == "tiff":
        return gen_tiff_py(rng, w=w, h=h)[:2]
    if fmt == "tifftile":
        rows = rows_of(rng, w, h, 3, "noise")
        return tiff_file(w, h, 3, 8, 2, rows, compression=8, tile=(16, 16)), "tif"
    if fmt in ("jpeg", "jpegprog"):
        return gen_jpeg(rng, w=w, h=h, progressive=(fmt == "jpegprog") or rng.random() < 0.3)[:2]
    if fmt == "jpegcmyk":
        return (
            jpeg_dc(
                rng,
                w,
                h,
                [(1, 1, 1), (2, 1, 1), (3, 1, 1), (4, 1, 1)],
                "noise",
                adobe=0,
                jfif=False,
            ),
            "jpg",
        )
    if fmt == "gif":
        return gen_gif(rng, w=w, h=h, frames=1)[:2]
    if fmt == "gifanim":
        return gen_gif(rng, w=w, h=h, frames=3)[:2]
    if fmt == "webplossy":
        data, _ = qt_image(rng, "webp", w, h, "rgb32", quality=60)
        return data, "webp"
    if fmt == "webp":
        if rng.random() < 0.3:
            return riff_webp([riff_chunk(b"VP8L", vp8l_flat(w, h, rng.randrange(1 << 32)))]), "webp"
        return gen_webp(rng, w=w, h=h)[:2]
    raise ValueError(fmt)


def gen_aspect(rng, slot):
    if slot < len(ASPECT_FIXED):
        fmt, w, h = ASPECT_FIXED[slot]
    else:
        fmt = rng.choice(("png", "png", "bmp", "tiff", "jpeg", "gif", "webp", "bmprle", "png16"))
        # Qt reads BMP up to 16384 pixels a side, WebP and JPEG up to their formats' limits.
        cap = {"webp": 16383, "jpeg": 65500, "gif": 65535, "bmp": 16384, "bmprle": 16384}.get(
            fmt, 65535
        )
        long_side = min(cap, rng.choice((1000, 2049, 4097, 8192, 10000, 16383, 30000, 65500)))
        short = rng.choice((1, 1, 2, 3, 5, 7, 8))
        w, h = (long_side, short) if rng.random() < 0.5 else (short, long_side)
    data, ext = aspect_image(rng, fmt, w, h)
    return data, ext, fmt, f"{fmt} {w}x{h}", "accept"


# --------------------------------------------------------------------------------------------
# Tiny files and wrong names

MAGICS = (
    PNG_SIG,
    b"\xff\xd8",
    b"\xff\xd8\xff\xd9",
    b"\xff\xd8\xff",
    b"GIF89a",
    b"GIF87a",
    b"BM",
    b"II*\0",
    b"MM\0*",
    b"RIFF\0\0\0\0WEBP",
    b"RIFF\x04\0\0\0WEBPVP8L",
    b"\0\0\1\0",
    b"\0\0\2\0",
    b"P6\n",
    b"P4\n1 1\n",
    b"/* XPM */",
    b"<svg",
    b"\x8aMNG\r\n\x1a\n",
    b"icns",
    PNG_SIG + b"\0\0\0\rIHDR",
    b"II*\0\x08\0\0\0",
    b"BM\0\0\0\0\0\0\0\0\x36\0\0\0",
)


def gen_tiny(rng, slot):
    exts = ACCEPTED_EXTS + ("", "ico", "txt")
    ext = rng.choice(exts)
    if slot == 0:
        return b"", ext, "zero bytes"
    r = rng.random()
    if slot < 260 and r < 0.5:
        b = (slot - 1) % 256
        return bytes([b]), ext, f"one byte {b:#04x}"
    if r < 0.7:
        m = rng.choice(MAGICS)
        return m, ext, f"magic only {m[:12]!r}"
    if r < 0.85:
        m = rng.choice(MAGICS)
        extra = rng.randbytes(rng.randint(1, 24))
        return m + extra, ext, f"magic {m[:12]!r} and {len(extra)} random bytes"
    n = rng.randint(2, 64)
    return rng.randbytes(n), ext, f"{n} random bytes"


TEXTS = (
    b"hello, this is not a picture\n",
    b'{"image": "no"}\n',
    b"<html><body>no</body></html>\n",
    b"#!/bin/sh\necho not a picture\n",
    b"a,b,c\n1,2,3\n",
    "\u00e9t\u00e9 \u2603\n".encode(),
    b"%PDF-1.4\n%\xe2\xe3\xcf\xd3\n1 0 obj\n<<>>\nendobj\ntrailer\n<<>>\n%%EOF\n",
)


EXTENSION_FIXED = (
    ("png", lambda rng: gen_png(rng, 200), "jpg"),
    ("text", None, "png"),
    ("xpm", lambda rng: gen_xpm_py(rng, 100), "png"),
    ("svg", lambda rng: gen_svg(rng, 200), "png"),
    ("jpeg", lambda rng: gen_jpeg(rng, 200), "png"),
    ("gif", lambda rng: gen_gif(rng, 200), "bmp"),
    ("tga", lambda rng: gen_tga(rng, 100), "jpg"),
    ("ico", lambda rng: gen_ico(rng), "png"),
    ("pnm", lambda rng: gen_pnm(rng, 100), "tif"),
    ("webp", lambda rng: gen_webp(rng, 200), "gif"),
    ("bmp", lambda rng: gen_bmp_py(rng, 200), "webp"),
    ("tiff", lambda rng: gen_tiff_py(rng, 200), "jpeg"),
    ("xbm", lambda rng: gen_xbm_py(rng, 100), "png"),
    ("png", lambda rng: gen_png(rng, 200), ""),
    ("png", lambda rng: gen_png(rng, 200), "PNG"),
    ("mng", lambda rng: gen_mng(rng, 100), "png"),
    ("png", lambda rng: gen_png(rng, 200), "~ photo \u00e9t\u00e9 'x' \u2603.png"),
    ("jpeg", lambda rng: gen_jpeg(rng, 200), "~ with  spaces .jpg"),
    ("text", None, "~ \u00e9t\u00e9.png"),
)


def gen_extension(rng, slot, pool):
    """A picture or a text named with another format's extension. An extension starting with ~
    is the whole end of the file name."""
    accepted = ("png", "jpeg", "tiff", "bmp", "gif", "webp")
    if slot < len(EXTENSION_FIXED):
        fmt, gen, ext = EXTENSION_FIXED[slot]
        if gen is None:
            data, detail = rng.choice(TEXTS) * rng.randint(1, 50), "text"
        else:
            data, _, detail = gen(rng)
        return (
            data,
            ext,
            fmt,
            f"{detail}, named {ext.lstrip('~') or '(no extension)'}",
            ("accept" if fmt in accepted else "refuse"),
        )
    r = rng.random()
    if r < 0.15:
        data = rng.choice(TEXTS) * rng.randint(1, 50)
        ext = rng.choice(ACCEPTED_EXTS)
        return data, ext, "text", f"text named .{ext}", "refuse"
    fmt_name, data, ext_true, detail = rng.choice(pool)
    choices = [
        e
        for e in ACCEPTED_EXTS + ("ico", "xpm", "tga", "ppm", "svg", "", "PNG", "JPG", "png.jpg")
        if e != ext_true
    ]
    ext = rng.choice(choices)
    expect = "accept" if fmt_name in ("png", "jpeg", "tiff", "bmp", "gif", "webp") else "refuse"
    return data, ext, fmt_name, f"{detail}, named .{ext or '(none)'}", expect


# --------------------------------------------------------------------------------------------
# The corpus

FAMILIES = (
    ("valid", 14),
    ("refused", 8),
    ("truncate", 7),
    ("bitflip", 7),
    ("overwrite", 7),
    ("header", 9),
    ("chunks", 7),
    ("extension", 6),
    ("tiny", 4),
    ("bomb", 9),
    ("hang", 6),
    ("aspect", 6),
)
VALID_WEIGHTS = (("png", 3), ("jpeg", 3), ("tiff", 3), ("bmp", 2), ("gif", 2), ("webp", 2))
MUTATIONS = {
    "truncate": mutate_truncate,
    "bitflip": mutate_bitflip,
    "overwrite": mutate_overwrite,
    "header": mutate_header,
    "chunks": mutate_chunks,
}


def weighted(rng, pairs):
    total = sum(w for _, w in pairs)
    r = rng.uniform(0, total)
    for item, w in pairs:
        r -= w
        if r <= 0:
            return item
    return pairs[-1][0]


def family_counts(n):
    total = sum(w for _, w in FAMILIES)
    counts = {f: n * w // total for f, w in FAMILIES}
    k = 0
    while sum(counts.values()) < n:
        counts[FAMILIES[k % len(FAMILIES)][0]] += 1
        k += 1
    return counts


def seed_pool(seed, size):
    """Small well-formed pictures that the mutations start from."""
    rng = random.Random(f"{seed}:pool")
    pool = []
    gens = [(k, g, 6) for k, g in VALID.items()] + [(k, g, 1) for k, g in REFUSED.items()]
    for k in range(size):
        name, gen, _ = weighted(rng, [((a, b, c), c) for a, b, c in gens])
        data, ext, detail = gen(rng, 96)
        if data:
            pool.append((name, data, ext, detail))
    return pool


def main():
    global QT
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("outdir")
    ap.add_argument("--count", type=int, default=10000)
    ap.add_argument("--seed", default="1")
    args = ap.parse_args()
    os.makedirs(args.outdir, exist_ok=True)
    started = time.monotonic()
    work = tempfile.mkdtemp(prefix="clarovi-corpus-")
    QT = QtEncoder(work)
    try:
        rows = build(args.outdir, args.count, args.seed)
    finally:
        QT.close()
        shutil.rmtree(work, ignore_errors=True)
    with open(os.path.join(args.outdir, "index.csv"), "w", newline="") as f:
        w = csv.writer(f)
        w.writerow(("name", "family", "kind", "format", "expect", "bytes", "detail"))
        w.writerows(rows)
    per = {}
    size = 0
    for r in rows:
        per[r[1]] = per.get(r[1], 0) + 1
        size += r[5]
    print(
        f"{len(rows)} files, {size / 1e6:.1f} MB, in {time.monotonic() - started:.0f} s "
        f"({QT.count} through Qt)"
    )
    for k, v in per.items():
        print(f"  {k:10} {v}")


def make_one(family, slot, rng, pool, counts):
    """(kind, format, expect, data, ext, detail) of one file of a family."""
    if family == "valid":
        fmt = weighted(rng, VALID_WEIGHTS)
        data, ext, detail = VALID[fmt](rng)
        return fmt, fmt, "accept", data, ext, detail
    if family == "refused":
        fmt = list(REFUSED)[slot % len(REFUSED)]
        data, ext, detail = REFUSED[fmt](rng)
        return fmt, fmt, "refuse", data, ext, detail
    if family in MUTATIONS:
        name, seed_data, ext, seed_detail = rng.choice(pool)
        data, kind, what = MUTATIONS[family](rng, seed_data)
        return kind, name, "any", data, ext, f"{seed_detail} | {what}"
    if family == "extension":
        data, ext, fmt, detail, expect = gen_extension(rng, slot, pool)
        return "wrong-ext", fmt, expect, data, ext, detail
    if family == "tiny":
        data, ext, detail = gen_tiny(rng, slot)
        return "tiny", content_format(data) if data else "empty", "refuse", data, ext, detail
    if family == "bomb":
        if slot < min(6, max(1, counts["bomb"] // 100)):
            data, ext, detail, expect = bomb_png_100mp(rng, slot)
            return "png-100mp", "png", expect, data, "png", detail
        maker = weighted(rng, BOMBS)
        data, fmt, detail, expect = maker(rng)
        ext = {"jpeg": "jpg", "tiff": "tif", "pnm": "pgm"}.get(fmt, fmt)
        return BOMB_NAMES[maker], fmt, expect, data, ext, detail
    if family == "hang":
        maker = weighted(rng, HANGS)
        data, fmt, detail, expect = maker(rng)
        ext = {"jpeg": "jpg", "tiff": "tif"}.get(fmt, fmt)
        return HANG_NAMES[maker], fmt, expect, data, ext, detail
    data, ext, fmt, detail, expect = gen_aspect(rng, slot)
    return "aspect", fmt, expect, data, ext, detail


NAME_PATTERN = re.compile(r"^\d{5,}-[a-z]+-")


def build(outdir, n, seed):
    for old in os.listdir(outdir):
        if NAME_PATTERN.match(old):
            os.unlink(os.path.join(outdir, old))
    counts = family_counts(n)
    pool = seed_pool(seed, max(60, min(400, n // 25)))
    rows = []
    index = 0
    for family, _ in FAMILIES:
        for slot in range(counts[family]):
            made = None
            for attempt in range(4):
                key = f"{seed}:{family}:{slot}" + (f":{attempt}" if attempt else "")
                try:
                    made = make_one(family, slot, random.Random(key), pool, counts)
                    if made[3] is None:
                        raise RuntimeError("no data")
                    break
                except Exception as error:  # a generator that cannot make this one: try another
                    last = error
            if made is None:
                print(f"warning: {family} #{slot}: {last}", file=sys.stderr)
                made = ("tiny", "empty", "refuse", b"", "png", f"generator failed: {last}")
            kind, fmt, expect, data, ext, detail = made
            name = f"{index:05d}-{family}-{kind}"
            if ext.startswith("~"):
                name += ext[1:]
            elif ext:
                name += f".{ext}"
            with open(os.path.join(outdir, name), "wb") as f:
                f.write(data)
            rows.append((name, family, kind, fmt, expect, len(data), detail))
            index += 1
    return rows


if __name__ == "__main__":
    main()
