#!/usr/bin/env python3
"""The benchmark suite: VeyUpdater under Wine against the tools a user would script instead.

Makes its data under a temporary folder, serves it with nginx on 127.0.0.1, runs every case
several times (program and reference alternately, after one unmeasured warm-up run of each),
prints a table of medians, ranges, ratios and peak memory, and rewrites docs/benchmarks.md.

Times are wall times of whole processes, started from here, for the program and the reference
alike. Peak memory is the peak resident set of the process (with the processes it waited for)
as GNU time reports it, so for the program it is the Wine process, Wine's own share included.
"""
import argparse
import collections
import datetime
import hashlib
import json
import os
import platform
import random
import re
import shutil
import statistics
import subprocess
import tempfile
import time
from urllib.parse import quote

from bench_env import BUILD, ROOT, WINE_RUN  # first: puts tests/support on the import path
import netns  # noqa: E402
from peer import Peer  # noqa: E402
from servers import Nginx  # noqa: E402

WINE_PREFIX = os.path.join(BUILD, "bench-wineprefix")
# Case 6's prefix: its wineserver runs inside the updater's network namespace.
NETNS_WINE_PREFIX = os.path.join(BUILD, "bench-wineprefix-netns")
PROGRAM = os.path.join(BUILD, "bin", "VeyUpdater.exe")
HASH_BENCH = os.path.join(BUILD, "bench", "hash_bench.exe")
MANIFEST_BENCH = os.path.join(BUILD, "bench", "manifest_bench.exe")
# A Windows program that does nothing: what starting and ending a Wine process costs by itself.
NOTHING = os.path.join(BUILD, "bench", "nothing.exe")


def use_programs(folder):
    """Measures the programs of another build: a folder holding VeyUpdater.exe and the harnesses."""
    global PROGRAM, HASH_BENCH, MANIFEST_BENCH
    PROGRAM, HASH_BENCH, MANIFEST_BENCH = (os.path.join(folder, name) for name in
                                           ("VeyUpdater.exe", "hash_bench.exe", "manifest_bench.exe"))

MIB = 1 << 20
HASH_SIZE = 256 * MIB
LARGE_SIZE = 200 * MIB
MANY_COUNT = 5000
MANY_FOLDERS = 50
CHANGED_COUNT = 500
BIG_MANIFEST_ENTRIES = 50000
NOOP_SMALL_COUNT = 50
NOOP_SMALL_TARGET_MS = 50
UPDATE_MEMORY_TARGET_MIB = 64
HASH_MEMORY_TARGET_MIB = 32
DISCOVERY_ITEMS = 20
DISCOVERY_PORT = 8090  # the share port of case 6, used only inside the benchmark's network namespaces
DISCOVERY_TARGET_MS = 20
# Case 6's laboratory, all inside namespaces that the benchmark creates: the updater, LAN 1's
# bridge with the update server, and one peer.
DISCOVERY_UPDATER, DISCOVERY_SERVER, DISCOVERY_PEER = "10.78.1.1", "10.78.1.2", "10.78.1.3"


def windows_path(path):
    return "Z:" + os.path.abspath(path).replace("/", "\\")


def random_file(path, size):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        while size > 0:
            piece = min(size, 16 * MIB)
            f.write(os.urandom(piece))
            size -= piece


def sha1_of(path):
    digest = hashlib.sha1()
    with open(path, "rb") as f:
        for block in iter(lambda: f.read(MIB), b""):
            digest.update(block)
    return digest.hexdigest().upper()


def write_manifest(path, entries, url_prefix):
    """The manifest as tools/make-manifest writes it."""
    manifest = {"files": entries, "urlPrefix": url_prefix}
    with open(path, "w", encoding="utf-8") as f:
        f.write(json.dumps(manifest, ensure_ascii=False, indent=1) + "\n")


def argument(domain, path, share_port=0):
    """The command-line argument; a non-zero share port is passed only to runs inside a namespace."""
    return quote(json.dumps({"domains": [domain], "pathAndQuery": path, "argOrg": "", "httpSharePort": share_port}),
                 safe="")


def timed(command, cwd=None, stdout=subprocess.DEVNULL, env=None):
    """Runs a command under GNU time; returns (wall seconds, peak resident KiB, stderr text).
    GNU time's own small process is what forks, so the peak is the command's and not this
    script's. Fails on a non-zero exit."""
    with tempfile.NamedTemporaryFile("r", suffix=".rss") as rss:
        start = time.perf_counter()
        done = subprocess.run(["/usr/bin/time", "-f", "%M", "-o", rss.name, *command], cwd=cwd,
                              stdin=subprocess.DEVNULL, stdout=stdout, stderr=subprocess.PIPE, env=env)
        seconds = time.perf_counter() - start
        peak = int(rss.read().split()[-1])
    if done.returncode != 0:
        raise RuntimeError(f"{command[:3]} exited with {done.returncode}: {done.stderr[-2000:]!r}")
    return seconds, peak, done.stderr.decode(errors="replace")


def log_messages(app):
    """The messages of the program's log under app/_logs, prefixes removed."""
    text = b""
    folder = os.path.join(app, "_logs")
    for name in sorted(os.listdir(folder)):
        with open(os.path.join(folder, name), "rb") as f:
            text += f.read()
    return [line[26:] for line in text.decode("utf-8-sig").split("\r\n") if line]


