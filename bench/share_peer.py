#!/usr/bin/env python3
"""Benchmarks of the share peer, VeyShare.exe, under Wine (needs root: the first two cases run in
network namespaces that this script creates and always deletes again):

  1. one 200 MiB file served to curl by VeyShare.exe and by nginx, the same file from the same
     namespace over the same veth link (throughput, the median of the runs);
  2. the answer to a query of 1,000 records whose files are all shared, with a warm catalogue:
     from sending the first query datagram to receiving the last answer, as the querying side
     sees it (so an upper bound of datagram in to answer out), and the median round trip of one
     query datagram sent alone;
  3. a catalogue refresh over 5,000 unchanged files, and the match of each of them as a query
     asks for it, its attributes read (share_refresh_bench.exe, no sockets).

Prints the figures as rows of a Markdown table for docs/benchmarks.md, each as soon as it is measured. Layout as in
tests/e2e/test_share_peer.py: a client namespace at 10.79.1.1, VeyShare.exe and nginx at
10.79.1.3, joined by a veth pair."""
import argparse
import hashlib
import json
import os
import shutil
import socket
import statistics
import struct
import subprocess
import sys
import tempfile
import time
from urllib.parse import quote

from bench_env import BUILD, WINE_RUN  # first: puts tests/support on the import path
import netns  # noqa: E402
from peer import prefix_for  # noqa: E402
from servers import Nginx  # noqa: E402
from run import random_file as write_random  # noqa: E402

SHARE = os.path.join(BUILD, "bin", "VeyShare.exe")
REFRESH_BENCH = os.path.join(BUILD, "bench", "share_refresh_bench.exe")
PREFIX = os.path.join(BUILD, "bench-wineprefix-share")
CLIENT, HOST = "10.79.1.1", "10.79.1.3"
PORT = 8090  # only inside the benchmark's namespaces
MIB = 1 << 20


def manifest_of(folder, names):
    entries = []
    for name in names:
        with open(os.path.join(folder, name), "rb") as f:
            data = f.read()
        entries.append({"n": name, "h": hashlib.sha1(data).hexdigest().upper(), "s": len(data)})
    return json.dumps({"files": entries}).encode()


def wait_for(path_glob_folder, text, timeout=120):
    deadline = time.time() + timeout
    while time.time() < deadline:
        logs = os.path.join(path_glob_folder, "_logs")
        for name in os.listdir(logs) if os.path.isdir(logs) else []:
            with open(os.path.join(logs, name), "rb") as f:
                if text.encode() in f.read():
                    return
        time.sleep(0.05)
    raise RuntimeError(f"VeyShare.exe did not log {text!r}")


def curl_speed(namespace, url):
    out = subprocess.run(["ip", "netns", "exec", namespace, "curl", "-s", "-o", "/dev/null", "-w",
                          "%{speed_download} %{size_download}", url], capture_output=True, text=True, check=True)
    speed, size = out.stdout.split()
    return float(speed), int(float(size))


