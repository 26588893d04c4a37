#!/usr/bin/env python3
"""What an update moves over the network on three real release pairs (two versions of one Debian
package each: libreoffice-core, openjdk-17-jre-headless, chromium), and how long it takes.

Per pair: the bytes of the changed files; the compressed objects and patches make-manifest --site
chose from; the bytes zsync and casync fetch for the same pair from the same nginx; the bytes,
time, CPU time and peak private memory of VeyUpdater.exe updating an installation of the older
version, from the site's manifest (compressed objects and patches) and from the same manifest
without them (plain files). Times are taken twice: over loopback and over a 100 Mbit/s link shaped with tc. Last, a
no-op run over a release holding one 4.5 GiB file.

Everything runs inside two network namespaces this script creates and deletes again (needs root):
the client's (the updater under Wine, zsync, casync, and an nginx on its own 127.0.0.1 for the
loopback figures) and the server's (nginx behind the shaped veth link). The updater is never
given a share port. Bytes are nginx's $bytes_sent (headers included) summed over its access log.
Peak private memory is the most RssAnon the updater's Wine process held, polled while it ran,
against nothing.exe's measured the same way in the same namespace.
Prints a Markdown section for docs/benchmarks.md."""
import argparse
import json
import os
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from urllib.parse import quote

from bench_env import BUILD, WINE_RUN  # first: puts tests/support on the import path
import netns  # noqa: E402
from servers import Nginx  # noqa: E402
from release_pairs import PACKAGES, Pair  # noqa: E402
from memory import peak_private_kib  # noqa: E402
from run import log_messages, sha1_of  # noqa: E402

PROGRAM = os.path.join(BUILD, "bin", "VeyUpdater.exe")
NOTHING = os.path.join(BUILD, "bench", "nothing.exe")
PREFIX = os.path.join(BUILD, "bench-wineprefix-bytes")
CLIENT, SERVER = "10.77.1.1", "10.77.1.2"
RATE = "100mbit"
MIB = 1 << 20
HUGE_SIZE = 4608 * MIB
BYTES_LOG = "$request $status $bytes_sent"
# Tools that read proxy settings from the environment must talk to the bench's servers directly.
DIRECT = {name: value for name, value in os.environ.items() if not name.lower().endswith("_proxy")}


def mib(size):
    return f"{size / MIB:.1f} MiB"


def share(part, whole):
    return f"{mib(part)} ({100 * part / whole:.1f} %)"


class Served:
    """One nginx over the bench's serve folder, and the bytes it sent since the last look."""

    def __init__(self, root, address, namespace):
        self.nginx = Nginx(root, address, namespace, log_format=BYTES_LOG)
        self.seen = 0

    @property
    def domain(self):
        return self.nginx.domain

    def take(self):
        """The requests logged since the last call: (path, status, bytes sent)."""
        lines = self.nginx.requests()
        new, self.seen = lines[self.seen:], len(lines)
        taken = []
        for line in new:
            _method, path, _version, status, sent = line.split(" ")
            taken.append((path, int(status), int(sent)))
        return taken


class Lab:
    """The client and server namespaces, their veth link, the two nginx and the client's Wine."""

    def __init__(self, serve):
        self.lab = netns.Lab()
        self.client = self.lab.namespace("c")
        self.server = self.lab.namespace("s")
        self.lab.veth(self.client, "c1", CLIENT + "/24", self.server, "s1", SERVER + "/24")
        self.wine = None
        self.servers = {}
        try:
            for end, namespace in (("c1", self.client), ("s1", self.server)):
                subprocess.run(["ip", "netns", "exec", namespace, "tc", "qdisc", "add", "dev", end, "root", "tbf",
                                "rate", RATE, "burst", "64kb", "latency", "50ms"], check=True)
            self.servers = {"loopback": Served(serve, "127.0.0.1", self.client),
                            RATE: Served(serve, SERVER, self.server)}
            self.wine = netns.WineInNamespace(self.client, PREFIX)
        except BaseException:
            self.close()
            raise

    def command(self, *args):
        return ["ip", "netns", "exec", self.client, "env", f"VEY_WINEPREFIX={PREFIX}", *args]

    def close(self):
        for served in self.servers.values():
            served.nginx.stop()
        if self.wine:
            self.wine.close()
        self.lab.close()