LOG_PREFIX = re.compile(rb"\r\n(?=\d\d:\d\d:\d\d\.\d{3} \d{4}\.\d{3}\.\d{3} )")


def log_entries(app):
    """(microseconds since the previous entry, message) of every entry of the program's log; an
    entry may hold line ends itself, and every entry starts with its time prefix."""
    text = b""
    folder = os.path.join(app, "_logs")
    for name in sorted(os.listdir(folder)):
        with open(os.path.join(folder, name), "rb") as f:
            text += f.read()
    entries = []
    for entry in LOG_PREFIX.split(text[3:].rstrip(b"\r\n")):
        seconds, millis, micros = entry[13:25].split(b".")
        entries.append((int(seconds) * 1000000 + int(millis) * 1000 + int(micros), entry[26:].decode("utf-8")))
    return entries


def micros_between(entries, first, last):
    """The sum of the elapsed fields from the entry `first` (exclusive) to the first entry after
    it that starts with `last` (inclusive): the time between the two entries, to the microsecond."""
    messages = [message for _, message in entries]
    start = messages.index(first)
    for at in range(start + 1, len(entries)):
        if messages[at].startswith(last):
            return sum(elapsed for elapsed, _ in entries[start + 1:at + 1])
    raise RuntimeError(f"no entry starting with {last!r} after {first!r}:\n" + "\n".join(messages[-8:]))


class Series:
    """Measurements of one side of one case."""

    def __init__(self):
        self.seconds = []
        self.peaks = []

    def add(self, seconds, peak_kib):
        self.seconds.append(seconds)
        self.peaks.append(peak_kib)

    @property
    def median(self):
        return statistics.median(self.seconds)

    def text(self):
        return f"{self.median:.3f} s ({min(self.seconds):.3f}–{max(self.seconds):.3f})"

    def peak_text(self):
        return f"{max(self.peaks) / 1024:.0f} MiB"