def query_datagrams(records):
    """The updater's query form, datagrams closed once beyond 1200 bytes."""
    datagrams, body = [], b""

    def close():
        head = prefix_for(PORT) + b"\2\1"
        datagrams.append(head + struct.pack(">I", len(head) + 4 + len(body) + 1) + body + b"\0")

    for name, digest, size in records:
        encoded = name.encode()
        body += b"\1" + bytes([len(encoded)]) + encoded + b"\x14" + bytes.fromhex(digest) + b"\1" + \
            struct.pack(">Q", size)
        if len(prefix_for(PORT)) + 6 + len(body) > 1200:
            close()
            body = b""
    if body:
        close()
    return datagrams


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--runs", type=int, default=5)
    args = parser.parse_args()
    reason = netns.unavailable_reason()
    if reason:
        sys.exit(reason)
    work = tempfile.mkdtemp(prefix="vey-share-bench-")
    lab = netns.Lab()
    processes = []
    print("| case | VeyShare.exe (median, range) | reference | ratio | target |")
    print("| --- | --- | --- | --- | --- |")

    def row(*cells):
        print("| " + " | ".join(cells) + " |", flush=True)

    try:
        client, host = lab.namespace("c"), lab.namespace("h")
        lab.veth(client, "c1", CLIENT + "/24", host, "h1", HOST + "/24")
        wine = netns.WineInNamespace(host, PREFIX)

        # The release: one 200 MiB file and 1,000 small ones, served as a manifest by nginx.
        folder = os.path.join(work, "share")
        os.makedirs(folder)
        shutil.copy(SHARE, folder)
        write_random(os.path.join(folder, "big.bin"), 200 * MIB)
        small = [f"files/{i // 100:02d}/item-{i:04d}.dat" for i in range(1000)]
        for name in small:
            write_random(os.path.join(folder, name), 1024 + len(name))
        with open(os.path.join(folder, "m.json"), "wb") as f:
            f.write(manifest_of(folder, ["big.bin"] + small))
        nginx = Nginx(folder, HOST, host)
        argument = quote(json.dumps({"domains": [nginx.domain], "pathAndQuery": "/m.json", "httpSharePort": PORT}),
                         safe="")
        share = wine.start(os.path.join(folder, "VeyShare.exe"), [argument])
        processes.append(share)
        wait_for(folder, "1001 shared")

        # 1. Throughput, alternating program and reference after one unmeasured run of each.
        ours, theirs = [], []
        for run in range(args.runs + 1):
            speed, size = curl_speed(client, f"http://{HOST}:{PORT}/big.bin")
            reference, reference_size = curl_speed(client, f"http://{nginx.domain}/big.bin")
            assert size == reference_size == 200 * MIB, (size, reference_size)
            if run:
                ours.append(speed / MIB)
                theirs.append(reference / MIB)
        ratio = statistics.median(ours) / statistics.median(theirs)
        row("200 MiB file to curl", f"{statistics.median(ours):.0f} MiB/s "
                     f"({min(ours):.0f}-{max(ours):.0f})", f"nginx {statistics.median(theirs):.0f} MiB/s "
                     f"({min(theirs):.0f}-{max(theirs):.0f})", f"{ratio:.2f}x nginx", ">= 0.5x nginx")

        # 2. A query of 1,000 records, all shared.
        records = []
        for name in small:
            with open(os.path.join(folder, name), "rb") as f:
                data = f.read()
            records.append((name.replace("/", "\\"), hashlib.sha1(data).hexdigest().upper(), len(data)))
        datagrams = query_datagrams(records)

        def ask():
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as udp:
                udp.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 20)
                udp.bind((CLIENT, 0))
                udp.settimeout(2)
                answered = 0
                start = time.perf_counter()
                for datagram in datagrams:
                    udp.sendto(datagram, (HOST, PORT))
                while answered < len(records):
                    data = udp.recv(4096)
                    answered += struct.unpack(">I", data[len(prefix_for(PORT)) + 6:len(prefix_for(PORT)) + 10])[0]
                return (time.perf_counter() - start) * 1000

        def ask_one_by_one():
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as udp:
                udp.bind((CLIENT, 0))
                udp.settimeout(2)
                each = []
                for datagram in datagrams:
                    start = time.perf_counter()
                    udp.sendto(datagram, (HOST, PORT))
                    udp.recv(4096)
                    each.append((time.perf_counter() - start) * 1000)
                return statistics.median(each)

        times = [netns.in_namespace(client, ask) for _ in range(args.runs + 1)][1:]
        singles = [netns.in_namespace(client, ask_one_by_one) for _ in range(args.runs)]
        row("query of 1,000 records, warm", f"{statistics.median(times):.1f} ms "
            f"({min(times):.1f}-{max(times):.1f})", f"{len(datagrams)} datagrams; one alone {statistics.median(singles):.2f} ms "
            f"({min(singles):.2f}-{max(singles):.2f})", "", "< 20 ms")
        share.send_signal(2)
        share.wait(60)
        nginx.stop()
        wine.close()

        # 3. The refresh over 5,000 unchanged files.
        many = os.path.join(work, "many")
        names = [f"d{i // 100:02d}/f{i:04d}.bin" for i in range(5000)]
        for name in names:
            write_random(os.path.join(many, name), 2048)
        manifest = os.path.join(work, "many.json")
        with open(manifest, "wb") as f:
            f.write(manifest_of(many, names))
        out = subprocess.run([WINE_RUN, REFRESH_BENCH, "Z:" + many.replace("/", "\\") + "\\",
                              "Z:" + manifest.replace("/", "\\"), str(args.runs)],
                             capture_output=True, text=True, check=True).stdout.split("\n")
        first = out[0].split()
        again = [int(line.split()[1]) for line in out[1:] if line.startswith("again")]
        assert first[3] == "5000", out
        row("refresh over 5,000 unchanged files", f"{statistics.median(again)} ms "
                     f"({min(again)}-{max(again)})", f"first refresh (all hashed) {first[1]} ms", "", "< 500 ms")
        match = [int(line.split()[1]) / 5000 for line in out if line.startswith("match")]
        assert all(line.split()[3] == "5000" for line in out if line.startswith("match")), out
        row("one record's attribute check", f"{statistics.median(match):.1f} us ({min(match):.1f}-{max(match):.1f})",
            "the match of 5,000 asked records, one after another", "", "")
    finally:
        for process in processes:
            if process.poll() is None:
                process.kill()
        lab.close()
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
