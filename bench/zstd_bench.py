#!/usr/bin/env python3
"""The Zstandard decoder's benchmark: decode throughput in-process natively against libzstd, and
whole-process under Wine (zstd_apply.exe) against `zstd -d` natively, with peak memory beside
each, on (a) a 256 MiB file of Debian's LLVM libraries compressed at level 19 and (b) a
--patch-from patch of libLLVM-15 against libLLVM-14 at level 3 (level 19 takes over half an hour
for this pair on the 2-core machine). Prints a table and rewrites the
"Zstandard decoder" section of docs/benchmarks.md (below the marker line).

The inputs are made once under build/bench-zstd (level 19 over 256 MiB takes many minutes). The
native harness (bench/native) builds with the host's compiler at -O2 into build/bench-native.

  bench/zstd_bench.py [--runs N]
"""
import argparse
import hashlib
import os
import re
import statistics
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BUILD = os.path.join(ROOT, "build")
DATA = os.path.join(BUILD, "bench-zstd")
NATIVE = os.path.join(BUILD, "bench-native")
APPLY = os.path.join(BUILD, "tests", "bin", "zstd_apply.exe")
WINE_RUN = os.path.join(BUILD, "wine-run")
PREFIX = os.path.join(BUILD, "wineprefix")
DOC = os.path.join(ROOT, "docs", "benchmarks.md")
LIB = "/usr/lib/x86_64-linux-gnu"
OLD, NEW = os.path.join(LIB, "libLLVM-14.so.1"), os.path.join(LIB, "libLLVM-15.so.1")
MIB = 1 << 20


def make_inputs():
    """(name, frame, old or None, decoded size) of both cases, made when missing."""
    os.makedirs(DATA, exist_ok=True)
    big, big_frame = os.path.join(DATA, "big.bin"), os.path.join(DATA, "big.bin.zst")
    if not os.path.exists(big_frame):
        with open(big, "wb") as out:
            left = 256 * MIB
            for source in (OLD, NEW, os.path.join("/usr/lib/llvm-14/lib", "libclang-cpp.so.14")):
                with open(source, "rb") as data:
                    piece = data.read(left)
                out.write(piece)
                left -= len(piece)
        subprocess.run(["zstd", "-q", "-f", "-19", "-T2", big, "-o", big_frame + ".part"], check=True)
        os.replace(big_frame + ".part", big_frame)
    patch = os.path.join(DATA, "llvm.patch.zst")
    if not os.path.exists(patch):
        subprocess.run(["zstd", "-q", "-f", "-3", "-T2", "--long=31", "--patch-from=" + OLD, NEW, "-o", patch + ".part"],
                       check=True)
        os.replace(patch + ".part", patch)
    return [("(a) 256 MiB, level 19", big_frame, None, 256 * MIB),
            ("(b) patch libLLVM 14 to 15, level 3", patch, OLD, os.path.getsize(NEW))]


