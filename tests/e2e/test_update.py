"""Whole updates against update servers: nginx over a release folder, and scripted servers that lie."""
import json
import os
import shutil
import subprocess
import unittest

from servers import Nginx, ScriptedServer
from veytest import WORK, make_app_folder, quote_argument, read, read_log, run_windows, sha1, windows_path, write

TOOLS = os.path.join(os.path.dirname(__file__), "..", "..", "tools")


def size_text(n):
    if n < 1024:
        return f"{n} B"
    if n < 1048576:
        return f"{n // 1024} KB"
    t = n * 10 // 1048576
    return f"{t // 10}.{t % 10} MB"


def make_manifest(release, output, *options):
    subprocess.run([os.path.join(TOOLS, "make-manifest"), release, "-o", output, *options], check=True)
    with open(output, encoding="utf-8") as f:
        return json.load(f)


class UpdateFromNginx(unittest.TestCase):
    def setUp(self):
        self.serve = os.path.join(WORK, "update-serve")
        shutil.rmtree(self.serve, ignore_errors=True)
        self.release = os.path.join(self.serve, "files")
        self.new_files = {
            "app.dll": b"new library " * 1000,
            "same.txt": b"unchanged\n",
            "b \u00e9.txt": b"blank and accent\n",
            "new/deep/c.bin": bytes(range(256)) * 64,
        }
        for name, data in self.new_files.items():
            write(os.path.join(self.release, name), data)
        self.manifest = make_manifest(self.release, os.path.join(self.serve, "m.json"), "--url-prefix", "/files")
        self.nginx = Nginx(self.serve)

    def tearDown(self):
        self.nginx.stop()

    def run_update(self, folder):
        argument = quote_argument(json.dumps({"domains": [self.nginx.domain], "pathAndQuery": "/m.json"}))
        code, _ = run_windows(os.path.join(folder, "VeyUpdater.exe"), [argument])
        self.assertEqual(code, 0)
        # After the banner, the configuration and the manifest's "Getting" and status lines.
        return read_log(folder)[9:]

    def test_full_update_with_new_folders_and_encoded_names(self):
        folder = make_app_folder("update-full")
        write(os.path.join(folder, "app.dll"), b"old library")
        write(os.path.join(folder, "same.txt"), b"unchanged\n")
        changed = [f for f in self.manifest["files"] if f["n"] != "same.txt"]
        plan = []
        for f in changed:
            local = os.path.join(folder, f["n"])
            if os.path.exists(local):
                old = read(local)
                plan.append(f"({sha1(old)} -> {f['h']}) ({size_text(len(old))} -> {size_text(f['s'])}) ({f['n'].replace('/', chr(92))})")
            else:
                plan.append(f"({'_' * 40} -> {f['h']}) (0 B -> {size_text(f['s'])}) ({f['n'].replace('/', chr(92))})")
        messages = self.run_update(folder)

        self.assertTrue(messages[0].startswith("HTTP Response Content\r\n{"), messages[0])
        self.assertEqual(messages[1:1 + len(changed)], plan)
        rest = messages[1 + len(changed):]
        self.assertEqual(rest[0], "Created _update directory.")
        encoded = {"app.dll": "app.dll", "b \u00e9.txt": "b%20%C3%A9.txt", "new/deep/c.bin": "new/deep/c.bin"}
        downloads = []
        for f in changed:
            downloads += [f"HTTP Getting... http://{self.nginx.domain}/files/{encoded[f['n']]}",
                          f"HTTP Response Status (200 OK) (Valid {size_text(f['s'])})"]
        self.assertEqual(rest[1:1 + len(downloads)], downloads)
        base = windows_path(folder) + "\\"
        self.assertEqual(rest[1 + len(downloads):], [f"Replaced {base}{f['n'].replace('/', chr(92))}" for f in changed])

        for name, data in self.new_files.items():
            self.assertEqual(read(os.path.join(folder, name)), data, name)
        self.assertFalse(os.path.exists(os.path.join(folder, "_update")))
        requests = self.nginx.requests()
        self.assertEqual(requests[0], "GET /m.json HTTP/1.1 200")
        self.assertEqual(sorted(requests[1:]), sorted(f"GET /files/{encoded[f['n']]} HTTP/1.1 200" for f in changed))

    def test_nothing_to_update(self):
        folder = make_app_folder("update-current")
        for name, data in self.new_files.items():
            write(os.path.join(folder, name), data)
        messages = self.run_update(folder)
        self.assertEqual(messages[1:], ["Nothing to update!"])
        self.assertEqual(self.nginx.requests(), ["GET /m.json HTTP/1.1 200"])

    def test_read_only_file_is_replaced(self):
        # Wine shows a file without write permission as read-only: it is replaced all the same.
        folder = make_app_folder("update-read-only")
        for name, data in self.new_files.items():
            write(os.path.join(folder, name), data)
        old = os.path.join(folder, "app.dll")
        write(old, b"old library")
        os.chmod(old, 0o444)
        messages = self.run_update(folder)
        self.assertEqual(messages[-1], f"Replaced {windows_path(folder)}\\app.dll")
        self.assertFalse(any(m.startswith("Failed to replace.") for m in messages), messages)
        self.assertEqual(read(old), self.new_files["app.dll"])
        self.assertFalse(os.path.exists(os.path.join(folder, "_update")))

    def test_rerun_passes_files_already_staged(self):
        folder = make_app_folder("update-resume")
        for name, data in self.new_files.items():
            if name != "same.txt":
                write(os.path.join(folder, "_update", name), data)
        write(os.path.join(folder, "same.txt"), b"unchanged\n")
        messages = self.run_update(folder)
        self.assertIn("Failed to create _update directory. (0x000000B7)", messages)
        passes = [m for m in messages if m.startswith("Pass. ")]
        self.assertEqual(sorted(passes), sorted(f"Pass. {n.replace('/', chr(92))}" for n in self.new_files if n != "same.txt"))
        self.assertFalse(any(m.startswith("HTTP Getting") for m in messages))
        self.assertFalse(any(m.startswith("Failed to download") for m in messages))
        self.assertEqual(self.nginx.requests(), ["GET /m.json HTTP/1.1 200"])
        for name, data in self.new_files.items():
            self.assertEqual(read(os.path.join(folder, name)), data, name)


