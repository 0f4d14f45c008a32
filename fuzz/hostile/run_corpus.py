#!/usr/bin/env python3
"""Runs clarovi-cli --full-size on a corpus of make_corpus.py and reports what went wrong.

    run_corpus.py CORPUS --cli build/src/cli/clarovi-cli [--jobs 2] [--report FILE]

Every file is exported with --length 1 (a blur below a pixel: the photograph is written as it
is) to PNG, TIFF or JPEG in turn, half of them over an existing file. A run is counted as a
crash (a signal, a sanitizer report), slow (over 20 s; killed at 60), large (peak memory over
1.5 GiB, the program's own, from wait4), a bad output (a failure that leaves a file or changes
the one there, a leftover .part file, a success without its file), a wrong picture (pixels of a
PNG or TIFF export that differ from its seed's, turned as index.csv says; the size of a JPEG; an
orientation tag other than 1 on a turned picture) or bad lines (a failure without exactly one
line, any line not the program's). Writes a Markdown report with the slowest and largest runs.
"""

import argparse
import concurrent.futures
import csv
import os
import re
import struct
import subprocess
import tempfile
import threading
import time
import zlib

KEEP = b"keep me"


def run(cli, source, target, timeout=60):
    with tempfile.TemporaryFile() as errors:
        started = time.monotonic()
        child = subprocess.Popen([cli, "--full-size", "--length", "1", source, target],
                                 stdout=subprocess.DEVNULL, stderr=errors,
                                 env=dict(os.environ, QT_QPA_PLATFORM="offscreen"))
        timer = threading.Timer(timeout, child.kill)
        timer.start()
        _, status, usage = os.wait4(child.pid, 0)
        timer.cancel()
        child.returncode = os.waitstatus_to_exitcode(status)
        seconds = time.monotonic() - started
        errors.seek(0)
        return child.returncode, seconds, usage.ru_maxrss * 1024, errors.read().decode(errors="replace")


# --- reading the exports ------------------------------------------------------------------------

def png_picture(data):
    pos, idat = 8, b""
    while pos + 8 <= len(data):
        n, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + n]
        if kind == b"IHDR":
            w, h, depth, colour = struct.unpack(">IIBB", body[:10])
        elif kind == b"IDAT":
            idat += body
        pos += 12 + n
    channels = {0: 1, 2: 3, 4: 2, 6: 4}[colour]
    raw, step = zlib.decompress(idat), channels * depth // 8
    stride, rows, prior = w * step, [], bytearray(w * step)
    for y in range(h):
        kind, row = raw[y * (stride + 1)], bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for i in range(stride):
            a = row[i - step] if i >= step else 0
            b, c = prior[i], prior[i - step] if i >= step else 0
            p = a + b - c
            pred = [0, a, b, (a + b) // 2,
                    a if abs(p - a) <= abs(p - b) and abs(p - a) <= abs(p - c) else b if abs(p - b) <= abs(p - c) else c][kind]
            row[i] = (row[i] + pred) & 255
        rows.append(bytes(row))
        prior = row
    return samples(w, h, channels, depth, b"".join(rows), ">")


