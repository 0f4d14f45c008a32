#!/usr/bin/env python3
"""Runs clarovi-cli on a corpus of hostile pictures and reports how it copes.

    run_corpus.py CORPUSDIR --cli PATH [--jobs 2] [--timeout 30] [--sample N] [--auto-every K]
                  [--report FILE] [--csv FILE] [--workdir DIR] [--resume] [--seed S]
                  [--families a,b] [--slow 5] [--slow-auto S] [--auto-motion alternate|never|always]
                  [--memory-mib M] [--keep]

For every file (or a deterministic sample of N, spread over the families of index.csv) one plain
run `clarovi-cli [mode] INPUT OUT.png`, the mode going round plain / --rgb / --tiled /
--motion --length 20; every K-th file also `clarovi-cli [--motion] --auto OUTDIR INPUT` into a
folder that does not exist yet. Half of the plain runs find OUT.png already there, holding known
bytes. Each run is timed and measured with wait4 (wall seconds, peak resident size) and
classified:

  success     exit 0 and OUT.png is a complete PNG (for --auto: OUTDIR with its index.csv and
              complete thumbnails)
  refusal     non-zero exit, no crash
  crash       killed by a signal, a sanitizer's exit code, or a sanitizer / segfault report
  hang        longer than --slow seconds (5), killed at --timeout
  bad-output  exit 0 without a complete PNG

and flagged: multi-line (a failure printing more than one line on stderr; progress lines of
--auto excepted), unprefixed (a failure without a "clarovi-cli: " line), touched-output (a
failure that changed or removed the existing OUT.png, or left a new or partial one, or any stray
file), leftover-folder (a failed --auto that left OUTDIR behind), noisy-success (exit 0 with
something on stderr), refused-valid / accepted-refusable (against index.csv's expect column),
big-refusal (a refusal over 256 MiB), huge (any run over 1.5 GiB).

Peak sizes are the program's own: it is forked from a small launcher process that waits for it
(a child exec'd straight from this harness would inherit the harness's peak as its ru_maxrss);
for a run killed at the timeout, its VmHWM just before the kill.

Every run is appended to the CSV as soon as it ends; --resume skips the runs already there, and
the report is always made from the whole CSV.
"""

import argparse
import collections
import concurrent.futures
import csv
import datetime
import hashlib
import os
import random
import re
import resource
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import threading
import time
import zlib

from make_corpus import ADAM7

MODES = ([], ["--rgb"], ["--tiled"], ["--motion", "--length", "20"])
PROGRESS = re.compile(r"^\s*\d+%\s+Remaining time:")
CRASH_TEXT = (
    "AddressSanitizer",
    "LeakSanitizer",
    "ThreadSanitizer",
    "MemorySanitizer",
    "UndefinedBehaviorSanitizer",
    "runtime error:",
    "Segmentation",
    "terminate called",
    "core dumped",
    "stack smashing",
    "double free",
    "free(): ",
    "malloc(): ",
    "corrupted size",
    "Aborted",
    "ASSERT:",
    "Fatal error",
)
CRASH_CODES = {23, 66, 134, 139}  # LeakSanitizer, MemorySanitizer, shells' abort / segfault
SENTINEL = b"clarovi hostile-corpus sentinel: this file must survive a failed run\n"
CSV_FIELDS = (
    "run_id",
    "file",
    "family",
    "kind",
    "format",
    "expect",
    "run",
    "args",
    "precreated",
    "exit",
    "signal",
    "killed",
    "wall_s",
    "maxrss_mib",
    "outcome",
    "flags",
    "stderr_lines",
    "extra_lines",
    "first_line",
    "stderr_head",
    "out_size",
    "detail",
)
BIG_REFUSAL_MIB = 256
HUGE_MIB = 1536


# --------------------------------------------------------------------------------------------
# Checking outputs


