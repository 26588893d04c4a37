#!/usr/bin/env python3
"""The Zstandard decoder's benchmark: decode throughput in-process natively against libzstd, and
whole-process under Wine (zstd_apply.exe) against `zstd -d` natively, with CPU time and peak memory
beside each and the load average of the machine, on (a) a 256 MiB file of Debian's LLVM libraries
compressed at level 19, (b) a --patch-from patch of libLLVM-15 against libLLVM-14 at level 3
(level 19 takes over half an hour for this pair on the 2-core machine) and (c) a --patch-from
patch at the publisher's defaults (-19 --long=31) of libjvm.so between the two openjdk-17 versions
that the changed-bytes benchmark keeps under ~/.cache/veyupdater-bench/trees (skipped when that
cache is missing). Prints the tables and rewrites the "Zstandard decoder" section of
docs/benchmarks.md.

The inputs are made once under build/bench-zstd (level 19 over 256 MiB takes many minutes). The
native harness (bench/native) builds with the host's compiler at -O2 into build/bench-native.

  bench/zstd_bench.py [--runs N]
"""
import argparse
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
JVM = os.path.join(os.path.expanduser("~/.cache/veyupdater-bench/trees"), "openjdk-17-jre-headless_{}",
                   "usr/lib/jvm/java-17-openjdk-amd64/lib/server/libjvm.so")
JVM_OLD, JVM_NEW = JVM.format("17.0.19+10-1~deb12u2"), JVM.format("17.0.21.1+2-1~deb12u1")
MIB = 1 << 20

sys.path.insert(0, os.path.join(ROOT, "tests", "support"))
from veytest import file_sha256  # noqa: E402


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
    cases = [("(a) 256 MiB, level 19", big_frame, None, 256 * MIB)]
    patch = os.path.join(DATA, "llvm.patch.zst")
    if not os.path.exists(patch):
        subprocess.run(["zstd", "-q", "-f", "-3", "-T2", "--long=31", "--patch-from=" + OLD, NEW, "-o", patch + ".part"],
                       check=True)
        os.replace(patch + ".part", patch)
    cases.append(("(b) patch libLLVM 14 to 15, level 3", patch, OLD, os.path.getsize(NEW)))
    jvm = os.path.join(DATA, "jvm.patch.zst")
    if not os.path.exists(jvm) and os.path.exists(JVM_OLD) and os.path.exists(JVM_NEW):
        subprocess.run(["zstd", "-q", "-f", "-19", "--long=31", "--patch-from=" + JVM_OLD, JVM_NEW, "-o", jvm + ".part"],
                       check=True, stderr=subprocess.DEVNULL)
        os.replace(jvm + ".part", jvm)
    if os.path.exists(jvm):
        cases.append(("(c) patch libjvm.so 17.0.19 to 17.0.21, -19 --long=31", jvm, JVM_OLD, os.path.getsize(JVM_NEW)))
    else:
        print("(c) skipped: the openjdk-17 trees of bench/changed_bytes.py are missing", file=sys.stderr)
    return cases