def samples(w, h, channels, depth, data, order):
    values = list(data) if depth == 8 else list(struct.unpack(order + "%dH" % (len(data) // 2), data))
    return w, h, channels, values


def tiff_directory(data, base=0):
    e = "<" if data[base:base + 2] == b"II" else ">"
    at = base + struct.unpack(e + "I", data[base + 4:base + 8])[0]
    tags = {}
    for k in range(struct.unpack(e + "H", data[at:at + 2])[0]):
        tag, kind, count = struct.unpack(e + "HHI", data[at + 2 + 12 * k:at + 10 + 12 * k])
        size = {3: 2, 4: 4}.get(kind, 1) * count
        where = at + 10 + 12 * k if size <= 4 else base + struct.unpack(e + "I", data[at + 10 + 12 * k:at + 14 + 12 * k])[0]
        if kind in (3, 4):
            tags[tag] = list(struct.unpack(e + ("H" if kind == 3 else "I") * count, data[where:where + size]))
    return tags, e


def tiff_picture(data):
    tags, e = tiff_directory(data)
    w, h, depth, channels = tags[256][0], tags[257][0], tags[258][0], tags[277][0]
    raw = b"".join(zlib.decompress(data[o:o + n]) for o, n in zip(tags[273], tags[279]))
    w_, h_, c_, values = samples(w, h, channels, depth, raw, e)
    mask, row = (1 << depth) - 1, w * channels
    for y in range(h):  # undo the horizontal predictor
        for i in range(y * row + channels, (y + 1) * row):
            values[i] = (values[i] + values[i - channels]) & mask
    return w, h, channels, values


def jpeg_size(data):
    pos = 2
    while pos + 9 < len(data):
        marker, length = data[pos + 1], struct.unpack(">H", data[pos + 2:pos + 4])[0]
        if 0xC0 <= marker <= 0xC3:
            h, w = struct.unpack(">HH", data[pos + 5:pos + 9])
            return w, h
        pos += 2 + length
    return None


def orientation_tag(data):
    """The EXIF orientation an export claims, or None."""
    exif = None
    if data[:2] in (b"II", b"MM"):
        exif = data
    elif data[:2] == b"\xff\xd8":
        found = data.find(b"Exif\0\0")
        exif = data[found + 6:] if found > 0 else None
    else:
        found = data.find(b"Raw profile type exif\0\0")
        if found > 0:
            n = struct.unpack(">I", data[found - 8:found - 4])[0]
            text = zlib.decompress(data[found + 23:found - 8 + 8 + n]).split(b"\n", 3)[3]
            exif = bytes.fromhex(text.decode().replace("\n", ""))
            exif = exif[6:] if exif.startswith(b"Exif") else exif
    try:
        return tiff_directory(exif)[0].get(274, [None])[0] if exif else None
    except (struct.error, IndexError):
        return None


def turned(picture, o):
    w, h, ch, s = picture
    wide = o <= 4
    W, H = (w, h) if wide else (h, w)
    where = {1: lambda X, Y: (X, Y), 2: lambda X, Y: (w - 1 - X, Y), 3: lambda X, Y: (w - 1 - X, h - 1 - Y),
             4: lambda X, Y: (X, h - 1 - Y), 5: lambda X, Y: (Y, X), 6: lambda X, Y: (Y, h - 1 - X),
             7: lambda X, Y: (w - 1 - Y, h - 1 - X), 8: lambda X, Y: (w - 1 - Y, X)}[o]
    out = []
    for Y in range(H):
        for X in range(W):
            x, y = where(X, Y)
            out += s[(y * w + x) * ch:(y * w + x + 1) * ch]
    return W, H, ch, out


def picture_of(path):
    data = open(path, "rb").read()
    if path.endswith(".png"):
        return png_picture(data)
    if path.endswith(".tif"):
        return tiff_picture(data)
    size = jpeg_size(data)
    return (size[0], size[1], 0, []) if size else None


# --- judging a run ------------------------------------------------------------------------------

def judge(row, result, target, existed, expected):
    code, seconds, peak, errors = result
    problems = []
    lines = errors.splitlines()
    if code < 0 or re.search(r"Sanitizer|runtime error:", errors):
        problems.append("crash")
    if seconds > 20:
        problems.append("slow")
    if peak > 1.5 * (1 << 30):
        problems.append("large")
    if any(not line.startswith("clarovi-cli: ") for line in lines) or (code != 0 and len(lines) != 1):
        problems.append("lines")
    folder = os.path.dirname(target)
    leftovers = [n for n in os.listdir(folder) if n.endswith(".part")]
    kept = os.path.exists(target) and open(target, "rb").read() == KEEP
    if leftovers or (code != 0 and (kept != existed or (not existed and os.path.exists(target)))) \
            or (code == 0 and (not os.path.exists(target) or kept)):
        problems.append("output")
    if code == 0 and os.path.exists(target) and not kept:
        try:
            picture = picture_of(target)
            want = turned(expected, int(row["turn"]))
            same = picture[:2] == want[:2] if target.endswith(".jpg") else picture == want
            claims = orientation_tag(open(target, "rb").read())
            if not same or (int(row["turn"]) != 1 and claims not in (None, 1)):
                problems.append("picture")
        except Exception:  # an export that cannot be read back is a wrong picture too
            problems.append("picture")
    return problems


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("corpus")
    parser.add_argument("--cli", required=True)
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--report", default="report.md")
    args = parser.parse_args()
    rows = list(csv.DictReader(open(os.path.join(args.corpus, "index.csv"))))
    work = tempfile.mkdtemp(prefix="clarovi-corpus-")
    formats = ["png", "tif", "jpg"]
    references = {}
    for seed in sorted({r["seed"] for r in rows}):
        for fmt in formats:
            target = os.path.join(work, f"ref-{seed}.{fmt}")
            code, *_ = run(args.cli, os.path.join(args.corpus, "ref-" + seed), target)
            references[seed, fmt] = picture_of(target) if code == 0 else None

    def one(n, row):
        fmt = formats[n % 3]
        folder = os.path.join(work, "run%d" % n)
        os.makedirs(folder)
        target = os.path.join(folder, "out." + fmt)
        if n % 2:
            open(target, "wb").write(KEEP)
        result = run(args.cli, os.path.join(args.corpus, row["name"]), target)
        expected = references[row["seed"], fmt]
        problems = judge(row, result, target, n % 2 == 1, expected) if expected else ["reference"]
        for name in os.listdir(folder):
            os.remove(os.path.join(folder, name))
        os.rmdir(folder)
        return row, fmt, result, problems

    with concurrent.futures.ThreadPoolExecutor(args.jobs) as pool:
        done = list(pool.map(lambda item: one(*item), enumerate(rows)))
    write_report(args, done)


def write_report(args, done):
    kinds = ["crash", "slow", "large", "output", "picture", "lines", "reference"]
    count = {k: sum(k in p for *_, p in done) for k in kinds}
    failed = sum(r[0] != 0 for _, _, r, _ in done)
    with open(args.report, "w") as report:
        report.write(f"# {os.path.basename(args.cli)} on {len(done)} files of {args.corpus}\n\n")
        report.write("| runs | written | refused | " + " | ".join(kinds) + " |\n")
        report.write("|---" * (3 + len(kinds)) + "|\n")
        report.write(f"| {len(done)} | {len(done) - failed} | {failed} | " +
                     " | ".join(str(count[k]) for k in kinds) + " |\n\n")
        for title, key in (("Slowest", 1), ("Largest", 2)):
            report.write(f"{title} runs:\n\n| file | format | seconds | peak MiB | mutations |\n|---|---|---|---|---|\n")
            for row, fmt, result, _ in sorted(done, key=lambda d: -d[2][key])[:5]:
                report.write(f"| {row['name']} | {fmt} | {result[1]:.2f} | {result[2] / (1 << 20):.0f} | {row['mutations']} |\n")
            report.write("\n")
        for row, fmt, result, problems in done:
            if problems or result[0] != 0:
                verdict = ", ".join(problems) or "refused"
                report.write(f"- {row['name']} -> {fmt}: {verdict}: {result[3].strip()[:300]}\n")
    print(open(args.report).read().split("Slowest")[0])


if __name__ == "__main__":
    main()
