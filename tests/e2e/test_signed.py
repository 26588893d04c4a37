"""Signed releases ("publicKey" given): a signed manifest updates like an unsigned one, and a manifest
whose signature, expiry or version does not hold, an item without its SHA-256 and names that lead
outside the program folder are refused with a log line naming the server or the name."""
import json
import os
import shutil
import subprocess
import time
import unittest

from cryptography.hazmat.primitives import serialization

from servers import Nginx, ScriptedServer
from veytest import (WORK, make_app_folder, quote_argument, read, read_log, read_log_entries, run_windows,
                     windows_path, write)

TOOLS = os.path.join(os.path.dirname(__file__), "..", "..", "tools")
MAKE_MANIFEST = os.path.join(TOOLS, "make-manifest")


def make_key(path):
    if os.path.exists(path):
        os.remove(path)
    done = subprocess.run([MAKE_MANIFEST, "--make-key", path], check=True, stdout=subprocess.PIPE, text=True)
    return done.stdout.strip()


def sign(key_path, data):
    with open(key_path, "rb") as f:
        key = serialization.load_pem_private_key(f.read(), password=None)
    return key.sign(data).hex().upper() + "\n"


class SignedRelease(unittest.TestCase):
    def setUp(self):
        self.serve = os.path.join(WORK, "signed-serve")
        shutil.rmtree(self.serve, ignore_errors=True)
        self.release = os.path.join(self.serve, "files")
        self.new_files = {"app.dll": b"new library " * 1000, "same.txt": b"unchanged\n",
                          "new/deep/c.bin": bytes(range(256)) * 64}
        for name, data in self.new_files.items():
            write(os.path.join(self.release, name), data)
        self.key_path = os.path.join(self.serve, "release.key")
        self.key = make_key(self.key_path)
        self.nginx = Nginx(self.serve)

    def tearDown(self):
        self.nginx.stop()

    def make_manifest(self, name, *options, key_path=None):
        output = os.path.join(self.serve, name)
        subprocess.run([MAKE_MANIFEST, self.release, "-o", output, "--url-prefix", "/files",
                        "--key", key_path or self.key_path, *options], check=True)
        with open(output, encoding="utf-8") as f:
            return json.load(f)

    def run_update(self, folder, path="/m.json", key=None):
        argument = {"domains": [self.nginx.domain], "pathAndQuery": path, "publicKey": key or self.key}
        code, _ = run_windows(os.path.join(folder, "VeyUpdater.exe"), [quote_argument(json.dumps(argument))])
        self.assertEqual(code, 0)
        return read_log(folder)

    def old_installation(self, name):
        folder = make_app_folder(name)
        write(os.path.join(folder, "app.dll"), b"old library")
        write(os.path.join(folder, "same.txt"), b"unchanged\n")
        return folder

    def test_signed_release_updates_like_an_unsigned_one(self):
        manifest = self.make_manifest("m.json", "--version", "5")
        folder = self.old_installation("signed-update")
        messages = self.run_update(folder)

        self.assertEqual(messages[7], f"publicKey: {self.key}")
        self.assertEqual(messages[8:12], [f"HTTP Getting... http://{self.nginx.domain}/m.json",
                                          "HTTP Response Status (200 OK)",
                                          f"HTTP Getting... http://{self.nginx.domain}/m.json.sig",
                                          "HTTP Response Status (200 OK)"])
        self.assertTrue(messages[12].startswith("HTTP Response Content\r\n{"), messages[12])
        base = windows_path(folder) + "\\"
        self.assertEqual([m for m in messages if m.startswith("Replaced ")],
                         [f"Replaced {base}app.dll", f"Replaced {base}new\\deep\\c.bin"])
        self.assertEqual(len([m for m in messages if m.endswith("(Valid 11 KB)") or m.endswith("(Valid 16 KB)")]), 2)
        self.assertEqual(messages[-1], "Recorded release version 5.")
        for name, data in self.new_files.items():
            self.assertEqual(read(os.path.join(folder, name)), data, name)
        self.assertEqual(read(os.path.join(folder, "VeyUpdater.release")), b"5\r\n")
        self.assertFalse(os.path.exists(os.path.join(folder, "VeyUpdater.release.tmp")))
        requests = self.nginx.requests()
        self.assertEqual(requests[:2], ["GET /m.json HTTP/1.1 200", "GET /m.json.sig HTTP/1.1 200"])
        self.assertEqual(sorted(requests[2:]), ["GET /files/app.dll HTTP/1.1 200",
                                                "GET /files/new/deep/c.bin HTTP/1.1 200"])
        self.assertEqual(manifest["version"], 5)

        # The same release again is accepted: every start re-checks it.
        messages = self.run_update(folder)
        self.assertIn("Nothing to update!", messages)

    def assert_refused(self, name, reason, path="/m.json", key=None, prepare=None, status=200):
        folder = self.old_installation(name)
        if prepare:
            prepare(folder)
        before = sorted(os.listdir(folder))
        asked = len(self.nginx.requests())
        messages = self.run_update(folder, path, key)
        self.assertIn(f"Refused the manifest of {self.nginx.domain}: {reason}", messages)
        self.assertFalse(any(m.startswith("Replaced") or m.startswith("Created _update") for m in messages), messages)
        self.assertEqual(read(os.path.join(folder, "app.dll")), b"old library")
        self.assertEqual(sorted(os.listdir(folder)), sorted(before + ["_logs"]))
        self.assertEqual(self.nginx.requests()[asked:], ["GET /m.json HTTP/1.1 200", f"GET /m.json.sig HTTP/1.1 {status}"])
        return messages

    def test_signature_changed_by_one_byte(self):
        self.make_manifest("m.json")
        path = os.path.join(self.serve, "m.json.sig")
        text = read(path)
        write(path, (b"0" if text[:1] != b"0" else b"1") + text[1:])
        self.assert_refused("signed-bad-signature", "its signature does not match the manifest and the publicKey.")

    def test_manifest_changed_by_one_byte(self):
        self.make_manifest("m.json")
        path = os.path.join(self.serve, "m.json")
        data = read(path)
        at = data.index(b'"s": ') + 5
        write(path, data[:at] + (b"2" if data[at:at + 1] != b"2" else b"3") + data[at + 1:])
        self.assert_refused("signed-bad-manifest", "its signature does not match the manifest and the publicKey.")

    def test_signature_by_another_key(self):
        other = os.path.join(self.serve, "other.key")
        make_key(other)
        self.make_manifest("m.json", key_path=other)
        self.assert_refused("signed-other-key", "its signature does not match the manifest and the publicKey.")

    def test_missing_and_malformed_signature(self):
        self.make_manifest("m.json")
        os.remove(os.path.join(self.serve, "m.json.sig"))
        messages = self.assert_refused("signed-no-signature", "its signature could not be fetched.", status=404)
        self.assertIn("HTTP Response Status (404 NotFound)", messages)
        write(os.path.join(self.serve, "m.json.sig"), b"  " + b"AB" * 63 + b"\n")
        self.assert_refused("signed-short-signature", "its signature is not 128 hexadecimal digits.")

    def test_signature_path_before_the_query(self):
        self.make_manifest("m.json")
        folder = self.old_installation("signed-query")
        messages = self.run_update(folder, "/m.json?channel=beta")
        self.assertIn(f"HTTP Getting... http://{self.nginx.domain}/m.json.sig?channel=beta", messages)
        self.assertEqual(read(os.path.join(folder, "app.dll")), self.new_files["app.dll"])

    def test_expired_manifest(self):
        self.make_manifest("m.json", "--expires", "2020-01-01T00:00:00Z")
        self.assert_refused("signed-expired", "it expired at 2020-01-01T00:00:00Z.")

    def test_missing_version_and_expiry(self):
        for member, reason in (("version", 'no "version" that is a positive integer.'),
                               ("expires", 'no "expires" of the form YYYY-MM-DDTHH:MM:SSZ.')):
            manifest = self.make_manifest("m.json")
            del manifest[member]
            data = json.dumps(manifest).encode()
            write(os.path.join(self.serve, "m.json"), data)
            write(os.path.join(self.serve, "m.json.sig"), sign(self.key_path, data).encode())
            self.assert_refused("signed-no-" + member, reason)

    def test_older_version_after_newer_applied(self):
        self.make_manifest("m.json", "--version", "7")
        newer = self.old_installation("signed-rollback-source")
        self.run_update(newer)
        state = read(os.path.join(newer, "VeyUpdater.release"))
        self.assertEqual(state, b"7\r\n")
        self.make_manifest("m.json", "--version", "6")
        self.assert_refused("signed-rollback", "its version 6 is older than version 7, applied here.",
                            prepare=lambda folder: write(os.path.join(folder, "VeyUpdater.release"), state))

    def test_unusable_key_stops_before_any_request(self):
        self.make_manifest("m.json")
        for key in ("00" * 32, "XY" * 32, self.key[:-1], "01" + "00" * 31):
            folder = self.old_installation("signed-unusable-key")
            messages = self.run_update(folder, key=key)
            self.assertEqual(messages[7], "Unusable publicKey, the update does not run: not 64 hexadecimal "
                                          f"digits of a usable Ed25519 key. ({key})")
            self.assertEqual(len(messages), 8, messages)
        self.assertEqual(self.nginx.requests(), [])

    def test_item_without_sha256_is_refused_and_the_rest_applied(self):
        manifest = self.make_manifest("m.json")
        for f in manifest["files"]:
            if f["n"] == "app.dll":
                del f["sha256"]
            if f["n"] == "new/deep/c.bin":
                f["sha256"] = f["sha256"].lower()
        data = json.dumps(manifest).encode()
        write(os.path.join(self.serve, "m.json"), data)
        write(os.path.join(self.serve, "m.json.sig"), sign(self.key_path, data).encode())
        folder = self.old_installation("signed-no-sha256")
        messages = self.run_update(folder)
        self.assertIn('Refused to update app.dll: no "sha256" of 64 hexadecimal digits.', messages)
        self.assertEqual(read(os.path.join(folder, "app.dll")), b"old library")
        self.assertEqual(read(os.path.join(folder, "new", "deep", "c.bin")), self.new_files["new/deep/c.bin"])
        # A release applied in part is not recorded.
        self.assertFalse(os.path.exists(os.path.join(folder, "VeyUpdater.release")))

    def test_file_with_the_right_sha1_but_another_sha256_is_invalid(self):
        manifest = self.make_manifest("m.json")
        for f in manifest["files"]:
            if f["n"] == "app.dll":
                f["sha256"] = "AB" * 32
        data = json.dumps(manifest).encode()
        write(os.path.join(self.serve, "m.json"), data)
        write(os.path.join(self.serve, "m.json.sig"), sign(self.key_path, data).encode())
        folder = self.old_installation("signed-wrong-sha256")
        # A staged copy that would pass by SHA-1 and size is fetched again, and fails again.
        write(os.path.join(folder, "_update", "app.dll"), self.new_files["app.dll"])
        messages = self.run_update(folder)
        self.assertNotIn("Pass. app.dll", messages)
        self.assertIn("HTTP Response Status (200 OK) (Invalid 11 KB)", messages)
        self.assertIn("Failed to download. (app.dll)", messages)
        self.assertEqual(read(os.path.join(folder, "app.dll")), b"old library")

    def test_hostile_names_touch_nothing_outside(self):
        hostile = ["..\\outside.txt", "C:\\x.txt", "a.txt:s", "CON"]
        good = b"good file\n"
        write(os.path.join(self.release, "good.txt"), good)
        manifest = self.make_manifest("m.json", "--version", "3")
        for name in hostile:
            manifest["files"].append(dict(manifest["files"][0], n=name))
        manifest["delete"] = hostile + ["old.txt"]
        manifest["exe"] = "..\\outside.exe"
        data = json.dumps(manifest).encode()
        write(os.path.join(self.serve, "m.json"), data)
        write(os.path.join(self.serve, "m.json.sig"), sign(self.key_path, data).encode())

        parent = os.path.join(WORK, "signed-hostile-parent")
        shutil.rmtree(parent, ignore_errors=True)
        folder = make_app_folder(os.path.join("signed-hostile-parent", "app"))
        write(os.path.join(parent, "outside.txt"), b"keep")
        write(os.path.join(folder, "old.txt"), b"old")
        drive_c = os.path.join(os.environ.get("VEY_WINEPREFIX", ""), "drive_c", "x.txt")
        messages = self.run_update(folder)

        for name in hostile:
            reason = ": the name leads outside the program folder."
            self.assertIn(f"Refused to update {name}{reason}", messages)
            self.assertIn(f"Refused to delete {name}{reason}", messages)
        self.assertIn("Refused to start ..\\outside.exe: the name leads outside the program folder.", messages)
        self.assertFalse(any(m.startswith("Created a process") or m.startswith("Failed to create a process")
                             for m in messages))
        self.assertEqual(read(os.path.join(parent, "outside.txt")), b"keep")
        self.assertEqual(sorted(os.listdir(parent)), ["app", "outside.txt"])
        self.assertFalse(os.path.exists(drive_c))
        self.assertFalse(os.path.exists(os.path.join(folder, "a.txt")))
        self.assertFalse(os.path.exists(os.path.join(folder, "old.txt")))
        self.assertEqual(read(os.path.join(folder, "good.txt")), good)
        self.assertEqual(read(os.path.join(folder, "app.dll")), self.new_files["app.dll"])
        self.assertFalse(any("outside" in r or "x.txt" in r or "CON" in r or "a.txt" in r
                             for r in self.nginx.requests()), self.nginx.requests())