def build_native():
    subprocess.run(["cmake", "-S", os.path.join(ROOT, "bench", "native"), "-B", NATIVE], check=True,
                   stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", NATIVE, "-j2"], check=True, stdout=subprocess.DEVNULL)


def in_process(frame, old, runs):
    """{decoder: (MB/s by wall time, MB/s by CPU time, memory)} from zstd_speed."""
    out = subprocess.run([os.path.join(NATIVE, "zstd_speed"), frame, old or "-", str(runs)], check=True,
                         capture_output=True, text=True).stdout
    figures = {}
    for line in out.splitlines():
        match = re.match(r"(ours|libzstd one call|libzstd streaming): (\d+) MB/s, cpu (\d+) MB/s, memory (\d+)", line)
        if match:
            figures[match.group(1)] = tuple(int(match.group(i)) for i in (2, 3, 4))
    return figures


def timed(command):
    """(wall seconds, CPU seconds (user + system), peak resident KiB) of a whole process, by GNU time."""
    done = subprocess.run(["/usr/bin/time", "-f", "%e %U %S %M"] + command, capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"{command[0]} failed: {done.stdout} {done.stderr}")
    wall, user, system, kib = done.stderr.strip().splitlines()[-1].split()
    return float(wall), float(user) + float(system), int(kib)


def whole_process(frame, old, runs):
    """Medians of (wall seconds, CPU seconds) and the largest peak MiB, for zstd_apply.exe under
    Wine and zstd -d natively, run in alternation."""
    wine_out, native_out = os.path.join(DATA, "out-wine.bin"), os.path.join(DATA, "out-native.bin")
    z = lambda path: "Z:" + path.replace("/", "\\")
    wine = [WINE_RUN, APPLY, z(frame), z(wine_out)] + ([z(old)] if old else [])
    native = ["zstd", "-d", "-q", "-f", "--long=31", "--memory=2048MB"] + (["--patch-from=" + old] if old else []) + \
             [frame, "-o", native_out]
    results = {"wine": [], "native": []}
    for _ in range(runs + 1):  # the first round warms the caches and is not counted
        results["wine"].append(timed(wine))
        results["native"].append(timed(native))
    if file_sha256(wine_out) != file_sha256(native_out):
        sys.exit("zstd_apply.exe and zstd -d wrote different bytes")
    os.remove(wine_out)
    os.remove(native_out)
    return {name: (statistics.median(w for w, _, _ in values[1:]), statistics.median(c for _, c, _ in values[1:]),
                   max(k for _, _, k in values[1:]) / 1024)
            for name, values in results.items()}


def load():
    return os.getloadavg()[0]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--runs", type=int, default=3)
    runs = parser.parse_args().runs
    subprocess.run(["sh", os.path.join(ROOT, "tests", "support", "wine-prefix"), "up", PREFIX], check=True)
    build_native()
    rows = []
    for name, frame, old, size in make_inputs():
        before = load()
        speed = in_process(frame, old, runs + 2)
        middle = load()
        process = whole_process(frame, old, runs)
        rows.append((name, os.path.getsize(frame), size, speed, process, (before, middle, load())))
    lines = ["## Zstandard decoder", "",
             "Made by `bench/zstd_bench.py` (its docstring says how). In-process: MB/s of output, median of",
             f"{runs + 2} runs, natively at -O2, by wall time and (in brackets) by the process's CPU time; ours",
             "pushed in 1 MiB chunks with the output copied into one buffer, against libzstd 1.5.4 in one call",
             "into that buffer and streaming (1 MiB in, 1 MiB out copied). Memory: what the decoder holds",
             "(ours: MemoryHeld; libzstd: ZSTD_sizeof_DCtx; in one call the caller also holds the whole output",
             "and the old file). Load: the 1-minute load average before and after the in-process runs.", "",
             "| Input | Frame | Output | Ours | libzstd one call | libzstd streaming | Ours / one call | "
             "Ours / streaming | Load |",
             "|---|---|---|---|---|---|---|---|---|"]
    for name, frame_size, size, speed, _, loads in rows:
        ours, one, stream = speed["ours"], speed["libzstd one call"], speed["libzstd streaming"]
        cell = lambda figures: f"{figures[0]} MB/s ({figures[1]}), {figures[2] / MIB:.1f} MiB"
        lines.append(f"| {name} | {frame_size / MIB:.1f} MiB | {size / MIB:.0f} MiB | {cell(ours)} | {cell(one)} | "
                     f"{cell(stream)} | {ours[0] / one[0]:.2f}x ({ours[1] / one[1]:.2f}x) | "
                     f"{ours[0] / stream[0]:.2f}x ({ours[1] / stream[1]:.2f}x) | {loads[0]:.1f}, {loads[1]:.1f} |")
    lines += ["",
              f"Whole process: median of {runs} runs (after one warm-up round) of the wall time and of the CPU time",
              "(user + system), and the largest peak resident set, by GNU time; zstd_apply.exe under Wine (Wine's",
              "own ~30 MiB included; the old file is mapped) and `zstd -d` natively take turns, both writing the",
              "output to a file. Load: the 1-minute load average before and after these runs.", "",
              "| Input | zstd_apply.exe (Wine) | zstd -d | Wine / native | Load |",
              "|---|---|---|---|---|"]
    for name, _, _, _, process, loads in rows:
        wine, native = process["wine"], process["native"]
        cell = lambda figures: f"{figures[0]:.2f} s ({figures[1]:.2f} s CPU), {figures[2]:.0f} MiB"
        lines.append(f"| {name} | {cell(wine)} | {cell(native)} | {wine[0] / native[0]:.2f}x "
                     f"({wine[1] / native[1]:.2f}x CPU) | {loads[1]:.1f}, {loads[2]:.1f} |")
    table = "\n".join(lines) + "\n"
    print(table)
    with open(DOC) as doc:
        text = doc.read()
    section = re.compile(r"## Zstandard decoder\n.*?(?=\n## |\Z)", re.S)
    text = section.sub(lambda _: table.rstrip("\n") + "\n", text) if section.search(text) else text.rstrip("\n") + "\n\n" + table
    with open(DOC, "w") as doc:
        doc.write(text)


if __name__ == "__main__":
    main()