def response(status, body, length=None):
    head = f"HTTP/1.1 {status}\r\nConnection: close\r\n"
    if length is not None:
        head += f"Content-Length: {length}\r\n"
    return head.encode() + b"\r\n" + body


class InvalidDownloads(unittest.TestCase):
    """A server that serves the manifest but a bad file: the download fails and nothing is replaced."""

    GOOD = b"the right content\n"

    def run_case(self, name, answer_file):
        manifest = json.dumps({"files": [{"n": "dir/f.txt", "h": sha1(self.GOOD), "s": len(self.GOOD)}]}).encode()

        def answer(head):
            if head.startswith(b"GET /m.json "):
                return response("200 OK", manifest, len(manifest))
            return answer_file(head)

        server = ScriptedServer(answer)
        self.addCleanup(server.stop)
        folder = make_app_folder(name)
        write(os.path.join(folder, "dir", "f.txt"), b"old")
        argument = quote_argument(json.dumps({"domains": [server.domain], "pathAndQuery": "/m.json"}))
        code, _ = run_windows(os.path.join(folder, "VeyUpdater.exe"), [argument])
        self.assertEqual(code, 0)
        messages = read_log(folder)[10:]
        self.assertEqual(messages[:2], [f"({sha1(b'old')} -> {sha1(self.GOOD)}) (3 B -> 18 B) (dir\\f.txt)",
                                        "Created _update directory."])
        self.assertEqual(messages[2], f"HTTP Getting... http://{server.domain}//dir/f.txt")
        self.assertEqual(messages[4:], ["Failed to download. (dir\\f.txt)"])
        # Nothing reaches the destination; the staging folder is kept for the next run.
        self.assertEqual(read(os.path.join(folder, "dir", "f.txt")), b"old")
        self.assertTrue(os.path.isdir(os.path.join(folder, "_update")))
        self.assertEqual(server.paths(), ["/m.json", "//dir/f.txt"])
        return messages[3], os.path.join(folder, "_update", "dir", "f.txt")

    def test_missing_content_length(self):
        status, staged = self.run_case("invalid-no-length", lambda head: response("200 OK", self.GOOD))
        # Without a length the response never completes: no status, and the attempt is deleted.
        self.assertEqual(status, "HTTP Response Status (0 None) (Invalid 0 B)")
        self.assertFalse(os.path.exists(staged))

    def test_wrong_hash(self):
        bad = b"the wrong content\n"
        status, staged = self.run_case("invalid-hash", lambda head: response("200 OK", bad, len(bad)))
        self.assertEqual(status, "HTTP Response Status (200 OK) (Invalid 18 B)")
        self.assertEqual(read(staged), bad)

    def test_wrong_size(self):
        longer = self.GOOD + b"!"
        status, staged = self.run_case("invalid-size", lambda head: response("200 OK", longer, len(longer)))
        self.assertEqual(status, "HTTP Response Status (200 OK) (Invalid 19 B)")

    def test_not_found_deletes_the_attempt(self):
        status, staged = self.run_case("invalid-404", lambda head: response("404 Not Found", b"no", 2))
        self.assertEqual(status, "HTTP Response Status (404 NotFound) (Invalid 2 B)")
        self.assertFalse(os.path.exists(staged))