def png_problem(path):
    """None when path holds a complete PNG, else what is wrong with it."""
    try:
        with open(path, "rb") as f:
            data = f.read()
    except OSError as error:
        return f"unreadable: {error.strerror}"
    if not data.startswith(b"\x89PNG\r\n\x1a\n"):
        return "no PNG signature"
    p, idat, header, ended = 8, [], None, False
    while p + 12 <= len(data):
        n = struct.unpack(">I", data[p : p + 4])[0]
        kind = data[p + 4 : p + 8]
        if p + 12 + n > len(data):
            return f"chunk {kind!r} runs past the end"
        body = data[p + 8 : p + 8 + n]
        if zlib.crc32(kind + body) != struct.unpack(">I", data[p + 8 + n : p + 12 + n])[0]:
            return f"bad CRC in {kind!r}"
        if header is None and kind != b"IHDR":
            return "IHDR is not first"
        if kind == b"IHDR":
            header = struct.unpack(">IIBBBBB", body)
        elif kind == b"IDAT":
            idat.append(body)
        elif kind == b"IEND":
            ended = True
            break
        p += 12 + n
    if header is None or not ended:
        return "no IHDR or no IEND"
    w, h, depth, ctype, _, _, interlace = header
    if w == 0 or h == 0:
        return "zero size"
    channels = {0: 1, 2: 3, 3: 1, 4: 2, 6: 4}.get(ctype)
    if channels is None:
        return f"colour type {ctype}"
    # Inflated piece by piece, only counted, so that this harness stays small.
    inflater = zlib.decompressobj()
    size = 0
    try:
        for piece in idat:
            size += len(inflater.decompress(piece))
        size += len(inflater.flush())
    except zlib.error as error:
        return f"IDAT does not inflate: {error}"
    if not inflater.eof:
        return "IDAT stream does not end"
    bits = depth * channels
    if interlace:
        want = 0
        for xs, ys, dx, dy in ADAM7:
            pw = (w - xs + dx - 1) // dx if w > xs else 0
            ph = (h - ys + dy - 1) // dy if h > ys else 0
            if pw and ph:
                want += ph * (1 + (pw * bits + 7) // 8)
    else:
        want = h * (1 + (w * bits + 7) // 8)
    if size != want:
        return f"{size} bytes of pixels, {want} expected"
    return None


def auto_problem(folder):
    if not os.path.isdir(folder):
        return "no output folder"
    index = os.path.join(folder, "index.csv")
    if not os.path.isfile(index):
        return "no index.csv"
    with open(index, newline="", encoding="utf-8", errors="replace") as f:
        rows = list(csv.reader(f))
    for k in range(len(rows) - 1):
        name = os.path.join(folder, "%04d.png" % k)
        problem = png_problem(name)
        if problem:
            return f"{os.path.basename(name)}: {problem}"
    return None


def listing(folder):
    out = {}
    for root, dirs, files in os.walk(folder):
        for name in dirs + files:
            full = os.path.join(root, name)
            out[os.path.relpath(full, folder)] = os.path.isdir(full)
    return out


# --------------------------------------------------------------------------------------------
# Running one command

# A child's ru_maxrss starts from the peak of the process it was exec'd from, and with vfork that
# is this harness. So the program is forked from a small launcher instead, which waits for it and
# writes its pid, then its wait status and usage, on a pipe.
LAUNCHER = r"""
import os, sys, time
fd = int(sys.argv[1])
started = time.monotonic()
pid = os.fork()
if pid == 0:
    os.close(fd)
    try:
        os.execv(sys.argv[2], sys.argv[2:])
    except OSError as error:
        os.write(2, ("launcher: cannot run %s: %s\n" % (sys.argv[2], error.strerror)).encode())
        os._exit(127)
os.write(fd, b"pid %d\n" % pid)
while True:
    try:
        _, status, usage = os.wait4(pid, 0)
        break
    except InterruptedError:
        pass
os.write(fd, b"done %d %d %.6f\n" % (status, usage.ru_maxrss, time.monotonic() - started))
"""


def peak_kib(pid):
    try:
        with open(f"/proc/{pid}/status") as f:
            for line in f:
                if line.startswith("VmHWM:"):
                    return int(line.split()[1])
    except (OSError, ValueError):
        pass
    return 0


def execute(argv, timeout, memory_mib):
    """Runs argv; returns (exit code or None, signal or None, killed, wall, maxrss KiB, stderr)."""
    err = tempfile.TemporaryFile()
    lock = threading.Lock()
    state = {"done": False, "killed": False, "peak": 0}
    rfd, wfd = os.pipe()
    os.set_blocking(rfd, False)
    got = bytearray()

    def drain():
        while True:
            try:
                piece = os.read(rfd, 4096)
            except BlockingIOError:
                return
            if not piece:
                return
            got.extend(piece)

    def limit():
        if memory_mib:
            size = memory_mib << 20
            resource.setrlimit(resource.RLIMIT_AS, (size, size))

    started = time.monotonic()
    proc = subprocess.Popen(
        [sys.executable, "-S", "-c", LAUNCHER, str(wfd)] + argv,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL,
        stderr=err,
        start_new_session=True,
        pass_fds=(wfd,),
        preexec_fn=limit if memory_mib else None,
    )
    os.close(wfd)

    def kill():
        with lock:
            if state["done"]:
                return
            drain()
            m = re.search(rb"pid (\d+)", got)
            if m:
                state["peak"] = peak_kib(int(m.group(1)))
            state["killed"] = True
            try:
                os.killpg(proc.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass

    timer = threading.Timer(timeout, kill)
    timer.start()
    while True:
        try:
            _, lstatus, lusage = os.wait4(proc.pid, 0)
            break
        except InterruptedError:
            continue
    with lock:
        state["done"] = True
    timer.cancel()
    wall = time.monotonic() - started
    proc.returncode = os.waitstatus_to_exitcode(lstatus)
    # Anything the program left running in its group goes too.
    try:
        os.killpg(proc.pid, signal.SIGKILL)
    except (ProcessLookupError, PermissionError):
        pass
    drain()
    os.close(rfd)
    err.seek(0)
    stderr = err.read()
    err.close()
    m = re.search(rb"done (-?\d+) (\d+) ([\d.]+)", got)
    if m:
        status, rss, wall = int(m.group(1)), int(m.group(2)), float(m.group(3))
    else:
        # The launcher itself was killed (timeout): the program's peak was read just before.
        status, rss = lstatus, state["peak"]
    code = sig = None
    if os.WIFSIGNALED(status):
        sig = os.WTERMSIG(status)
    else:
        code = os.WEXITSTATUS(status)
    return code, sig, state["killed"], wall, rss, stderr


# --------------------------------------------------------------------------------------------
# One run and its verdict


def classify(run, code, sig, killed, wall, rss_kib, stderr, slow, expect):
    text = stderr.decode("utf-8", "replace")
    lines = [l for l in text.splitlines() if l.strip()]
    own = [l for l in lines if not (run == "auto" and PROGRESS.match(l))]
    flags = []
    crash = (
        (sig is not None and not killed)
        or code in CRASH_CODES
        or any(t in text for t in CRASH_TEXT)
    )
    if crash:
        outcome = "crash"
    elif killed or wall > slow:
        outcome = "hang"
    elif code == 0:
        outcome = "success"
    else:
        outcome = "refusal"
    failed = code != 0 or sig is not None
    extra = 0
    if failed and not killed:
        prefixed = [l for l in own if l.startswith("clarovi-cli: ")]
        if len(own) > 1:
            flags.append("multi-line")
            extra = len(own) - 1
        if not prefixed:
            flags.append("unprefixed")
        if code == 2:
            flags.append("usage-error")
    if not failed and own:
        flags.append("noisy-success")
    mib = rss_kib / 1024
    if outcome == "refusal" and mib > BIG_REFUSAL_MIB:
        flags.append("big-refusal")
    if mib > HUGE_MIB:
        flags.append("huge")
    return outcome, flags, own, extra


def run_one(task, cli, workdir, timeout, slow, memory_mib, keep):
    path, meta, run, mode_args, precreate = task
    run_dir = tempfile.mkdtemp(prefix="run-", dir=workdir)
    out = os.path.join(run_dir, "out.png")
    auto_dir = os.path.join(run_dir, "auto")
    if run == "auto":
        argv = [cli] + mode_args + ["--auto", auto_dir, path]
    else:
        if precreate:
            with open(out, "wb") as f:
                f.write(SENTINEL)
        argv = [cli] + mode_args + [path, out]
    before = listing(run_dir)
    code, sig, killed, wall, rss, stderr = execute(argv, timeout, memory_mib)
    outcome, flags, own, extra = classify(
        run,
        code,
        sig,
        killed,
        wall,
        rss,
        stderr,
        slow[1] if run == "auto" else slow[0],
        meta.get("expect", "any"),
    )
    out_size = ""
    failed = code != 0 or sig is not None
    after = listing(run_dir)
    if run == "plain":
        if not failed:
            problem = png_problem(out)
            if problem:
                outcome = "bad-output" if outcome == "success" else outcome
                flags.append("bad-png:" + problem)
            elif os.path.exists(out):
                out_size = str(os.path.getsize(out))
            stray = sorted(set(after) - {"out.png"})
            if stray:
                flags.append("stray-files")
        else:
            touched = []
            if precreate:
                try:
                    with open(out, "rb") as f:
                        if f.read() != SENTINEL:
                            touched.append("OUT.png changed")
                except FileNotFoundError:
                    touched.append("OUT.png removed")
            elif os.path.exists(out):
                touched.append(f"left an OUT.png of {os.path.getsize(out)} bytes")
            stray = sorted(set(after) - set(before) - {"out.png"})
            if stray:
                touched.append("stray " + ",".join(stray[:3]))
            if touched and not killed:
                flags.append("touched-output:" + "; ".join(touched))
    else:
        if not failed:
            problem = auto_problem(auto_dir)
            if problem:
                outcome = "bad-output" if outcome == "success" else outcome
                flags.append("bad-auto:" + problem)
        elif os.path.exists(auto_dir) and not killed:
            flags.append("leftover-folder")
    expect = meta.get("expect", "any")
    if expect == "accept" and outcome == "refusal":
        flags.append("refused-valid")
    if expect == "refuse" and outcome == "success":
        flags.append("accepted-refusable")
    if not keep:
        shutil.rmtree(run_dir, ignore_errors=True)
    head = " \u23ce ".join(l[:300] for l in own[:5])
    row = {
        "run_id": f"{meta['name']}|{run}",
        "file": meta["name"],
        "family": meta.get("family", ""),
        "kind": meta.get("kind", ""),
        "format": meta.get("format", ""),
        "expect": expect,
        "run": run,
        "args": " ".join(mode_args),
        "precreated": int(bool(precreate)),
        "exit": "" if code is None else code,
        "signal": "" if sig is None else sig,
        "killed": int(killed),
        "wall_s": f"{wall:.3f}",
        "maxrss_mib": f"{rss / 1024:.1f}",
        "outcome": outcome,
        "flags": " ".join(f.replace(" ", "_") for f in flags),
        "stderr_lines": len(own),
        "extra_lines": extra,
        "first_line": own[0][:300] if own else "",
        "stderr_head": head,
        "out_size": out_size,
        "detail": meta.get("detail", "")[:300],
    }
    # As the CSV gives them back, so that a resumed report reads the same.
    return {k: str(v) for k, v in row.items()}


# --------------------------------------------------------------------------------------------
# The plan


def load_index(corpus):
    index = os.path.join(corpus, "index.csv")
    metas = []
    if os.path.isfile(index):
        with open(index, newline="", encoding="utf-8") as f:
            for row in csv.DictReader(f):
                metas.append(row)
    else:
        for name in sorted(os.listdir(corpus)):
            if os.path.isfile(os.path.join(corpus, name)):
                metas.append(
                    {"name": name, "family": "unknown", "kind": "", "format": "", "expect": "any"}
                )
    return metas


def choose(metas, sample, seed, families):
    if families:
        metas = [m for m in metas if m.get("family") in families]
    if not sample or sample >= len(metas):
        return metas
    groups = collections.OrderedDict()
    for m in metas:
        groups.setdefault(m.get("family", ""), []).append(m)
    for fam, members in groups.items():
        random.Random(f"{seed}:{fam}").shuffle(members)
    picked = []
    while len(picked) < sample:
        for members in groups.values():
            if members and len(picked) < sample:
                picked.append(members.pop())
    return sorted(picked, key=lambda m: m["name"])


def plan(metas, corpus, auto_every, auto_motion="alternate"):
    tasks = []
    autos = 0
    for k, meta in enumerate(metas):
        path = os.path.abspath(os.path.join(corpus, meta["name"]))
        h = int(hashlib.sha1(meta["name"].encode()).hexdigest(), 16)
        tasks.append((path, meta, "plain", list(MODES[k % len(MODES)]), (h >> 8) & 1))
        if auto_every and k % auto_every == 0:
            motion = {"always": True, "never": False}.get(auto_motion, autos % 2 == 1)
            tasks.append((path, meta, "auto", ["--motion"] if motion else [], 0))
            autos += 1
    return tasks


# --------------------------------------------------------------------------------------------
# The report


def signature(line):
    s = re.sub(r"\u201c[^\u201d]*\u201d", "\u201cF\u201d", line)
    s = re.sub(r"/\S+", "PATH", s)
    s = re.sub(r"0x[0-9a-fA-F]+", "N", s)
    s = re.sub(r"\d+", "N", s)
    return s[:160]


def report(rows, args, elapsed):
    out = []
    w = out.append
    now = datetime.datetime.now().strftime("%Y-%m-%d %H:%M")
    w(f"# clarovi-cli against hostile pictures\n")
    w(f"- corpus: `{os.path.abspath(args.corpus)}`")
    w(f"- program: `{os.path.abspath(args.cli)}`")
    w(
        f"- {len(rows)} runs on {len({r['file'] for r in rows})} files; {now}; "
        f"this session {elapsed:.0f} s with {args.jobs} at a time; slow over {args.slow:g} s "
        f"(--auto: {args.slow_auto or args.slow:g} s), killed at {args.timeout:g} s"
    )
    w("- peak resident sizes are the program's own (wait4 of a small launcher's child)\n")

    def flagged(r, name):
        return any(f == name or f.startswith(name + ":") for f in r["flags"].split())

    outcomes = collections.Counter(r["outcome"] for r in rows)
    flag_names = (
        "multi-line",
        "unprefixed",
        "touched-output",
        "leftover-folder",
        "noisy-success",
        "refused-valid",
        "accepted-refusable",
        "big-refusal",
        "huge",
        "stray-files",
        "usage-error",
        "bad-png",
        "bad-auto",
    )
    flag_counts = {f: sum(1 for r in rows if flagged(r, f)) for f in flag_names}
    w("## Summary\n")
    w("| outcome | runs |\n| --- | ---: |")
    for k in ("success", "refusal", "crash", "hang", "bad-output"):
        w(f"| {k} | {outcomes.get(k, 0)} |")
    w("")
    w("| flag | runs |\n| --- | ---: |")
    for k in flag_names:
        if flag_counts[k]:
            w(f"| {k} | {flag_counts[k]} |")
    extra = sum(int(r["extra_lines"] or 0) for r in rows)
    w(f"\nExtra stderr lines in multi-line failures: {extra}.\n")

    w("## Per family\n")
    w(
        "| family | runs | success | refusal | crash | hang | bad-output | multi-line | touched | "
        "leftover | noisy-success | refused-valid | accepted-refusable | max MiB | max s |"
    )
    w(
        "| --- | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: |"
    )
    fams = collections.OrderedDict()
    for r in rows:
        fams.setdefault(r["family"], []).append(r)
    for fam, rs in fams.items():
        c = collections.Counter(r["outcome"] for r in rs)
        w(
            f"| {fam} | {len(rs)} | {c['success']} | {c['refusal']} | {c['crash']} | {c['hang']} | "
            f"{c['bad-output']} | {sum(flagged(r, 'multi-line') for r in rs)} | "
            f"{sum(flagged(r, 'touched-output') for r in rs)} | "
            f"{sum(flagged(r, 'leftover-folder') for r in rs)} | "
            f"{sum(flagged(r, 'noisy-success') for r in rs)} | "
            f"{sum(flagged(r, 'refused-valid') for r in rs)} | "
            f"{sum(flagged(r, 'accepted-refusable') for r in rs)} | "
            f"{max(float(r['maxrss_mib']) for r in rs):.0f} | {max(float(r['wall_s']) for r in rs):.1f} |"
        )
    w("")

    def line(r):
        return (
            f"`{r['file']}` ({r['family']}/{r['kind']}, {r['run']} {r['args']}) "
            f"{float(r['wall_s']):.2f} s, {float(r['maxrss_mib']):.0f} MiB, exit "
            f"{r['exit'] if r['exit'] != '' else 'signal ' + str(r['signal'])}"
            f"{' killed' if r['killed'] == '1' else ''}, {r['outcome']}"
        )

    w("## 10 slowest runs\n")
    for r in sorted(rows, key=lambda r: -float(r["wall_s"]))[:10]:
        w("- " + line(r))
    w("\n## 10 largest runs (peak resident size)\n")
    for r in sorted(rows, key=lambda r: -float(r["maxrss_mib"]))[:10]:
        w("- " + line(r))
    w(f"\n## Refusals over {BIG_REFUSAL_MIB} MiB\n")
    big = [r for r in rows if flagged(r, "big-refusal")]
    for r in sorted(big, key=lambda r: -float(r["maxrss_mib"])):
        w("- " + line(r) + f": {r['first_line'][:160]}")
    if not big:
        w("- none")
    w(f"\n## Runs over {HUGE_MIB / 1024:.1f} GiB\n")
    huge = [r for r in rows if flagged(r, "huge")]
    for r in sorted(huge, key=lambda r: -float(r["maxrss_mib"])):
        w("- " + line(r))
    if not huge:
        w("- none")

    def section(title, pick):
        chosen = [r for r in rows if pick(r)]
        w(f"\n## {title} ({len(chosen)})\n")
        if not chosen:
            w("- none")
        for r in chosen:
            extra = f" [{r['flags']}]" if r["flags"] else ""
            w("- " + line(r) + extra)
            if r.get("detail"):
                w("  - file: " + r["detail"][:300])
            if r["stderr_head"]:
                w("  - stderr: " + r["stderr_head"][:600])

    section("Crashes", lambda r: r["outcome"] == "crash")
    section("Hangs", lambda r: r["outcome"] == "hang")
    section("Bad output on success", lambda r: r["outcome"] == "bad-output")
    section("Touched output", lambda r: flagged(r, "touched-output"))
    section("Leftover folders", lambda r: flagged(r, "leftover-folder"))
    section("Failures without a clarovi-cli: line", lambda r: flagged(r, "unprefixed"))
    section("Multi-line refusals", lambda r: flagged(r, "multi-line"))

    w("\n## Distinct stderr lines of failures (numbers and names folded)\n")
    sig_count = collections.Counter()
    sig_example = {}
    for r in rows:
        if r["outcome"] == "success":
            continue
        for l in r["stderr_head"].split(" \u23ce "):
            if not l:
                continue
            s = signature(l)
            sig_count[s] += 1
            sig_example.setdefault(s, r["file"])
    for s, n in sig_count.most_common(60):
        w(f"- {n} x `{s}` e.g. `{sig_example[s]}`")

    w("\n## Outcomes against expectations, by kind\n")
    for flag in ("refused-valid", "accepted-refusable", "noisy-success"):
        groups = collections.OrderedDict()
        for r in rows:
            if flagged(r, flag):
                groups.setdefault((r["family"], r["kind"]), []).append(r)
        w(f"\n### {flag} ({sum(len(v) for v in groups.values())})\n")
        if not groups:
            w("- none")
        for (fam, kind), rs in sorted(groups.items(), key=lambda kv: -len(kv[1])):
            w(
                f"- {fam}/{kind}: {len(rs)}, e.g. "
                + ", ".join(f"`{r['file']}`" for r in rs[:3])
                + (f": {rs[0]['first_line'][:140]}" if rs[0]["first_line"] else "")
            )
    return "\n".join(out) + "\n"


# --------------------------------------------------------------------------------------------


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("corpus")
    ap.add_argument("--cli", required=True, help="the clarovi-cli binary")
    ap.add_argument("--jobs", type=int, default=2)
    ap.add_argument("--timeout", type=float, default=30.0, help="kill a run after this (s)")
    ap.add_argument("--slow", type=float, default=5.0, help="a run longer than this is a hang (s)")
    ap.add_argument(
        "--slow-auto", type=float, default=0.0, help="the same for --auto runs (default: --slow)"
    )
    ap.add_argument(
        "--auto-motion",
        choices=("alternate", "never", "always"),
        default="alternate",
        help="whether --auto runs add --motion",
    )
    ap.add_argument("--sample", type=int, default=0, help="a deterministic sample of N files")
    ap.add_argument("--seed", default="1", help="seed of the sample")
    ap.add_argument(
        "--auto-every", type=int, default=20, help="an --auto run every K files (0: none)"
    )
    ap.add_argument("--families", default="", help="only these families (comma-separated)")
    ap.add_argument("--report", default="", help="the report (default WORKDIR/report.md)")
    ap.add_argument("--csv", default="", help="every run (default: the report's name, .csv)")
    ap.add_argument("--workdir", default=os.path.join(tempfile.gettempdir(), "clarovi-hostile-run"))
    ap.add_argument("--resume", action="store_true", help="skip runs already in the CSV")
    ap.add_argument(
        "--memory-mib", type=int, default=0, help="address-space limit per run (0: none)"
    )
    ap.add_argument("--keep", action="store_true", help="keep every run's folder")
    args = ap.parse_args()

    if not os.access(args.cli, os.X_OK):
        sys.exit(f"run_corpus.py: {args.cli} is not an executable")
    os.makedirs(args.workdir, exist_ok=True)
    report_path = args.report or os.path.join(args.workdir, "report.md")
    csv_path = args.csv or os.path.splitext(report_path)[0] + ".csv"
    runs_dir = os.path.join(args.workdir, "runs")
    os.makedirs(runs_dir, exist_ok=True)

    families = {f for f in args.families.split(",") if f}
    metas = choose(load_index(args.corpus), args.sample, args.seed, families)
    tasks = plan(metas, args.corpus, args.auto_every, args.auto_motion)

    done_rows = []
    if args.resume and os.path.isfile(csv_path):
        with open(csv_path, newline="", encoding="utf-8") as f:
            done_rows = list(csv.DictReader(f))
    done = {r["run_id"] for r in done_rows}
    todo = [t for t in tasks if f"{t[1]['name']}|{t[2]}" not in done]
    mode = "a" if args.resume and os.path.isfile(csv_path) else "w"
    csv_file = open(csv_path, mode, newline="", encoding="utf-8")
    writer = csv.DictWriter(csv_file, fieldnames=CSV_FIELDS)
    if mode == "w":
        writer.writeheader()
    print(
        f"{len(metas)} files, {len(tasks)} runs planned, {len(tasks) - len(todo)} already done",
        file=sys.stderr,
    )

    started = time.monotonic()
    new_rows = []
    counts = collections.Counter()
    lock = threading.Lock()
    interrupted = False
    try:
        with concurrent.futures.ThreadPoolExecutor(max_workers=max(1, args.jobs)) as pool:
            slow = (args.slow, args.slow_auto or args.slow)
            futures = [
                pool.submit(
                    run_one,
                    t,
                    os.path.abspath(args.cli),
                    runs_dir,
                    args.timeout,
                    slow,
                    args.memory_mib,
                    args.keep,
                )
                for t in todo
            ]
            for k, fut in enumerate(concurrent.futures.as_completed(futures), 1):
                row = fut.result()
                with lock:
                    writer.writerow(row)
                    csv_file.flush()
                    new_rows.append(row)
                    counts[row["outcome"]] += 1
                if k % 25 == 0 or k == len(futures):
                    spent = time.monotonic() - started
                    eta = spent / k * (len(futures) - k)
                    print(
                        f"  {k}/{len(futures)} runs, {spent:.0f} s, about {eta:.0f} s left: "
                        + ", ".join(f"{n} {c}" for c, n in counts.most_common()),
                        file=sys.stderr,
                    )
    except KeyboardInterrupt:
        interrupted = True
        print("interrupted; the CSV keeps what ended", file=sys.stderr)
    finally:
        csv_file.close()

    rows = done_rows + new_rows
    text = report(rows, args, time.monotonic() - started)
    with open(report_path, "w", encoding="utf-8") as f:
        f.write(text)
    summary = collections.Counter(r["outcome"] for r in rows)
    print(
        f"report: {report_path}\ncsv: {csv_path}\n"
        + ", ".join(f"{n} {c}" for c, n in summary.most_common()),
        file=sys.stderr,
    )
    if interrupted:
        sys.exit(130)


if __name__ == "__main__":
    main()
