"""Peer sharing end to end, inside network namespaces that the tests create and delete again. The
updater runs in its own namespace with its own Wine prefix and server; update server and peers
run in theirs. Covered: the query datagrams on the wire, field by field; three bursts about
200 ms apart and the end near 500 ms when nobody answers; the end as soon as every item is
answered; downloads from a peer; the server when a peer serves a wrong file or is gone; a
version-2 answer replacing the expected hash and size, and in signed mode ("publicKey") the same
hostile answer changing nothing, its file refused and the server's taken; no datagram when
"httpSharePort" is 0 or nothing needs an update; one socket per interface.

Layout (namespaces vey<pid><role>, addresses 10.77.x.y/24):
  u  the updater: 10.77.1.1 on LAN 1 and 10.77.2.1 on LAN 2
  l  LAN 1's bridge, with the update server (nginx) at 10.77.1.2
  p  a peer at 10.77.1.3 on LAN 1
  q  a peer at 10.77.1.4 on LAN 1
  r  a listener at 10.77.2.2 on LAN 2, a veth straight to the updater
"""
import json
import os
import shutil
import struct
import subprocess
import unittest

import netns
from peer import Peer
from servers import Nginx
from test_progress import Launcher
from veytest import TEST_BIN, WORK, make_app_folder, quote_argument, read, read_log_entries, sha1, windows_path, write

UNAVAILABLE = netns.unavailable_reason()
SHARE_PORT = 8090  # used only inside the test's network namespaces
PREFIX = b"wHttpShare8090"
UPDATER_LAN1, SERVER, PEER_P, PEER_Q = "10.77.1.1", "10.77.1.2", "10.77.1.3", "10.77.1.4"
UPDATER_LAN2, LISTENER = "10.77.2.1", "10.77.2.2"

lab = None
wine = None
namespaces = {}


def setUpModule():
    global lab, wine
    if UNAVAILABLE:
        raise unittest.SkipTest(UNAVAILABLE)
    lab = netns.Lab()
    unittest.addModuleCleanup(lab.close)
    for role in "ulpqr":
        namespaces[role] = lab.namespace(role)
    u, l, p, q, r = (namespaces[role] for role in "ulpqr")
    lab.bridge(l, "br0", SERVER + "/24")
    lab.veth(u, "u1", UPDATER_LAN1 + "/24", l, "lu", bridge_b="br0")
    lab.veth(p, "p1", PEER_P + "/24", l, "lp", bridge_b="br0")
    lab.veth(q, "q1", PEER_Q + "/24", l, "lq", bridge_b="br0")
    lab.veth(u, "u2", UPDATER_LAN2 + "/24", r, "r2", LISTENER + "/24")
    wine = netns.WineInNamespace(u, os.environ["VEY_WINEPREFIX"] + "-netns")
    unittest.addModuleCleanup(wine.close)


def bursts(datagrams):
    """Datagrams grouped into bursts: a gap of more than 100 ms starts a new one."""
    groups = []
    for arrival, sender, data in datagrams:
        if not groups or arrival - groups[-1][-1][0] > 0.1:
            groups.append([])
        groups[-1].append((arrival, sender, data))
    return groups


def discovery_seconds(entries):
    """From the "Finding peers" entry to the entry after it."""
    messages = [message for _, message in entries]
    at = messages.index("Finding peers in local network...")
    return entries[at + 1][0] - entries[at][0]