class DroppedServer(unittest.TestCase):
    def test_failing_server_is_not_asked_again(self):
        # Two items; the only server fails the first, so the second has no server left to try.
        data = b"x"
        manifest = json.dumps({"files": [{"n": "a", "h": sha1(data), "s": 1}, {"n": "b", "h": sha1(data), "s": 1}]}).encode()
        server = ScriptedServer(lambda head: response("200 OK", manifest, len(manifest)) if b"/m.json" in head
                                else response("404 Not Found", b"", 0))
        self.addCleanup(server.stop)
        folder = make_app_folder("dropped-server")
        argument = quote_argument(json.dumps({"domains": [server.domain, "127.0.0.1:1"], "pathAndQuery": "/m.json"}))
        run_windows(os.path.join(folder, "VeyUpdater.exe"), [argument])
        messages = read_log(folder)
        self.assertEqual(messages[-1], "Failed to download. (a)")
        gets = [m for m in messages if m.startswith("HTTP Getting... ") and not m.endswith("/m.json")]
        # Each server is tried once for the first item; both failed and were dropped.
        self.assertEqual(sorted(gets), sorted([f"HTTP Getting... http://{server.domain}//a", "HTTP Getting... http://127.0.0.1:1//a"]))


if __name__ == "__main__":
    unittest.main()


class ManifestProcessing(unittest.TestCase):
    """What the program plans from a manifest, before any download."""

    def run_manifest(self, name, manifest, files=()):
        body = json.dumps(manifest).encode()
        server = ScriptedServer(lambda head: response("200 OK", body, len(body)) if b"/m.json" in head
                                else response("404 Not Found", b"", 0))
        self.addCleanup(server.stop)
        folder = make_app_folder(name)
        for path, data in files:
            write(os.path.join(folder, path), data)
        argument = quote_argument(json.dumps({"domains": [server.domain], "pathAndQuery": "/m.json"}))
        code, _ = run_windows(os.path.join(folder, "VeyUpdater.exe"), [argument])
        self.assertEqual(code, 0)
        messages = read_log(folder)
        self.assertTrue(messages[9].startswith("HTTP Response Content\r\n"), messages[9])
        return messages[10:], server

    def test_empty_manifest_ends_silently(self):
        messages, server = self.run_manifest("manifest-empty", {})
        self.assertEqual(messages, [])
        self.assertEqual(server.paths(), ["/m.json"])

    def test_lower_case_hash_and_forward_slash_name_count_as_current(self):
        data = b"library"
        messages, server = self.run_manifest("manifest-current", {"files": [
            {"n": "bin/a.dll", "h": sha1(data).lower(), "s": len(data)}]}, [("bin/a.dll", data)])
        self.assertEqual(messages, ["Nothing to update!"])

    def test_matching_hash_with_another_size_is_recorded(self):
        data = b"abc"
        messages, server = self.run_manifest("manifest-size", {"files": [
            {"n": "a.txt", "h": sha1(data), "s": 4}]}, [("a.txt", data)])
        self.assertEqual(messages[0], f"({sha1(data)} -> {sha1(data)}) (3 B -> 4 B) (a.txt)")

    def test_malformed_entries_are_skipped(self):
        messages, server = self.run_manifest("manifest-malformed", {"files": [
            5, "text", {"n": "x", "h": "00"}, {"n": "y", "h": "00", "s": "3"}, {"n": 1, "h": "00", "s": 3},
            {"n": "z", "h": "00", "s": 3}]})
        self.assertEqual(messages[0], f"({'_' * 40} -> 00) (0 B -> 3 B) (z)")
        self.assertEqual(messages[1], "Created _update directory.")
        # With the port at 0 no peer is asked: the servers are tried straight away.
        self.assertEqual(messages[2], f"HTTP Getting... http://{server.domain}//z")
        self.assertNotIn("Finding peers in local network...", messages)