class Bench:
    def __init__(self, options):
        self.runs = options.runs
        self.work = tempfile.mkdtemp(prefix="vey-bench-", dir=options.temp)
        self.keep = options.keep
        self.env = dict(os.environ, VEY_WINEPREFIX=WINE_PREFIX)
        self.rng = random.Random(20240611)
        self.rows = []
        self.notes = []
        self.nginx = None

    # ----- set-up

    def serve(self):
        """The folder that nginx serves, with nginx started once."""
        serve = os.path.join(self.work, "serve")
        if not self.nginx:
            os.makedirs(serve, exist_ok=True)
            self.nginx = Nginx(serve)
            self.domain = self.nginx.domain
        return serve

    def prepare(self):
        print(f"data under {self.work}", flush=True)
        serve = self.serve()

        self.hash_file = os.path.join(self.work, "hash", "file256.bin")
        random_file(self.hash_file, HASH_SIZE)

        # One large file.
        large = os.path.join(serve, "one", "files", "large.bin")
        random_file(large, LARGE_SIZE)
        self.large_hash = sha1_of(large)
        write_manifest(os.path.join(serve, "one", "manifest.json"),
                       [{"n": "large.bin", "h": self.large_hash, "s": LARGE_SIZE}], "/one/files")

        # Many files: 5,000 of 50,000 to 150,000 bytes in 50 folders, about 500 MB.
        self.many_names = []
        entries = []
        for i in range(MANY_COUNT):
            name = f"d{i % MANY_FOLDERS:02d}/file{i:04d}.bin"
            path = os.path.join(serve, "many", "files", name)
            random_file(path, self.rng.randint(50000, 150000))
            self.many_names.append(name)
            entries.append({"n": name, "h": sha1_of(path), "s": os.path.getsize(path)})
        write_manifest(os.path.join(serve, "many", "manifest.json"), entries, "/many/files")
        self.many_bytes = sum(entry["s"] for entry in entries)
        self.changed_names = self.many_names[::MANY_COUNT // CHANGED_COUNT]
        self.changed_bytes = sum(os.path.getsize(os.path.join(serve, "many", "files", n)) for n in self.changed_names)

        # Installations: all files current (hard links to the served files, which nothing writes),
        # and 10% older versions (own copies, since the script's curl writes into them).
        self.app_current = self.make_app("app-current")
        self.app_changed = self.make_app("app-changed")
        self.old_versions = os.path.join(self.work, "old")
        for name in self.many_names:
            served = os.path.join(serve, "many", "files", name)
            for app in (self.app_current, self.app_changed):
                os.makedirs(os.path.dirname(os.path.join(app, name)), exist_ok=True)
            os.link(served, os.path.join(self.app_current, name))
            if name in self.changed_names:
                random_file(os.path.join(self.old_versions, name), os.path.getsize(served) - 1000)
            else:
                os.link(served, os.path.join(self.app_changed, name))
        self.app_large = self.make_app("app-large")
        self.script_large = os.path.join(self.work, "script-large")
        os.makedirs(self.script_large)

        # A manifest of 50,000 entries in the publisher tool's format.
        entries = [{"n": f"data/set{i % 100:02d}/item-{i:05d}.dat",
                    "h": "%040X" % self.rng.getrandbits(160), "s": self.rng.randint(1, 10 ** 7)}
                   for i in range(BIG_MANIFEST_ENTRIES)]
        self.big_manifest = os.path.join(serve, "big", "manifest.json")
        os.makedirs(os.path.dirname(self.big_manifest))
        write_manifest(self.big_manifest, entries, "/big/files")
        self.app_manifest = self.make_app("app-manifest", MANIFEST_BENCH)
        self.app_empty = self.make_app("app-empty")

    def make_app(self, name, program=None):
        folder = os.path.join(self.work, name)
        os.makedirs(folder, exist_ok=True)
        shutil.copy(program or PROGRAM, folder)
        return folder

    def reset_app(self, app):
        for name in ("_update", "_logs"):
            shutil.rmtree(os.path.join(app, name), ignore_errors=True)

    # ----- running

    def run_program(self, app, manifest_path, out_name):
        self.reset_app(app)
        with open(os.path.join(self.work, out_name), "wb") as out:
            seconds, peak, _ = timed([WINE_RUN, os.path.join(app, "VeyUpdater.exe"),
                                      argument(self.domain, manifest_path)], stdout=out, env=self.env)
        return seconds, peak, log_messages(app)

    def alternate(self, program, reference, check_program=None, check_reference=None, before=None):
        """One warm-up of each, then `runs` rounds of program and reference."""
        mine, theirs = Series(), Series()
        for round_number in range(self.runs + 1):
            for side, run, check in ((mine, program, check_program), (theirs, reference, check_reference)):
                if before:
                    before(side is mine)
                seconds, peak, detail = run()
                if check:
                    check(detail)
                if round_number > 0:
                    side.add(seconds, peak)
        return mine, theirs

    # ----- the cases

    def case_hashing(self):
        subprocess.run(["cat", self.hash_file], stdout=subprocess.DEVNULL, check=True)
        expected = sha1_of(self.hash_file)
        in_process = []
        hash_memory = []

        def program():
            seconds, peak, text = timed([WINE_RUN, HASH_BENCH, windows_path(self.hash_file)], env=self.env)
            fields = text.split()
            if fields[1] != expected:
                raise RuntimeError(f"HashFile gave {fields[1]}, expected {expected}")
            in_process.append(float(fields[5]))
            values = dict(zip(fields[0::2], fields[1::2]))
            if "before" in values:  # older harnesses print no working set before the call
                hash_memory.append((int(values["peak"]) - int(values["before"])) / MIB)
            return seconds, peak, None

        mine, openssl = self.alternate(program, lambda: timed(["openssl", "sha1", self.hash_file]))
        _, sha1sum = self.alternate(program, lambda: timed(["sha1sum", self.hash_file]))
        in_process_median = statistics.median(in_process[1:])
        self.add_row("1. Hashing, 256 MiB file (HashFile in hash_bench.exe)", mine, openssl, "openssl sha1", 1.0,
                     extra=[("sha1sum", sha1sum)])
        self.notes.append(f"Hashing: HashFile itself took {in_process_median:.3f} s in-process (median); the rest "
                          "of the program's time is starting and ending the Wine process.")
        if hash_memory:
            held = max(hash_memory[1:] or hash_memory)
            self.rows.append({
                "case": "1a. HashFile's memory, 256 MiB file (peak working set minus the working set before the call)",
                "program": f"{held:.1f} MiB", "reference": "—", "ratio": "—",
                "target": f"≤ {HASH_MEMORY_TARGET_MIB} MiB", "met": "yes" if held <= HASH_MEMORY_TARGET_MIB else "no",
                "memory": f"{held:.1f} MiB",
            })

    def case_sha256(self):
        subprocess.run(["cat", self.hash_file], stdout=subprocess.DEVNULL, check=True)
        with open(self.hash_file, "rb") as f:
            expected = hashlib.file_digest(f, "sha256").hexdigest().upper()
        in_process = []

        def program():
            seconds, peak, text = timed([WINE_RUN, HASH_BENCH, "--sha256", windows_path(self.hash_file)],
                                        env=self.env)
            fields = text.split()
            if fields[1] != expected:
                raise RuntimeError(f"Sha256OfFile gave {fields[1]}, expected {expected}")
            in_process.append(float(fields[5]))
            return seconds, peak, None

        mine, openssl = self.alternate(program, lambda: timed(["openssl", "sha256", self.hash_file]))
        in_process_median = statistics.median(in_process[1:])
        self.add_row("10. SHA-256, 256 MiB file (Sha256OfFile in hash_bench.exe --sha256)", mine, openssl,
                     "openssl sha256", 1.1)
        self.notes.append(f"SHA-256: Sha256OfFile itself took {in_process_median:.3f} s in-process (median), "
                          f"{in_process_median / openssl.median:.2f}x the whole openssl sha256 run; the rest of the "
                          "program's time is starting and ending the Wine process.")

    def case_large(self):
        target = os.path.join(self.app_large, "large.bin")
        url = f"http://{self.domain}/one/files/large.bin"
        staged = os.path.join(self.script_large, "stage", "large.bin")
        placed = os.path.join(self.script_large, "large.bin")
        script = (f'mkdir -p "{os.path.dirname(staged)}" && curl -s -f -o "{staged}" "{url}" && '
                  f'[ "$(openssl sha1 -r "{staged}" | cut -d" " -f1)" = "{self.large_hash.lower()}" ] && '
                  f'mv "{staged}" "{placed}"')

        def before(is_program):
            for path in (target, placed):
                if os.path.exists(path):
                    os.unlink(path)

        def check_program(messages):
            if "Replaced " + windows_path(target) not in messages or os.path.getsize(target) != LARGE_SIZE:
                raise RuntimeError("the large file was not replaced:\n" + "\n".join(messages[-5:]))

        def check_reference(_):
            if os.path.getsize(placed) != LARGE_SIZE:
                raise RuntimeError("the script did not place the large file")

        mine, theirs = self.alternate(lambda: self.run_program(self.app_large, "/one/manifest.json", "out-large.txt"),
                                      lambda: timed(["bash", "-c", script]), check_program, check_reference, before)
        self.add_row("2. One 200 MiB file: download, verify, move", mine, theirs, "curl + openssl sha1 + mv", 1.5)

    def case_noop(self):
        def check_program(messages):
            if "Nothing to update!" not in messages:
                raise RuntimeError("the no-op run found something to do:\n" + "\n".join(messages[-5:]))

        mine, theirs = self.alternate(
            lambda: self.run_program(self.app_current, "/many/manifest.json", "out-noop.txt"),
            lambda: timed(["sha1sum", *self.many_names], cwd=self.app_current), check_program)
        self.add_row(f"3. No-op over {MANY_COUNT:,} files ({self.many_bytes / 1e6:.0f} MB)", mine, theirs,
                     "sha1sum", 1.0)

    def case_changed(self):
        config = os.path.join(self.work, "curl-changed.txt")
        with open(config, "w") as f:
            for name in self.changed_names:
                f.write(f'url = "http://{self.domain}/many/files/{name}"\n')
                f.write(f'output = "{os.path.join(self.app_changed, name)}"\n')
        listing = os.path.join(self.work, "all-files.txt")
        with open(listing, "w") as f:
            f.write("\0".join(self.many_names) + "\0")
        script = (f'curl -s -f -K "{config}" && xargs -0 sha1sum < "{listing}" > /dev/null')

        def before(is_program):
            for name in self.changed_names:
                path = os.path.join(self.app_changed, name)
                if os.path.exists(path):
                    os.unlink(path)
                shutil.copyfile(os.path.join(self.old_versions, name), path)

        def check_program(messages):
            replaced = sum(1 for m in messages if m.startswith("Replaced "))
            if replaced != CHANGED_COUNT:
                raise RuntimeError(f"{replaced} files replaced:\n" + "\n".join(messages[-5:]))

        mine, theirs = self.alternate(
            lambda: self.run_program(self.app_changed, "/many/manifest.json", "out-changed.txt"),
            lambda: timed(["bash", "-c", script], cwd=self.app_changed), check_program, None, before)
        self.add_row(f"4. {MANY_COUNT:,} files, {CHANGED_COUNT} changed ({self.changed_bytes / 1e6:.0f} MB)", mine,
                     theirs, "curl (one process, 500 URLs) + sha1sum", 1.5)

    def case_manifest(self):
        url = f"http://{self.domain}/big/manifest.json"
        body = os.path.getsize(self.big_manifest)
        results = []
        whole = Series()
        for round_number in range(self.runs + 1):
            self.reset_app(self.app_manifest)
            with open(os.path.join(self.work, "out-manifest.txt"), "wb") as out:
                seconds, peak, text = timed([WINE_RUN, os.path.join(self.app_manifest, "manifest_bench.exe"), url],
                                            stdout=out, env=self.env)
            fields = text.split()
            values = dict(zip(fields[0::2], fields[1::2]))
            if int(values["entries"]) != BIG_MANIFEST_ENTRIES:
                raise RuntimeError(f"manifest harness: {text}")
            if round_number > 0:
                results.append(values)
                whole.add(seconds, peak)
        parse_log = [float(v["parse_log"]) + float(v["flush"]) for v in results]
        beyond = [(int(v["peak"]) - int(v["held"])) / MIB for v in results]
        series = Series()
        for seconds, peak in zip(parse_log, whole.peaks):
            series.add(seconds, peak)
        met = statistics.median(parse_log) < 1.0 and max(beyond) < 64
        self.rows.append({
            "case": f"5. Manifest of {BIG_MANIFEST_ENTRIES:,} entries ({body / 1e6:.1f} MB): parse and log",
            "program": series.text(), "reference": "—", "ratio": "—",
            "target": "< 1 s, < 64 MiB beyond the body", "met": "yes" if met else "no",
            "memory": f"{max(beyond):.0f} MiB beyond the body (peak {series.peak_text()})",
        })
        self.notes.append(f"Manifest: parse and log measured in-process by manifest_bench.exe (fetch not included, "
                          f"logger flush included); whole process {whole.text()} including the fetch; memory beyond "
                          "the body = peak working set minus the working set with the fetched body held "
                          "(K32GetProcessMemoryInfo).")

    def case_discovery(self):
        """Peer discovery inside network namespaces, laid out like tests/e2e/test_peers.py: from
        "Finding peers in local network..." to the first download request to the peer that
        answers for every item at once."""
        reason = netns.unavailable_reason()
        if reason:
            self.rows.append({"case": "6. Peer discovery", "program": f"not measured: {reason}", "reference": "—",
                              "ratio": "—", "target": f"< {DISCOVERY_TARGET_MS} ms", "met": "—", "memory": "—"})
            return
        files = {f"dir{i % 4}/item{i:02d}.bin": b"item %d of the discovery case\n" % i for i in range(DISCOVERY_ITEMS)}
        serve = os.path.join(self.work, "serve-discovery")
        entries = []
        for name, data in files.items():
            path = os.path.join(serve, "files", name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "wb") as f:
                f.write(data)
            entries.append({"n": name, "h": hashlib.sha1(data).hexdigest().upper(), "s": len(data)})
        write_manifest(os.path.join(serve, "m.json"), entries, "/files")
        app = self.make_app("app-discovery")

        lab = netns.Lab()
        stack = []
        try:
            u, l, p = (lab.namespace(role) for role in "ulp")
            lab.bridge(l, "br0", DISCOVERY_SERVER + "/24")
            lab.veth(u, "u1", DISCOVERY_UPDATER + "/24", l, "lu", bridge_b="br0")
            lab.veth(p, "p1", DISCOVERY_PEER + "/24", l, "lp", bridge_b="br0")
            server = Nginx(serve, DISCOVERY_SERVER, l)
            stack.append(server.stop)
            offers = {name.replace("/", "\\"): (1,) for name in files}
            peer = Peer(p, DISCOVERY_PEER, DISCOVERY_PORT, offers=offers,
                        files={"/" + name: data for name, data in files.items()})
            stack.append(peer.stop)
            wine = netns.WineInNamespace(u, NETNS_WINE_PREFIX)
            stack.append(wine.close)
            self.measure_discovery(wine, app, server.domain, files, peer)
        finally:
            for stop in reversed(stack):
                stop()
            lab.close()

    def measure_discovery(self, wine, app, domain, files, peer):
        first_get = f"HTTP Getting... http://{DISCOVERY_PEER}:{DISCOVERY_PORT}/"
        finding = "Finding peers in local network..."
        to_get, to_end, whole = [], [], Series()
        for round_number in range(self.runs + 1):
            self.reset_app(app)
            for name in files:
                path = os.path.join(app, name)
                if os.path.exists(path):
                    os.unlink(path)
            wine.check_server()
            # The non-zero share port goes only to this run inside the updater's namespace.
            command = ["ip", "netns", "exec", wine.namespace, "env", f"VEY_WINEPREFIX={wine.prefix}", WINE_RUN,
                       os.path.join(app, "VeyUpdater.exe"), argument(domain, "/m.json", DISCOVERY_PORT)]
            with open(os.path.join(self.work, "out-discovery.txt"), "wb") as out:
                seconds, peak, _ = timed(command, stdout=out)
            entries = log_entries(app)
            messages = [message for _, message in entries]
            replaced = sum(1 for m in messages if m.startswith("Replaced "))
            from_peer = sum(1 for m in messages if m.startswith(first_get))
            if replaced != len(files) or from_peer != len(files):
                raise RuntimeError(f"{replaced} replaced, {from_peer} from the peer:\n" + "\n".join(messages[-8:]))
            if round_number > 0:
                to_get.append(micros_between(entries, finding, first_get) / 1000)
                to_end.append(micros_between(entries, finding, "Created _update directory.") / 1000)
                whole.add(seconds, peak)
        series = Series()
        for millis, peak in zip(to_get, whole.peaks):
            series.add(millis, peak)
        met = statistics.median(to_get) < DISCOVERY_TARGET_MS
        self.rows.append({
            "case": f"6. Peer discovery: {len(files)} items, one peer answers for all (network namespaces)",
            "program": f"{series.median:.1f} ms ({min(to_get):.1f}–{max(to_get):.1f})", "reference": "—",
            "ratio": "—", "target": f"< {DISCOVERY_TARGET_MS} ms", "met": "yes" if met else "no",
            "memory": f"{whole.peak_text()}",
        })
        self.notes.append(f"Peer discovery: from the \"Finding peers\" entry to the first \"HTTP Getting...\" of the "
                          "peer, the sum of the log's elapsed fields (µs); of that, discovery itself (to \"Created "
                          f"_update directory.\") {statistics.median(to_end):.1f} ms "
                          f"({min(to_end):.1f}–{max(to_end):.1f}); whole process {whole.text()}.")

    def nothing_series(self):
        """The do-nothing program under Wine, as one side of a case."""
        return lambda: timed([WINE_RUN, NOTHING], env=self.env)

    def small_app(self, name, count):
        """An installation of `count` current files of 50,000 to 150,000 bytes and its manifest,
        served at /NAME/manifest.json."""
        serve = self.serve()
        app = self.make_app(name)
        entries = []
        for i in range(count):
            file_name = f"d{i % 5}/file{i:03d}.bin"
            path = os.path.join(serve, name, "files", file_name)
            random_file(path, self.rng.randint(50000, 150000))
            os.makedirs(os.path.dirname(os.path.join(app, file_name)), exist_ok=True)
            os.link(path, os.path.join(app, file_name))
            entries.append({"n": file_name, "h": sha1_of(path), "s": os.path.getsize(path)})
        os.makedirs(os.path.join(serve, name), exist_ok=True)
        write_manifest(os.path.join(serve, name, "manifest.json"), entries, f"/{name}/files")
        return app

    def case_noop_small(self):
        """A launcher's usual start: the no-op over 50 files beside a program that does nothing."""
        app = self.small_app("small", NOOP_SMALL_COUNT)

        def check_program(messages):
            if "Nothing to update!" not in messages:
                raise RuntimeError("the no-op run found something to do:\n" + "\n".join(messages[-5:]))

        mine, theirs = self.alternate(lambda: self.run_program(app, "/small/manifest.json", "out-small.txt"),
                                      self.nothing_series(), check_program)
        above = (mine.median - theirs.median) * 1000
        self.rows.append({
            "case": f"7. No-op over {NOOP_SMALL_COUNT} files (a launcher's start)", "program": mine.text(),
            "reference": f"nothing.exe under Wine: {theirs.text()}", "ratio": f"+{above:.0f} ms",
            "target": f"≤ +{NOOP_SMALL_TARGET_MS} ms", "met": "yes" if above <= NOOP_SMALL_TARGET_MS else "no",
            "memory": f"{mine.peak_text()} (nothing.exe {theirs.peak_text()})",
        })

    def large_update_app(self):
        """An installation that lacks the 256 MiB file of case 1, served at /upd/manifest.json."""
        serve = self.serve()
        if not getattr(self, "hash_file", None):
            self.hash_file = os.path.join(self.work, "hash", "file256.bin")
            random_file(self.hash_file, HASH_SIZE)
        served = os.path.join(serve, "upd", "files", "file256.bin")
        os.makedirs(os.path.dirname(served), exist_ok=True)
        if not os.path.exists(served):
            os.link(self.hash_file, served)
        write_manifest(os.path.join(serve, "upd", "manifest.json"),
                       [{"n": "file256.bin", "h": sha1_of(served), "s": HASH_SIZE}], "/upd/files")
        return self.make_app("app-upd")

    def case_update_memory(self):
        """Peak memory of a whole run that downloads, verifies and moves one 256 MiB file."""
        app = self.large_update_app()
        target = os.path.join(app, "file256.bin")

        def before(is_program):
            if is_program and os.path.exists(target):
                os.unlink(target)

        def check_program(messages):
            if "Replaced " + windows_path(target) not in messages or os.path.getsize(target) != HASH_SIZE:
                raise RuntimeError("the 256 MiB file was not replaced:\n" + "\n".join(messages[-5:]))

        mine, theirs = self.alternate(lambda: self.run_program(app, "/upd/manifest.json", "out-upd.txt"),
                                      self.nothing_series(), check_program, None, before)
        above = (max(mine.peaks) - max(theirs.peaks)) / 1024
        self.rows.append({
            "case": "8. Peak memory of a run that updates one 256 MiB file", "program": mine.text(),
            "reference": f"nothing.exe under Wine: {theirs.text()}", "ratio": f"+{above:.0f} MiB",
            "target": f"≤ +{UPDATE_MEMORY_TARGET_MIB} MiB", "met": "yes" if above <= UPDATE_MEMORY_TARGET_MIB else "no",
            "memory": f"{mine.peak_text()} (nothing.exe {theirs.peak_text()})",
        })

    def case_requests(self):
        """Calls into the system, counted as Wine server requests (WINEDEBUG=+server): per no-op
        file (a run over 50 files less a run over none) and per downloaded MiB (a run that
        downloads the 256 MiB file less a run that finds it current)."""
        small = os.path.join(self.work, "small")
        app_small = small if os.path.isdir(small) else self.small_app("small", NOOP_SMALL_COUNT)
        app_none = self.make_app("app-none")
        write_manifest(os.path.join(self.serve(), "none.json"), [], "/none")
        app_upd = self.large_update_app()
        target = os.path.join(app_upd, "file256.bin")
        counter = RequestCounter(self.work)
        try:
            nothing = counter.count([NOTHING])
            none = counter.count([os.path.join(app_none, "VeyUpdater.exe"), argument(self.domain, "/none.json")])
            self.reset_app(app_small)
            small_run = counter.count([os.path.join(app_small, "VeyUpdater.exe"),
                                       argument(self.domain, "/small/manifest.json")])
            if os.path.exists(target):
                os.unlink(target)
            self.reset_app(app_upd)
            download = counter.count([os.path.join(app_upd, "VeyUpdater.exe"), argument(self.domain, "/upd/manifest.json")])
            if os.path.getsize(target) != HASH_SIZE:
                raise RuntimeError("the traced run did not place the 256 MiB file")
            self.reset_app(app_upd)
            current = counter.count([os.path.join(app_upd, "VeyUpdater.exe"), argument(self.domain, "/upd/manifest.json")])
            for app in (app_none, app_small, app_upd):
                if "Nothing to update!" not in log_messages(app):
                    raise RuntimeError(f"the traced no-op run in {app} found something to do")
        finally:
            counter.close()
        per_file = (sum(small_run.values()) - sum(none.values())) / NOOP_SMALL_COUNT
        per_mib = (sum(download.values()) - sum(current.values())) / (HASH_SIZE / MIB)
        top = ", ".join(f"{name} {count / NOOP_SMALL_COUNT:.1f}" for name, count in
                        (small_run - none).most_common(4))
        self.rows.append({
            "case": "9. Requests into the system (Wine server requests, WINEDEBUG=+server)",
            "program": f"{per_file:.1f} per no-op file; {per_mib:.1f} per downloaded MiB",
            "reference": f"nothing.exe: {sum(nothing.values())} in all", "ratio": "—", "target": "fewer", "met": "—",
            "memory": "—",
        })
        self.notes.append(f"Requests: a no-op run over {NOOP_SMALL_COUNT} files made {sum(small_run.values())} "
                          f"requests, over an empty list {sum(none.values())} (nothing.exe {sum(nothing.values())}); "
                          f"per file: {top}. The run that downloads the 256 MiB file made {sum(download.values())}, "
                          f"the one that finds it current {sum(current.values())}.")

    def add_row(self, case, mine, theirs, reference_name, target, extra=()):
        ratio = mine.median / theirs.median
        self.rows.append({
            "case": case, "program": mine.text(), "reference": f"{reference_name}: {theirs.text()}",
            "ratio": f"{ratio:.2f}", "target": f"≤ {target:.1f} ×", "met": "yes" if ratio <= target else "no",
            "memory": f"{mine.peak_text()} (reference {theirs.peak_text()})",
        })
        for name, series in extra:
            self.rows.append({
                "case": "", "program": "", "reference": f"{name}: {series.text()}",
                "ratio": f"{mine.median / series.median:.2f}", "target": "", "met": "",
                "memory": f"(reference {series.peak_text()})",
            })

    # ----- report

    def machine(self):
        model = "unknown CPU"
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    model = line.split(":", 1)[1].strip()
                    break
        wine = subprocess.run(["/usr/lib/wine/wine64", "--version"], capture_output=True, text=True).stdout.strip()
        return f"{model}, {os.cpu_count()} cores, Linux {platform.release()}, {wine}"

    def report(self):
        headers = ["Case", "VeyUpdater under Wine: median (min–max)", "Reference: median (min–max)",
                   "Ratio", "Target", "Met", "Program peak memory"]
        keys = ["case", "program", "reference", "ratio", "target", "met", "memory"]
        rows = self.rows
        lines = ["| " + " | ".join(headers) + " |", "|" + "---|" * len(headers)]
        lines += ["| " + " | ".join(row[k] for k in keys) + " |" for row in rows]
        table = "\n".join(lines)
        stamp = datetime.datetime.now().strftime("%Y-%m-%d %H:%M")
        machine = self.machine()
        header = (f"Machine: {machine}. Date: {stamp}. Runs per case: {self.runs} (medians), after one warm-up run.\n"
                  "The program runs under Wine (wine64, a prewarmed wineserver); the references run natively.")
        print()
        print(header)
        print(table)
        for note in self.notes:
            print("- " + note)
        return header, table, machine, stamp

    def close(self):
        if self.nginx:
            self.nginx.stop()
        if not self.keep:
            shutil.rmtree(self.work, ignore_errors=True)


class RequestCounter:
    """Runs programs under Wine with the suite's prefix served by a wineserver whose trace goes to
    a file, and counts the requests that each program's own threads made (their replies, which
    the trace prints once per request). Restores the quiet prewarmed server when closed."""

    REPLY = re.compile(r"^([0-9a-f]{4,8}): (\w+)\(\) = ")

    def __init__(self, work):
        self.trace = os.path.join(work, "wineserver-trace.txt")
        self.env = dict(os.environ, WINEPREFIX=WINE_PREFIX, WINEDLLOVERRIDES="winedbg.exe=d")
        self.restart(self.trace)

    def restart(self, trace):
        server = "/usr/lib/wine/wineserver"
        subprocess.run([server, "-k"], env=self.env, stderr=subprocess.DEVNULL)
        subprocess.run([server, "-w"], env=self.env, stderr=subprocess.DEVNULL)
        with open(trace or os.devnull, "w") as out:
            subprocess.run([server, "-p"], env=self.env, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                           stderr=out)
        subprocess.run(["/usr/lib/wine/wine64", "wineboot"], env=dict(self.env, WINEDEBUG="-all"),
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def count(self, command):
        """{request name: count} of one run. The client's standard error must be a real file or
        pipe: with it on /dev/null Wine does not ask the server to trace."""
        start = os.path.getsize(self.trace)
        done = subprocess.run(["/usr/lib/wine/wine64", *command], env=dict(self.env, WINEDEBUG="+server"),
                              stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        if done.returncode != 0:
            raise RuntimeError(f"{command[:1]} exited with {done.returncode}")
        # The process's own threads: the one that starts it and those its threads create.
        threads, counts = set(), collections.Counter()
        with open(self.trace, errors="replace") as f:
            f.seek(start)
            for line in f:
                match = self.REPLY.match(line)
                if not match:
                    continue
                thread, name = match.groups()
                if name == "init_first_thread" and not threads:
                    threads.add(thread)
                if thread in threads:
                    counts[name] += 1
                    if name == "new_thread":
                        threads.add(re.search(r"tid=(\w+)", line).group(1))
        return counts

    def close(self):
        self.restart(None)


GENERATED_END = "<!-- The part above is written by bench/run.sh; the part below is kept as it is. -->"

METHOD = """\
# Benchmarks

Run the suite with:

    bash bench/run.sh

It installs what it needs, builds VeyUpdater.exe and the harnesses in `bench/`, makes its data
under a temporary folder, serves it with nginx on 127.0.0.1, runs every case several times and
rewrites the part of this file above the marker line.

How it measures:
- Every time is the wall time of a whole process started by the suite, for the program and the
  reference alike (so the program's figures include starting and ending a Wine process). Each
  case runs once unmeasured to warm caches, then the program and the reference alternate.
- VeyUpdater.exe and the harnesses run under Wine (wine64, one prewarmed wineserver in the
  suite's own prefix `build/bench-wineprefix`); the references (curl, openssl, sha1sum, bash) run
  natively.
- Peak memory is the peak resident set (GNU time's %M) of the process, for the program that of
  the Wine process, Wine's own share included (a Wine process that does nothing peaks at about
  30 MiB).
- Case 1 runs `hash_bench.exe`, which calls HashFile once on the file. Case 5 runs
  `manifest_bench.exe`, which fetches the manifest with the HTTP client and then calls the
  manifest fetch's own ParseManifestBody (text conversion, JSON parse, the re-serialised document
  logged as one entry) and releases the tree; its time is the parse and log step (with the
  logger's final flush), its memory the peak working set minus the working set with the fetched
  body held.
- Cases 2 to 4 run the real VeyUpdater.exe against nginx. Case 2's installation lacks the file
  (neither side hashes an old copy); the script downloads into a staging folder, compares
  `openssl sha1` with the expected digest and moves the file into place. Case 4's script runs one
  curl process for the 500 changed URLs (one connection, written straight into place) and then
  sha1sum over all 5,000 files; the program also verifies each download and moves it into place.
- Case 6 runs the real VeyUpdater.exe inside network namespaces that the suite creates and always
  deletes again, laid out as in tests/e2e/test_peers.py: the updater with its own Wine prefix
  (`build/bench-wineprefix-netns`, whose wineserver runs in the updater's namespace), nginx at
  10.78.1.2 on a bridge, and one peer at 10.78.1.3 that answers for all 20 changed items in one
  datagram and serves them. Its time is the sum of the log's elapsed fields (µs) from "Finding
  peers in local network..." to the first "HTTP Getting..." of the peer. It needs root.
- Row 1a is HashFile's own memory in case 1: hash_bench.exe's peak working set minus its working
  set just before the call (K32GetProcessMemoryInfo).
- Cases 7 and 8 set the real VeyUpdater.exe beside `nothing.exe` (built in `bench/`, a Windows
  program that returns at once), run under Wine in the same rounds: case 7 is a no-op run over
  50 current files of 50 to 150 KB (the time above nothing.exe's), case 8 a run that downloads,
  verifies and moves one 256 MiB file (the peak memory above nothing.exe's).
- Case 9 counts calls into the system as Wine server requests: the suite restarts its wineserver
  with its trace going to a file, runs each program with WINEDEBUG=+server and counts the replies
  to the requests of that program's own threads. Per no-op file: a run over case 7's 50 files less
  a run over an empty file list. Per downloaded MiB: a run that downloads case 8's 256 MiB file
  less a run that finds it current (both hash it once). Unlike the times, these figures do not
  depend on how loaded the machine is.
"""


def write_document(path, header, table, notes):
    kept = ""
    if os.path.exists(path):
        with open(path, encoding="utf-8") as f:
            text = f.read()
        if GENERATED_END in text:
            kept = text[text.index(GENERATED_END) + len(GENERATED_END):]
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as f:
        f.write(METHOD + "\n## Results\n\n" + header.replace("\n", "\n\n") + "\n\n" + table + "\n\n")
        f.write("".join(f"- {note}\n" for note in notes))
        f.write("\n" + GENERATED_END + (kept if kept else "\n"))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--runs", type=int, default=5, help="measured runs per case (default 5)")
    parser.add_argument("--temp", default=None, help="folder for the temporary data (default: the system's)")
    parser.add_argument("--keep", action="store_true", help="keep the data folder")
    parser.add_argument("--cases", default="123456789a", help="which cases to run, e.g. 13 (default all)")
    parser.add_argument("--no-doc", action="store_true", help="do not rewrite docs/benchmarks.md")
    parser.add_argument("--programs", help="measure the VeyUpdater.exe, hash_bench.exe and manifest_bench.exe "
                                           "of this folder instead of this build's (implies --no-doc)")
    options = parser.parse_args()
    if options.programs:
        use_programs(options.programs)
        options.no_doc = True

    subprocess.run([os.path.join(ROOT, "tests", "support", "wine-prefix"), "up", WINE_PREFIX], check=True)
    bench = Bench(options)
    try:
        if set(options.cases) & set("12345a"):
            bench.prepare()
        cases = {"1": bench.case_hashing, "2": bench.case_large, "3": bench.case_noop, "4": bench.case_changed,
                 "5": bench.case_manifest, "6": bench.case_discovery, "7": bench.case_noop_small,
                 "8": bench.case_update_memory, "9": bench.case_requests, "a": bench.case_sha256}
        for key in options.cases:
            print(f"case {key} ...", flush=True)
            cases[key]()
        header, table, machine, stamp = bench.report()
    finally:
        bench.close()
        subprocess.run([os.path.join(ROOT, "tests", "support", "wine-prefix"), "down", WINE_PREFIX])
    if not options.no_doc:
        write_document(os.path.join(ROOT, "docs", "benchmarks.md"), header, table, bench.notes)


if __name__ == "__main__":
    main()