if __name__ == "__main__":
    unittest.main()


def response(status, body, length=None, extra=""):
    head = f"HTTP/1.1 {status}\r\nConnection: close\r\n{extra}"
    head += f"Content-Length: {len(body) if length is None else length}\r\n"
    return head.encode() + b"\r\n" + body


class SignedBounds(unittest.TestCase):
    """Two servers with the same signed release; the first one asked for a file (or for the manifest)
    misbehaves, the other serves it. Each misbehaviour fails within the signed bounds and the other
    server is tried."""

    def setUp(self):
        self.serve = os.path.join(WORK, "signed-bounds-serve")
        shutil.rmtree(self.serve, ignore_errors=True)
        self.release = os.path.join(self.serve, "files")
        self.data = b"new library " * 1000
        write(os.path.join(self.release, "app.dll"), self.data)
        self.key_path = os.path.join(self.serve, "release.key")
        self.key = make_key(self.key_path)
        manifest = os.path.join(self.serve, "m.json")
        subprocess.run([MAKE_MANIFEST, self.release, "-o", manifest, "--url-prefix", "/files",
                        "--key", self.key_path], check=True)
        self.files = {"/m.json": read(manifest), "/m.json.sig": read(manifest + ".sig"), "/files/app.dll": self.data}
        self.hostile = None
        self.servers = []

    def tearDown(self):
        for server in self.servers:
            server.stop()

    def start(self, hostile_path, misbehave):
        """Two servers; the first asked for hostile_path answers it with misbehave(server, head)."""
        def serve(index):
            def answer(head):
                path = head.split(b" ")[1].decode()
                if path.startswith(hostile_path):
                    if self.hostile is None:
                        self.hostile = index
                    if self.hostile == index:
                        return misbehave(self.servers[index], head)
                if path in self.files:
                    return response("200 OK", self.files[path])
                return response("404 Not Found", b"")
            return answer
        self.servers = [ScriptedServer(serve(0)), ScriptedServer(serve(1))]

    def run_update(self, name):
        folder = make_app_folder(name)
        write(os.path.join(folder, "app.dll"), b"old library")
        argument = {"domains": [s.domain for s in self.servers], "pathAndQuery": "/m.json", "publicKey": self.key}
        code, _ = run_windows(os.path.join(folder, "VeyUpdater.exe"), [quote_argument(json.dumps(argument))])
        self.assertEqual(code, 0)
        self.assertEqual(read(os.path.join(folder, "app.dll")), self.data)
        self.assertIsNotNone(self.hostile)
        return folder, read_log(folder)

    def hostile_and_good(self):
        return self.servers[self.hostile], self.servers[1 - self.hostile]

    def test_endless_self_redirect_fails_after_ten(self):
        self.start("/files/app.dll", lambda server, head: response(
            "302 Found", b"", extra=f"Location: http://{server.domain}/files/app.dll?again=1\r\n"))
        folder, messages = self.run_update("signed-redirect")
        hostile, good = self.hostile_and_good()
        self.assertEqual(len([p for p in hostile.paths() if p.startswith("/files/app.dll")]), 11)
        self.assertIn(f"HTTP Getting... http://{hostile.domain}/files/app.dll", messages)
        self.assertIn("HTTP Response Status (0 None) (Invalid 0 B)", messages)
        self.assertEqual(good.paths()[-1], "/files/app.dll")

    def test_body_larger_than_the_item_is_refused_at_the_head(self):
        self.start("/files/app.dll", lambda server, head: response("200 OK", self.data + b"!"))
        folder, messages = self.run_update("signed-oversized")
        hostile, good = self.hostile_and_good()
        at = messages.index(f"HTTP Getting... http://{hostile.domain}/files/app.dll")
        # Nothing of the body was taken: the head alone refused it.
        self.assertEqual(messages[at + 1], "HTTP Response Status (0 None) (Invalid 0 B)")
        self.assertEqual(messages[at + 2], f"HTTP Getting... http://{good.domain}/files/app.dll")
        self.assertEqual(messages[at + 3], "HTTP Response Status (200 OK) (Valid 11 KB)")

    def test_manifest_over_64_mib_is_refused_at_the_head(self):
        self.start("/m.json", lambda server, head: [response("200 OK", b"", length=(64 << 20) + 1)])
        folder, messages = self.run_update("signed-big-manifest")
        hostile, good = self.hostile_and_good()
        at = messages.index(f"HTTP Getting... http://{hostile.domain}/m.json")
        self.assertEqual(messages[at + 1], "HTTP Response Status (0 None)")
        self.assertEqual(messages[at + 2], f"HTTP Getting... http://{good.domain}/m.json")

    def test_a_byte_every_900_ms_fails_within_a_minute_and_a_bit(self):
        def drip(server, head):
            yield response("200 OK", b"", length=len(self.data))
            for byte in self.data:
                time.sleep(0.9)
                yield bytes([byte])
        self.start("/files/app.dll", drip)
        folder, messages = self.run_update("signed-slow")
        hostile, good = self.hostile_and_good()
        entries = read_log_entries(folder)
        getting = [t for t, m in entries if m == f"HTTP Getting... http://{hostile.domain}/files/app.dll"]
        failed = [t for t, m in entries if m == "HTTP Response Status (0 None) (Invalid 0 B)"
                  or (m.startswith("HTTP Response Status (0 None) (Invalid ") and m.endswith(" B)"))]
        self.assertEqual(len(getting), 1)
        self.assertEqual(len(failed), 1)
        # The minute's check ends it about 60 s in (a piece that comes later than the receive
        # time-out of 1 s, on a loaded machine, ends it sooner); without the bound it would take hours.
        self.assertLess(failed[0] - getting[0], 75)
        self.assertIn(f"HTTP Getting... http://{good.domain}/files/app.dll", messages)