class PeerSharing(unittest.TestCase):
    def setUp(self):
        self.name = self.id().split(".")[-1]
        self.serve = os.path.join(WORK, "peers-serve-" + self.name)
        shutil.rmtree(self.serve, ignore_errors=True)

    def start_server(self, files):
        """nginx at 10.77.1.2 with the manifest /m.json of files {manifest name: bytes} under /files."""
        entries = []
        for name, data in files.items():
            write(os.path.join(self.serve, "files", name), data)
            entries.append({"n": name, "h": sha1(data), "s": len(data)})
        write(os.path.join(self.serve, "m.json"), json.dumps({"files": entries, "urlPrefix": "/files"}).encode())
        self.server = Nginx(self.serve, SERVER, namespaces["l"])
        self.addCleanup(self.server.stop)

    def start_peer(self, role, address, **options):
        peer = Peer(namespaces[role], address, SHARE_PORT, **options)
        self.addCleanup(peer.stop)
        return peer

    def run_updater(self, folder, share_port=SHARE_PORT):
        """Runs the updater in its namespace; returns the log entries after the manifest's content."""
        argument = {"domains": [self.server.domain], "pathAndQuery": "/m.json", "argOrg": "",
                    "httpSharePort": share_port}
        code, _ = wine.run(os.path.join(folder, "VeyUpdater.exe"), [quote_argument(json.dumps(argument))])
        self.assertEqual(code, 0)
        entries = read_log_entries(folder)
        self.assertEqual(entries[6][1], f"httpSharePort: {share_port}")
        self.assertTrue(entries[9][1].startswith("HTTP Response Content\r\n"), entries[9][1])
        return entries[10:]

    def server_url(self, path):
        return f"http://{self.server.domain}/files/{path}"

    def parse_query(self, data):
        """The records of one query datagram, every field checked: [(name bytes, hash hex, size)]."""
        self.assertEqual(data[:14], PREFIX)
        self.assertEqual(data[14], 2, "version")
        self.assertEqual(data[15], 1, "kind")
        self.assertEqual(struct.unpack(">I", data[16:20])[0], len(data), "length")
        records = []
        at = 20
        while data[at] == 1:
            length = data[at + 1]
            name = data[at + 2:at + 2 + length]
            at += 2 + length
            self.assertEqual(data[at], 20, "hash length")
            digest = data[at + 1:at + 21].hex().upper()
            at += 21
            self.assertEqual(data[at], 1, "size marker")
            size = struct.unpack(">Q", data[at + 1:at + 9])[0]
            at += 9
            records.append((name, digest, size))
        self.assertEqual(data[at:], b"\0", "end byte")
        return records

    def test_silent_network_gets_three_bursts_on_both_links_and_the_server_serves(self):
        files = {f"dir/{'n' * 84}{i:02d}.bin": b"content %d\n" % i for i in range(11)}
        files["caf\u00e9.txt"] = b"accent\n"
        self.start_server(files)
        lan1 = self.start_peer("p", PEER_P)
        lan2 = self.start_peer("r", LISTENER)
        folder = make_app_folder("peers-silent")
        entries = self.run_updater(folder)

        # Records of 126 bytes: the tenth takes the first datagram beyond 1200 bytes.
        expected = [(name.replace("/", "\\").encode(), sha1(data), len(data)) for name, data in files.items()]
        for listener, updater_address in ((lan1, UPDATER_LAN1), (lan2, UPDATER_LAN2)):
            groups = bursts(listener.datagrams)
            self.assertEqual(len(groups), 3, [round(arrival, 3) for arrival, _, _ in listener.datagrams])
            for group in groups:
                self.assertEqual([sender for _, sender, _ in group], [(updater_address, SHARE_PORT)] * 2)
                first, second = (data for _, _, data in group)
                self.assertEqual(len(first), 20 + 10 * 126 + 1)
                self.assertEqual(self.parse_query(first), expected[:10])
                self.assertEqual(self.parse_query(second), expected[10:])
            starts = [group[0][0] for group in groups]
            for gap in (starts[1] - starts[0], starts[2] - starts[1]):
                self.assertTrue(0.15 <= gap <= 0.35, gap)
        self.assertEqual([data for _, _, data in lan1.datagrams], [data for _, _, data in lan2.datagrams])

        seconds = discovery_seconds(entries)
        self.assertTrue(0.45 <= seconds <= 1.5, seconds)
        messages = [message for _, message in entries]
        self.assertEqual(messages[len(files)], "Finding peers in local network...")
        self.assertEqual(messages[len(files) + 1], "Created _update directory.")
        self.assertFalse([m for m in messages if m.startswith("Peers for")])
        self.assertIn(self.server_url("caf%C3%A9.txt"), "\n".join(messages))
        self.assertEqual(len(self.server.requests()), 1 + len(files))
        for name, data in files.items():
            self.assertEqual(read(os.path.join(folder, name)), data, name)

    def test_download_from_the_peer_once_every_item_is_answered(self):
        files = {"a.txt": b"new a\n", "dir/b c.txt": b"new b c\n"}
        self.start_server(files)
        peer = self.start_peer("p", PEER_P, offers={"a.txt": (1,), "dir\\b c.txt": (1,)},
                               files={"/a.txt": files["a.txt"], "/dir/b%20c.txt": files["dir/b c.txt"]})
        lan2 = self.start_peer("r", LISTENER)
        folder = make_app_folder("peers-download")
        write(os.path.join(folder, "a.txt"), b"old a\n")
        entries = self.run_updater(folder)

        # One burst only: both items had a peer as soon as the first answer came.
        self.assertEqual(len(peer.datagrams), 1)
        self.assertEqual(len(lan2.datagrams), 1)
        self.assertLess(discovery_seconds(entries), 0.4)
        messages = [message for _, message in entries]
        start = messages.index("Created _update directory.")
        self.assertEqual(messages[start + 1:start + 9], [
            f"Peers for (a.txt) ({PEER_P})",
            f"HTTP Getting... http://{PEER_P}:{SHARE_PORT}/a.txt",
            "HTTP Response Status (200 OK) (Valid 6 B)",
            f"Peers for (dir\\b c.txt) ({PEER_P})",
            f"HTTP Getting... http://{PEER_P}:{SHARE_PORT}/dir/b%20c.txt",
            "HTTP Response Status (200 OK) (Valid 8 B)",
            f"Replaced {windows_path(folder)}\\a.txt",
            f"Replaced {windows_path(folder)}\\dir\\b c.txt",
        ])
        self.assertEqual(peer.paths, ["/a.txt", "/dir/b%20c.txt"])
        self.assertEqual(self.server.requests(), ["GET /m.json HTTP/1.1 200"])
        for name, data in files.items():
            self.assertEqual(read(os.path.join(folder, name)), data, name)

    def test_wrong_file_and_gone_peer_leave_it_to_the_server(self):
        files = {"a.txt": b"right\n", "b.txt": b"also right\n"}
        self.start_server(files)
        self.start_peer("p", PEER_P, offers={"a.txt": (1,)}, files={"/a.txt": b"wrong\n"})
        gone = self.start_peer("q", PEER_Q, offers={"b.txt": (1,)}, http=False)
        folder = make_app_folder("peers-fallback")
        entries = self.run_updater(folder)

        self.assertEqual(len(gone.datagrams), 1)
        messages = [message for _, message in entries]
        start = messages.index("Created _update directory.")
        self.assertEqual(messages[start + 1:start + 11], [
            f"Peers for (a.txt) ({PEER_P})",
            f"HTTP Getting... http://{PEER_P}:{SHARE_PORT}/a.txt",
            "HTTP Response Status (200 OK) (Invalid 6 B)",
            f"HTTP Getting... {self.server_url('a.txt')}",
            "HTTP Response Status (200 OK) (Valid 6 B)",
            f"Peers for (b.txt) ({PEER_Q})",
            f"HTTP Getting... http://{PEER_Q}:{SHARE_PORT}/b.txt",
            "HTTP Response Status (0 None) (Invalid 0 B)",
            f"HTTP Getting... {self.server_url('b.txt')}",
            "HTTP Response Status (200 OK) (Valid 11 B)",
        ])
        self.assertEqual(self.server.requests(), ["GET /m.json HTTP/1.1 200", "GET /files/a.txt HTTP/1.1 200",
                                                  "GET /files/b.txt HTTP/1.1 200"])
        for name, data in files.items():
            self.assertEqual(read(os.path.join(folder, name)), data, name)

    def test_version_two_answer_replaces_the_expected_hash_and_size(self):
        # The peer's a.txt differs from the manifest's and is what gets installed. The second
        # peer announces a b.txt that nobody serves, so the server's b.txt no longer verifies.
        files = {"a.txt": b"manifest a\n", "b.txt": b"manifest b\n"}
        old_a = b"old a\n"
        offered_a, announced_b = b"the peer's newer a\n", b"announced b, longer\n"
        self.start_server(files)
        self.start_peer("p", PEER_P, offers={"a.txt": (2, sha1(offered_a), len(offered_a))},
                        files={"/a.txt": offered_a})
        self.start_peer("q", PEER_Q, offers={"b.txt": (2, sha1(announced_b), len(announced_b))}, http=False)
        folder = make_app_folder("peers-version-two")
        write(os.path.join(folder, "a.txt"), old_a)
        entries = self.run_updater(folder)

        messages = [message for _, message in entries]
        # The plan is logged before discovery, with the manifest's hash and size.
        self.assertEqual(messages[0], f"({sha1(old_a)} -> {sha1(files['a.txt'])}) (6 B -> 11 B) (a.txt)")
        start = messages.index("Created _update directory.")
        self.assertEqual(messages[start + 1:], [
            f"Peers for (a.txt) ({PEER_P})",
            f"HTTP Getting... http://{PEER_P}:{SHARE_PORT}/a.txt",
            "HTTP Response Status (200 OK) (Valid 19 B)",
            f"Peers for (b.txt) ({PEER_Q})",
            f"HTTP Getting... http://{PEER_Q}:{SHARE_PORT}/b.txt",
            "HTTP Response Status (0 None) (Invalid 0 B)",
            f"HTTP Getting... {self.server_url('b.txt')}",
            "HTTP Response Status (200 OK) (Invalid 11 B)",
            "Failed to download. (b.txt)",
        ])
        self.assertEqual(read(os.path.join(folder, "_update", "a.txt")), offered_a)
        self.assertEqual(read(os.path.join(folder, "a.txt")), old_a)

    def test_signed_release_refuses_the_hostile_peers_file_and_fetches_from_the_server(self):
        # The same hostile answer as above, against a signed release: the expected hash and size
        # stay the publisher's, the peer's bytes fail them and the server's file is installed.
        data, hostile = b"manifest a\n", b"hostile  a\n"
        tools = os.path.join(os.path.dirname(__file__), "..", "..", "tools", "make-manifest")
        write(os.path.join(self.serve, "files", "a.txt"), data)
        key_path = os.path.join(self.serve, "release.key")
        key = subprocess.run([tools, "--make-key", key_path], check=True, stdout=subprocess.PIPE,
                             text=True).stdout.strip()
        subprocess.run([tools, os.path.join(self.serve, "files"), "-o", os.path.join(self.serve, "m.json"),
                        "--url-prefix", "/files", "--key", key_path, "--version", "4"], check=True)
        self.server = Nginx(self.serve, SERVER, namespaces["l"])
        self.addCleanup(self.server.stop)
        self.start_peer("p", PEER_P, offers={"a.txt": (2, sha1(hostile), len(hostile))}, files={"/a.txt": hostile})
        folder = make_app_folder("peers-signed")
        write(os.path.join(folder, "a.txt"), b"old a\n")
        argument = {"domains": [self.server.domain], "pathAndQuery": "/m.json", "httpSharePort": SHARE_PORT,
                    "publicKey": key}
        code, _ = wine.run(os.path.join(folder, "VeyUpdater.exe"), [quote_argument(json.dumps(argument))])
        self.assertEqual(code, 0)

        messages = [message for _, message in read_log_entries(folder)]
        self.assertEqual(messages[7], f"publicKey: {key}")
        self.assertEqual(messages[13], f"({sha1(b'old a' + bytes([10]))} -> {sha1(data)}) (6 B -> 11 B) (a.txt)")
        start = messages.index("Created _update directory.")
        self.assertEqual(messages[start + 1:], [
            f"Peers for (a.txt) ({PEER_P})",
            f"HTTP Getting... http://{PEER_P}:{SHARE_PORT}/a.txt",
            "HTTP Response Status (200 OK) (Invalid 11 B)",
            f"HTTP Getting... {self.server_url('a.txt')}",
            "HTTP Response Status (200 OK) (Valid 11 B)",
            f"Replaced {windows_path(folder)}\\a.txt",
            "Recorded release version 4.",
        ])
        self.assertEqual(read(os.path.join(folder, "a.txt")), data)

    def test_no_datagram_when_the_share_port_is_zero(self):
        files = {"a.txt": b"new a\n"}
        self.start_server(files)
        lan1 = self.start_peer("p", PEER_P, offers={"a.txt": (1,)}, files={"/a.txt": files["a.txt"]})
        lan2 = self.start_peer("r", LISTENER)
        folder = make_app_folder("peers-port-zero")
        entries = self.run_updater(folder, share_port=0)

        messages = [message for _, message in entries]
        self.assertNotIn("Finding peers in local network...", messages)
        self.assertEqual(messages[1:4], ["Created _update directory.", f"HTTP Getting... {self.server_url('a.txt')}",
                                         "HTTP Response Status (200 OK) (Valid 6 B)"])
        self.assertEqual(lan1.datagrams, [])
        self.assertEqual(lan2.datagrams, [])
        self.assertEqual(lan1.paths, [])

    def test_nothing_to_update_sends_nothing(self):
        files = {"a.txt": b"current\n"}
        self.start_server(files)
        lan1 = self.start_peer("p", PEER_P)
        folder = make_app_folder("peers-current")
        write(os.path.join(folder, "a.txt"), b"current\n")
        entries = self.run_updater(folder)

        self.assertEqual([message for _, message in entries], ["Nothing to update!"])
        self.assertEqual(lan1.datagrams, [])

    def test_discovery_without_items_ends_before_any_query(self):
        lan1 = self.start_peer("p", PEER_P)
        lan2 = self.start_peer("r", LISTENER)
        code, output = wine.run(os.path.join(TEST_BIN, "discovery_probe.exe"), [str(SHARE_PORT)])
        self.assertEqual(code, 0)
        elapsed = int(output.split()[1])
        self.assertLess(elapsed, 200)
        self.assertEqual(lan1.datagrams, [])
        self.assertEqual(lan2.datagrams, [])

    def test_progress_pipe_tells_peer_and_server_transfers(self):
        files = {"a.txt": b"new a\n", "b.txt": b"new b\n"}
        self.start_server(files)
        peer = self.start_peer("p", PEER_P, offers={"a.txt": (1,), "b.txt": (1,)},
                               files={"/a.txt": files["a.txt"], "/b.txt": b"wrong\n"})
        folder = make_app_folder("peers-progress")
        launcher = Launcher(self, "peers", "read", start=wine.start)
        argument = {"domains": [self.server.domain], "pathAndQuery": "/m.json", "argOrg": "",
                    "httpSharePort": SHARE_PORT, "progressPipe": launcher.name}
        code, _ = wine.run(os.path.join(folder, "VeyUpdater.exe"), [quote_argument(json.dumps(argument))])
        self.assertEqual(code, 0)
        launcher.finish()

        events = launcher.events()
        peer_host = f"{PEER_P}:{SHARE_PORT}"
        self.assertEqual([event for event in events if event["event"] in ("item", "end")], [
            {"event": "item", "name": "a.txt", "size": 6, "source": "peer", "host": peer_host},
            {"event": "item", "name": "b.txt", "size": 6, "source": "peer", "host": peer_host},
            {"event": "item", "name": "b.txt", "size": 6, "source": "server", "host": self.server.domain},
            {"event": "end", "outcome": "updated", "files": 2, "fetched": 2, "bytes": 12, "dropped": 0},
        ])
        # The wrong file from the peer does not count: the last count is the bytes fetched.
        progress = [event for event in events if event["event"] == "progress"]
        self.assertEqual((progress[-1]["done"], progress[-1]["total"]), (12, 12))
        self.assertEqual(peer.paths, ["/a.txt", "/b.txt"])
        for name, data in files.items():
            self.assertEqual(read(os.path.join(folder, name)), data, name)


if __name__ == "__main__":
    unittest.main()