def build_native():
    subprocess.run(["cmake", "-S", os.path.join(ROOT, "bench", "native"), "-B", NATIVE], check=True,
                   stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", NATIVE, "-j2"], check=True, stdout=subprocess.DEVNULL)


def in_process(frame, old, runs):
    """{decoder: (MB/s, memory or None)} from zstd_speed."""
    out = subprocess.run([os.path.join(NATIVE, "zstd_speed"), frame, old or "-", str(runs)], check=True,
                         capture_output=True, text=True).stdout
    figures = {}
    for line in out.splitlines():
        match = re.match(r"(ours|libzstd one call|libzstd streaming): (\d+) MB/s(?:, memory (\d+))?", line)
        if match:
            figures[match.group(1)] = (int(match.group(2)), int(match.group(3)) if match.group(3) else None)
    return figures


def timed(command):
    """(seconds, peak resident KiB) of a whole process, by GNU time."""
    done = subprocess.run(["/usr/bin/time", "-f", "%e %M"] + command, capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"{command[0]} failed: {done.stdout} {done.stderr}")
    seconds, kib = done.stderr.strip().splitlines()[-1].split()
    return float(seconds), int(kib)


def digest(path):
    sha = hashlib.sha256()
    with open(path, "rb") as data:
        for piece in iter(lambda: data.read(MIB), b""):
            sha.update(piece)
    return sha.hexdigest()


def whole_process(frame, old, runs):
    """Medians of (seconds, peak MiB) for zstd_apply.exe under Wine and zstd -d natively."""
    wine_out, native_out = os.path.join(DATA, "out-wine.bin"), os.path.join(DATA, "out-native.bin")
    z = lambda path: "Z:" + path.replace("/", "\\")
    wine = [WINE_RUN, APPLY, z(frame), z(wine_out)] + ([z(old)] if old else [])
    native = ["zstd", "-d", "-q", "-f", "--long=31", "--memory=2048MB"] + (["--patch-from=" + old] if old else []) + \
             [frame, "-o", native_out]
    results = {"wine": [], "native": []}
    for _ in range(runs + 1):  # the first round warms the caches and is not counted
        results["wine"].append(timed(wine))
        results["native"].append(timed(native))
    if digest(wine_out) != digest(native_out):
        sys.exit("zstd_apply.exe and zstd -d wrote different bytes")
    os.remove(wine_out)
    os.remove(native_out)
    return {name: (statistics.median(s for s, _ in values[1:]), max(k for _, k in values[1:]) / 1024)
            for name, values in results.items()}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--runs", type=int, default=3)
    runs = parser.parse_args().runs
    subprocess.run(["sh", os.path.join(ROOT, "tests", "support", "wine-prefix"), "up", PREFIX], check=True)
    build_native()
    rows = []
    for name, frame, old, size in make_inputs():
        speed = in_process(frame, old, runs + 2)
        process = whole_process(frame, old, runs)
        rows.append((name, os.path.getsize(frame), size, speed, process))
    lines = ["## Zstandard decoder", "",
             "Made by `bench/zstd_bench.py` (its docstring says how). In-process: MB/s of output, median of",
             f"{runs + 2} runs, natively at -O2; ours pushed in 1 MiB chunks with the output copied into one",
             "buffer, against libzstd 1.5.4 in one call into that buffer and streaming (1 MiB in, 1 MiB out",
             "copied). Memory: what the decoder holds (ours: MemoryHeld; libzstd streaming: ZSTD_sizeof_DCtx).",
             f"Whole process: median wall time of {runs} runs (after one warm-up) and peak resident set (GNU",
             "time), zstd_apply.exe under Wine (Wine's own ~30 MiB included; the old file is mapped) against",
             "`zstd -d` natively, both writing the output to a file.", "",
             "| Input | Frame | Output | Ours in-process | libzstd one call | libzstd streaming | Ours / streaming | "
             "Ours / one call | zstd_apply.exe (Wine) | zstd -d | Wine / native |",
             "|---|---|---|---|---|---|---|---|---|---|---|"]
    for name, frame_size, size, speed, process in rows:
        ours, one, stream = speed["ours"], speed["libzstd one call"], speed["libzstd streaming"]
        wine, native = process["wine"], process["native"]
        lines.append(f"| {name} | {frame_size / MIB:.1f} MiB | {size / MIB:.0f} MiB | {ours[0]} MB/s, {ours[1] / MIB:.1f} MiB | "
                     f"{one[0]} MB/s | {stream[0]} MB/s, {stream[1] / MIB:.0f} MiB | {ours[0] / stream[0]:.2f}x | "
                     f"{ours[0] / one[0]:.2f}x | {wine[0]:.2f} s, {wine[1]:.0f} MiB | {native[0]:.2f} s, {native[1]:.0f} MiB | "
                     f"{wine[0] / native[0]:.2f}x |")
    table = "\n".join(lines) + "\n"
    print(table)
    with open(DOC) as doc:
        text = doc.read()
    section = re.compile(r"## Zstandard decoder\n.*?(?=\n## |\Z)", re.S)
    text = section.sub(lambda _: table.rstrip("\n"), text) if section.search(text) else text.rstrip("\n") + "\n\n" + table
    with open(DOC, "w") as doc:
        doc.write(text)


if __name__ == "__main__":
    main()