def children_cpu():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def measured(command, program):
    """Runs a Windows program whose path command names: (wall seconds, CPU seconds of its process,
    peak private KiB). Fails on a non-zero exit."""
    start, cpu = time.perf_counter(), children_cpu()
    code, peak = peak_private_kib(command, program, timeout=3600)
    if code != 0:
        raise RuntimeError(f"{command[-2:]} exited with {code}")
    return time.perf_counter() - start, children_cpu() - cpu, peak


class Measure:
    """One measured way of updating: its bytes (all runs' median), and times per network (with the
    CPU time of the updater's process)."""

    def __init__(self):
        self.bytes = []
        self.seconds = {}
        self.cpu = {}
        self.peaks = []

    def add(self, network, seconds, sent, peak=None, cpu=None):
        self.seconds.setdefault(network, []).append(seconds)
        self.bytes.append(sent)
        if peak is not None:
            self.peaks.append(peak)
        if cpu is not None:
            self.cpu.setdefault(network, []).append(cpu)

    def time_text(self, network):
        values = self.seconds[network]
        text = f"{statistics.median(values):.1f} s"
        text += f" ({min(values):.1f}–{max(values):.1f})" if len(values) > 1 else ""
        return text + (f", CPU {statistics.median(self.cpu[network]):.1f} s" if network in self.cpu else "")

    def median_seconds(self, network):
        return statistics.median(self.seconds[network])


class PairBench:
    def __init__(self, pair, options, work):
        self.pair = pair
        self.options = options
        self.work = work
        self.site = pair.site(options.level, options.window_log, options.threads)
        self.serve = os.path.join(work, "serve")
        os.makedirs(self.serve)
        for name in ("files", "objects", "manifest.json"):
            if os.path.exists(os.path.join(self.site, name)):
                os.symlink(os.path.join(self.site, name), os.path.join(self.serve, name))
        with open(os.path.join(self.site, "manifest.json"), encoding="utf-8") as f:
            self.manifest = json.load(f)
        plain = dict(self.manifest, files=[{key: value for key, value in entry.items() if key not in ("z", "p")}
                                           for entry in self.manifest["files"]])
        with open(os.path.join(self.serve, "plain.json"), "w", encoding="utf-8") as f:
            json.dump(plain, f)
        self.changed = []
        for entry in self.manifest["files"]:
            old = os.path.join(pair.old, *entry["n"].split("/"))
            base = sha1_of(old) if os.path.isfile(old) else None
            if base != entry["h"]:
                self.changed.append((entry, base))

    # ----- what the site offers

    def forms(self):
        """(changed bytes, compressed bytes, patch bytes over the files that got one, their plain
        bytes, number of such files, the smallest form of each file summed)."""
        changed = compressed = patched = patched_plain = smallest = 0
        count = 0
        for entry, base in self.changed:
            size = entry["s"]
            packed = entry["z"]["s"] if "z" in entry else size
            patch = next((p["s"] for p in entry.get("p", []) if p["h"] == base), None)
            changed += size
            compressed += packed
            if patch is not None:
                patched += patch
                patched_plain += size
                count += 1
            smallest += min(size, packed, patch if patch is not None else size)
        return changed, compressed, patched, patched_plain, count, smallest

    # ----- zsync

    def zsync_prepare(self):
        """A control file per changed file, beside the files, as zsyncmake writes them; gzip files
        are taken as they are (-Z), as the updater takes them."""
        for entry, _ in self.changed:
            control = os.path.join(self.serve, "zsync", *entry["n"].split("/")) + ".zsync"
            os.makedirs(os.path.dirname(control), exist_ok=True)
            target = os.path.relpath(os.path.join(self.serve, "files", *entry["n"].split("/")),
                                     os.path.dirname(control))
            subprocess.run(["nice", "-n", "19", "zsyncmake", "-Z", "-u", quote(target), "-o", control,
                            os.path.join(self.site, "files", *entry["n"].split("/"))],
                           check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, cwd=self.work)

    def zsync(self, lab, network):
        """Fetches every changed file with zsync, seeded by the old file where there is one."""
        out = os.path.join(self.work, "zsync-out")
        shutil.rmtree(out, ignore_errors=True)
        os.makedirs(out)
        served = lab.servers[network]
        served.take()
        start = time.perf_counter()
        for number, (entry, base) in enumerate(self.changed):
            old = os.path.join(self.pair.old, *entry["n"].split("/"))
            seed = ["-i", old] if base else []
            url = f"http://{served.domain}/zsync/{quote(entry['n'])}.zsync"
            output = os.path.join(out, str(number))
            subprocess.run(lab.command("zsync", "-q", *seed, "-o", output, url), check=True, env=DIRECT,
                           stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, cwd=out)
            if sha1_of(output) != entry["h"]:
                raise RuntimeError(f"zsync made a wrong {entry['n']}")
        seconds = time.perf_counter() - start
        return seconds, sum(sent for _, _, sent in served.take())

    # ----- casync

    def casync_prepare(self):
        """The new tree's index and chunk store (casync's defaults: chunks compressed), made once
        per pair in the cache."""
        folder = os.path.join(self.options.cache, "casync", os.path.basename(self.pair.new))
        if not os.path.isfile(os.path.join(folder, "new.caidx")):
            partial = folder + ".partial"
            shutil.rmtree(partial, ignore_errors=True)
            os.makedirs(partial)
            subprocess.run(["nice", "-n", "19", "casync", "make", "--store=" + os.path.join(partial, "default.castr"),
                            os.path.join(partial, "new.caidx"), self.pair.new], check=True, stdout=subprocess.DEVNULL)
            shutil.rmtree(folder, ignore_errors=True)
            os.replace(partial, folder)
        os.symlink(folder, os.path.join(self.serve, "casync"))

    def casync(self, lab, network):
        """Extracts the new tree from the HTTP store, seeded by the old tree."""
        out = os.path.join(self.work, "casync-out")
        shutil.rmtree(out, ignore_errors=True)
        served = lab.servers[network]
        served.take()
        base = f"http://{served.domain}/casync"
        start = time.perf_counter()
        subprocess.run(lab.command("casync", "extract", f"--store={base}/default.castr", f"--seed={self.pair.old}",
                                   f"{base}/new.caidx", out), check=True, env=DIRECT,
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        seconds = time.perf_counter() - start
        for entry, _ in self.changed:
            if sha1_of(os.path.join(out, *entry["n"].split("/"))) != entry["h"]:
                raise RuntimeError(f"casync made a wrong {entry['n']}")
        return seconds, sum(sent for _, _, sent in served.take())

    # ----- the updater

    def install(self):
        """A fresh installation of the older version with the updater beside it."""
        app = os.path.join(self.work, "app")
        shutil.rmtree(app, ignore_errors=True)
        subprocess.run(["cp", "-a", "--reflink=auto", self.pair.old, app], check=True)
        shutil.copy(PROGRAM, app)
        return app

    def update(self, lab, network, manifest):
        """One update from the named manifest: (seconds, CPU seconds, bytes sent, peak private KiB,
        the numbers of files patched, decompressed and downloaded whole and of objects that failed,
        by the log)."""
        app = self.install()
        served = lab.servers[network]
        served.take()
        argument = quote(json.dumps({"domains": [served.domain], "pathAndQuery": "/" + manifest, "argOrg": "",
                                     "httpSharePort": 0}), safe="")
        lab.wine.check_server()
        seconds, cpu, peak = measured(lab.command(WINE_RUN, os.path.join(app, "VeyUpdater.exe"), argument),
                                      PROGRAM)
        requests = served.take()
        for entry in self.manifest["files"]:
            path = os.path.join(app, *entry["n"].split("/"))
            if not os.path.isfile(path) or os.path.getsize(path) != entry["s"] or sha1_of(path) != entry["h"]:
                raise RuntimeError(f"the update from /{manifest} left {entry['n']} unlike the release")
        messages = log_messages(app)
        forms = tuple(sum(1 for message in messages if message.startswith(start))
                      for start in ("Patched ", "Decompressed ", "Downloaded ", "Failed to use "))
        return seconds, cpu, sum(sent for _, _, sent in requests), peak, forms


def huge_noop(lab, options, work):
    """A no-op over a release of one 4.5 GiB file (zeros with a random MiB every 64 MiB), kept in
    the cache: (seconds, peak private KiB)."""
    release = os.path.join(options.cache, "huge", "release")
    path = os.path.join(release, "huge.bin")
    if not os.path.isfile(path) or os.path.getsize(path) != HUGE_SIZE:
        os.makedirs(release, exist_ok=True)
        with open(path + ".partial", "wb") as f:
            for offset in range(0, HUGE_SIZE, 64 * MIB):
                f.seek(offset)
                f.write(os.urandom(MIB))
            f.truncate(HUGE_SIZE)
        os.replace(path + ".partial", path)
    serve = lab.servers["loopback"].nginx.root
    manifest = {"format": 2, "files": [{"n": "huge.bin", "h": sha1_of(path), "s": HUGE_SIZE}], "urlPrefix": "/huge"}
    with open(os.path.join(serve, "huge.json"), "w", encoding="utf-8") as f:
        json.dump(manifest, f)
    app = os.path.join(work, "huge-app")
    os.makedirs(app)
    os.link(path, os.path.join(app, "huge.bin"))  # never written: the run has nothing to do
    shutil.copy(PROGRAM, app)
    argument = quote(json.dumps({"domains": [lab.servers["loopback"].domain], "pathAndQuery": "/huge.json",
                                 "argOrg": "", "httpSharePort": 0}), safe="")
    seconds, _, peak = measured(lab.command(WINE_RUN, os.path.join(app, "VeyUpdater.exe"), argument), PROGRAM)
    if "Nothing to update!" not in log_messages(app):
        raise RuntimeError("the run over the 4.5 GiB release found something to do")
    return seconds, peak


def table(header, rows):
    print("| " + " | ".join(header) + " |")
    print("|" + " --- |" * len(header))
    print("\n".join(rows) + "\n")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--runs", type=int, default=1, help="measured runs of each way per network (default 1)")
    parser.add_argument("--cache", default=os.path.expanduser("~/.cache/veyupdater-bench"),
                        help="folder kept between runs: packages, their trees, sites, chunk stores")
    parser.add_argument("--level", type=int, default=19, help="zstd level of the sites (default 19; lower is quicker)")
    parser.add_argument("--window-log", type=int, default=31, help="zstd window of the sites (default 31)")
    parser.add_argument("--threads", type=int, default=2, help="zstd's worker threads making a site (default 2)")
    parser.add_argument("--packages", nargs="+", default=list(PACKAGES), help="the pairs to run")
    parser.add_argument("--no-huge", action="store_true", help="leave out the no-op over a 4.5 GiB file")
    options = parser.parse_args()
    reason = netns.unavailable_reason()
    if reason:
        sys.exit(reason)

    load = os.getloadavg()
    work = tempfile.mkdtemp(prefix="vey-bytes-bench-")
    serve = os.path.join(work, "serve")
    os.makedirs(serve)
    lab = Lab(serve)
    sizes, fetched, times, memory, notes = [], [], [], [], []
    try:
        nothing = [measured(lab.command(WINE_RUN, NOTHING), NOTHING)[2] for _ in range(3)][1:]
        nothing_peak = max(nothing)
        for package in options.packages:
            print(f"{package}: preparing", file=sys.stderr, flush=True)
            pair_work = os.path.join(work, package)
            os.makedirs(pair_work)
            bench = PairBench(Pair(package, options.cache), options, pair_work)
            # Each pair is served from the same folder in turn.
            for name in os.listdir(serve):
                os.unlink(os.path.join(serve, name))
            bench.zsync_prepare()
            bench.casync_prepare()
            for name in os.listdir(bench.serve):
                os.symlink(os.path.join(bench.serve, name), os.path.join(serve, name))
            changed, compressed, patched, patched_plain, count, smallest = bench.forms()
            manifest_bytes = os.path.getsize(os.path.join(bench.site, "manifest.json"))
            label = f"{package} {bench.pair.old_version} → {bench.pair.new_version}"
            sizes.append(f"| {label} | {len(bench.changed)} files, {mib(changed)} | {share(compressed, changed)} | "
                         f"{count} files of {mib(patched_plain)}: {share(patched, patched_plain)} | "
                         f"{share(smallest, changed)} | {manifest_bytes / 1024:.1f} KiB |")

            ways = {"plain": Measure(), "site": Measure(), "zsync": Measure(), "casync": Measure()}
            forms = set()
            for network in ("loopback", RATE):
                for _ in range(options.runs):
                    print(f"{package}: {network}", file=sys.stderr, flush=True)
                    for way, manifest in (("plain", "plain.json"), ("site", "manifest.json")):
                        seconds, cpu, sent, peak, counts = bench.update(lab, network, manifest)
                        ways[way].add(network, seconds, sent, peak, cpu)
                        if way == "plain" and counts[:2] != (0, 0):
                            raise RuntimeError("the update from plain.json fetched objects")
                        if way == "site":
                            forms.add(counts)
                    ways["zsync"].add(network, *bench.zsync(lab, network))
                    ways["casync"].add(network, *bench.casync(lab, network))

            def sent(way):
                return statistics.median(ways[way].bytes)

            forms_text = "; ".join(f"{p} patched, {d} decompressed, {w} whole" + (f", {f} failed" if f else "")
                                   for p, d, w, f in sorted(forms))
            fetched.append(f"| {package} | {mib(changed)} | {share(sent('plain'), changed)} | "
                           f"{share(sent('site'), changed)} | {forms_text} | "
                           f"{share(sent('zsync'), changed)} | {share(sent('casync'), changed)} |")
            limit = 1.02 * smallest + manifest_bytes
            notes.append(f"{package}: the updater fetched {sent('site'):.0f} bytes against the target's "
                         f"{limit:.0f} (1.02 × the smallest forms plus the manifest): "
                         f"{'met' if sent('site') <= limit else 'not met'}.")
            shaped = ways["site"].median_seconds(RATE) / ways["plain"].median_seconds(RATE)
            above = (max(ways["site"].peaks) - nothing_peak) / 1024
            notes.append(f"{package}: over {RATE} the new format took {shaped:.2f}× the plain update's time "
                         f"(target ≤ 0.5×: {'met' if shaped <= 0.5 else 'not met'}); its peak private memory is "
                         f"{above:.1f} MiB above nothing.exe's (target ≤ 64 MiB: "
                         f"{'met' if above <= 64 else 'not met'}).")
            for network in ("loopback", RATE):
                ratio = ways["site"].median_seconds(network) / ways["plain"].median_seconds(network)
                times.append(f"| {package} | {network} | {ways['plain'].time_text(network)} | "
                             f"{ways['site'].time_text(network)} | {ratio:.2f}× | "
                             f"{ways['zsync'].time_text(network)} | {ways['casync'].time_text(network)} |")
            for way in ("plain", "site"):
                peak = max(ways[way].peaks)
                memory.append(f"| {package} | {way} | {peak / 1024:.1f} MiB | "
                              f"+{(peak - nothing_peak) / 1024:.1f} MiB |")
        huge = None if options.no_huge else huge_noop(lab, options, work)
    finally:
        lab.close()
        shutil.rmtree(work, ignore_errors=True)

    print(f"zstd level {options.level}, window 2^{options.window_log}, {options.threads} threads; load average "
          f"{load[0]:.2f} at the start, {os.getloadavg()[0]:.2f} at the end; nothing.exe's peak private memory "
          f"{nothing_peak / 1024:.1f} MiB\n")
    table(["pair", "changed files", "compressed (`zstd`)", "patches (`--patch-from`)", "smallest forms", "manifest"],
          sizes)
    table(["pair", "changed files", "updater, plain", "updater, new format", "forms taken", "zsync", "casync"],
          fetched)
    table(["pair", "link", "updater, plain", "updater, new format", "ratio", "zsync", "casync"], times)
    table(["pair", "manifest", "peak private memory", "above nothing.exe"], memory)
    if huge:
        print(f"No-op over one 4.5 GiB file: {huge[0]:.1f} s, peak private memory {huge[1] / 1024:.1f} MiB "
              f"(+{(huge[1] - nothing_peak) / 1024:.1f} MiB above nothing.exe).\n")
    print("\n".join(f"- {note}" for note in notes))


if __name__ == "__main__":
    main()
