"""Updates from a site with compressed objects and patches, served by nginx: each changed file
comes in its smallest form, decoded straight into the staging folder, and an object that fails
falls back to the next form with the reason in the log; the release always ends exact."""
import json
import os
import random
import re
import shutil
import subprocess
import sys
import unittest

from servers import Nginx
from veytest import WORK, make_app_folder, quote_argument, read, read_log, run_windows, size_text, write

TOOLS = os.path.join(os.path.dirname(__file__), "..", "..", "tools")


def text_file(seed, lines=4000, changed=()):
    """Lines that compress well; the lines in `changed` differ, so a patch between two is small."""
    rng = random.Random(seed)
    words = [rng.choice(["alpha", "beta", "gamma", "delta", "omega"]) for _ in range(lines)]
    return "".join(f"{i} {words[i]} {'changed' if i in changed else 'line'} {i * 7919 % 10007}\n"
                   for i in range(lines)).encode()


V1 = {"app.txt": text_file(1), "local.txt": text_file(2), "same.txt": text_file(3), "noise.bin": random.randbytes(5000)}
V2 = {"app.txt": text_file(1, changed={10, 2000}), "local.txt": text_file(2, changed={5}), "same.txt": text_file(3),
      "noise.bin": random.randbytes(5000), "new.txt": text_file(4)}


class SiteObjects(unittest.TestCase):
    key = None  # the publicKey of a signed site

    @classmethod
    def setUpClass(cls):
        cls.work = os.path.join(WORK, "site-objects")
        shutil.rmtree(cls.work, ignore_errors=True)
        for version, files in (("v1", V1), ("v2", V2)):
            for name, data in files.items():
                write(os.path.join(cls.work, version, name), data)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.work, ignore_errors=True)

    def setUp(self):
        self.site = os.path.join(self.work, self.id().rsplit(".", 1)[1])
        shutil.rmtree(self.site, ignore_errors=True)
        subprocess.run([os.path.join(TOOLS, "make-manifest"), os.path.join(self.work, "v2"), "--url-prefix", "/files",
                        "--site", self.site, "--previous", os.path.join(self.work, "v1"), "--level", "3",
                        *self.signing()], check=True)
        with open(os.path.join(self.site, "manifest.json"), encoding="utf-8") as f:
            self.entries = {entry["n"]: entry for entry in json.load(f)["files"]}

    def signing(self):
        return []

    def object_path(self, url):
        return os.path.join(self.site, *url.strip("/").split("/"))

    def update(self, local_change=False, expect_refusal=False):
        nginx = Nginx(self.site)
        self.addCleanup(nginx.stop)
        folder = make_app_folder(self.id().rsplit(".", 1)[1])
        for name, data in V1.items():
            write(os.path.join(folder, name), data)
        if local_change:
            write(os.path.join(folder, "local.txt"), b"edited by the user\n" + V1["local.txt"])
        argument = {"domains": [nginx.domain], "pathAndQuery": "/manifest.json"}
        if self.key:
            argument["publicKey"] = self.key
        code, _ = run_windows(os.path.join(folder, "VeyUpdater.exe"), [quote_argument(json.dumps(argument))])
        self.assertEqual(code, 0)
        if expect_refusal:
            return nginx, read_log(folder)
        for name, data in V2.items():
            self.assertEqual(read(os.path.join(folder, name)), data, name)
        self.assertFalse(os.path.exists(os.path.join(folder, "_update")))
        return nginx, read_log(folder)

    def test_each_changed_file_comes_in_its_smallest_form(self):
        nginx, log = self.update(local_change=True)
        app, local, new, noise = (self.entries[n] for n in ("app.txt", "local.txt", "new.txt", "noise.bin"))
        self.assertEqual(len(app["p"]), 1)
        self.assertNotIn("z", noise)
        wanted = [app["p"][0], local["z"], noise, new["z"]]
        self.assertEqual(nginx.requests(), ["GET /manifest.json HTTP/1.1 200",
                                            f"GET {app['p'][0]['u']} HTTP/1.1 200",
                                            f"GET {local['z']['u']} HTTP/1.1 200",
                                            f"GET {new['z']['u']} HTTP/1.1 200",
                                            "GET /files/noise.bin HTTP/1.1 200"])
        sent = sum(wanted_entry["s"] for wanted_entry in wanted) + os.path.getsize(self.object_path("/manifest.json"))
        self.assertLess(sent, sum(len(V2[n]) for n in ("app.txt", "local.txt", "new.txt")) // 4)
        host = nginx.domain
        self.assertIn(f"Patched app.txt from {host} ({size_text(app['p'][0]['s'])} fetched for "
                      f"{size_text(app['s'])})", log)
        self.assertIn(f"Decompressed local.txt from {host} ({size_text(local['z']['s'])} fetched for "
                      f"{size_text(local['s'])})", log)
        self.assertIn(f"Decompressed new.txt from {host} ({size_text(new['z']['s'])} fetched for "
                      f"{size_text(new['s'])})", log)
        self.assertIn(f"Downloaded noise.bin whole from {host} (4 KB fetched for 4 KB)", log)
        self.assertFalse([line for line in log if line.startswith("Failed")])

    def fault(self, change):
        """Breaks one object with `change`, updates, and gives the nginx requests and the log."""
        change(self.entries["app.txt"])
        nginx, log = self.update()
        return nginx.requests(), log

    def assert_fell_back_to_compressed(self, requests, log, reason):
        app = self.entries["app.txt"]
        self.assertEqual(requests[1:3], [f"GET {app['p'][0]['u']} HTTP/1.1 {requests[1].rsplit(' ', 1)[1]}",
                                         f"GET {app['z']['u']} HTTP/1.1 200"])
        self.assertTrue(any(re.fullmatch(rf"Failed to use the patch of app\.txt from \S+: {reason}\.", line)
                            for line in log), log)
        self.assertTrue(any(line.startswith("Decompressed app.txt from ") for line in log), log)

    def test_a_patch_with_one_byte_changed(self):
        def flip(entry):
            path = self.object_path(entry["p"][0]["u"])
            data = bytearray(read(path))
            data[len(data) // 2] ^= 0x55
            write(path, bytes(data))
        requests, log = self.fault(flip)
        self.assertEqual(requests[1].rsplit(" ", 1)[1], "200")
        self.assert_fell_back_to_compressed(requests, log, ".+")

    def test_a_patch_answered_404(self):
        requests, log = self.fault(lambda entry: os.remove(self.object_path(entry["p"][0]["u"])))
        self.assertEqual(requests[1].rsplit(" ", 1)[1], "404")
        self.assert_fell_back_to_compressed(requests, log, "status 404")

    def test_a_patch_that_decodes_to_the_wrong_digest(self):
        def other_target(entry):
            # A patch of the same base to a file of the same size that is not the release's.
            target = bytearray(V2["app.txt"])
            target[0] ^= 1
            write(os.path.join(self.work, "other.txt"), bytes(target))
            path = self.object_path(entry["p"][0]["u"])
            subprocess.run(["zstd", "-q", "-f", "-3", f"--patch-from={os.path.join(self.work, 'v1', 'app.txt')}",
                            os.path.join(self.work, "other.txt"), "-o", path], check=True, stderr=subprocess.DEVNULL)
            entry["p"][0]["s"] = os.path.getsize(path)
            self.rewrite_manifest()
        requests, log = self.fault(other_target)
        self.assert_fell_back_to_compressed(requests, log, "decoded to another SHA-1")

    def rewrite_manifest(self):
        path = os.path.join(self.site, "manifest.json")
        with open(path, encoding="utf-8") as f:
            manifest = json.load(f)
        manifest["files"] = [self.entries[entry["n"]] for entry in manifest["files"]]
        with open(path, "w", encoding="utf-8") as f:
            json.dump(manifest, f)

    def test_a_truncated_compressed_object_and_other_bytes_of_the_right_length(self):
        def break_both(entry):
            os.remove(self.object_path(entry["p"][0]["u"]))
            path = self.object_path(entry["z"]["u"])
            write(path, read(path)[:-100])
            new = self.object_path(self.entries["new.txt"]["z"]["u"])
            write(new, random.randbytes(os.path.getsize(new)))
        requests, log = self.fault(break_both)
        app, new = self.entries["app.txt"], self.entries["new.txt"]
        self.assertIn(f"GET {app['z']['u']} HTTP/1.1 200", requests)
        self.assertIn("GET /files/app.txt HTTP/1.1 200", requests)
        self.assertIn(f"GET {new['z']['u']} HTTP/1.1 200", requests)
        self.assertIn("GET /files/new.txt HTTP/1.1 200", requests)
        self.assertTrue(any(re.fullmatch(r"Failed to use the compressed object of app\.txt from \S+: .+\.", line)
                            for line in log), log)
        self.assertTrue(any(re.fullmatch(r"Failed to use the compressed object of new\.txt from \S+: .+\.", line)
                            for line in log), log)
        self.assertTrue(any(line.startswith("Downloaded app.txt whole from ") for line in log), log)
        self.assertTrue(any(line.startswith("Downloaded new.txt whole from ") for line in log), log)


class SiteBytes(unittest.TestCase):
    """Files large enough that the heads of the answers weigh little: by nginx's count of the bytes
    it sent, heads included, the update moves at most its smallest forms and the manifest, plus 1 %."""

    def test_bytes_sent_are_those_of_the_smallest_forms(self):
        work = os.path.join(WORK, "site-bytes")
        shutil.rmtree(work, ignore_errors=True)
        self.addCleanup(shutil.rmtree, work, True)
        noise = random.Random(5)
        v1 = {"app.txt": text_file(11, 40000), "local.txt": text_file(12, 40000), "same.txt": text_file(13, 40000),
              "noise.bin": noise.randbytes(200000)}
        v2 = {"app.txt": text_file(11, 40000, changed={10, 20000, 39000}), "local.txt": text_file(12, 40000, {7}),
              "same.txt": v1["same.txt"], "noise.bin": noise.randbytes(200000), "new.txt": text_file(14, 40000)}
        for version, files in (("v1", v1), ("v2", v2)):
            for name, data in files.items():
                write(os.path.join(work, version, name), data)
        site = os.path.join(work, "site")
        subprocess.run([os.path.join(TOOLS, "make-manifest"), os.path.join(work, "v2"), "--url-prefix", "/files",
                        "--site", site, "--previous", os.path.join(work, "v1"), "--level", "3"], check=True)
        with open(os.path.join(site, "manifest.json"), encoding="utf-8") as f:
            entries = {entry["n"]: entry for entry in json.load(f)["files"]}
        nginx = Nginx(site, log_format="$request $status $bytes_sent")
        self.addCleanup(nginx.stop)
        folder = make_app_folder("site-bytes-app")
        for name, data in v1.items():
            write(os.path.join(folder, name), data)
        write(os.path.join(folder, "local.txt"), b"edited by the user\n" + v1["local.txt"])
        argument = {"domains": [nginx.domain], "pathAndQuery": "/manifest.json"}
        code, _ = run_windows(os.path.join(folder, "VeyUpdater.exe"), [quote_argument(json.dumps(argument))])
        self.assertEqual(code, 0)
        for name, data in v2.items():
            self.assertEqual(read(os.path.join(folder, name)), data, name)

        # The smallest form of each changed file: app.txt's patch, the compressed local.txt (edited,
        # so no patch applies) and new.txt, and noise.bin as it is (it does not compress).
        app, local, new = entries["app.txt"], entries["local.txt"], entries["new.txt"]
        self.assertNotIn("z", entries["noise.bin"])
        smallest = (app["p"][0]["s"] + local["z"]["s"] + new["z"]["s"] + len(v2["noise.bin"]) +
                    os.path.getsize(os.path.join(site, "manifest.json")))
        logged = [line.rsplit(" ", 1) for line in nginx.requests()]
        self.assertEqual([request for request, _ in logged], ["GET /manifest.json HTTP/1.1 200",
                                                              f"GET {app['p'][0]['u']} HTTP/1.1 200",
                                                              f"GET {local['z']['u']} HTTP/1.1 200",
                                                              f"GET {new['z']['u']} HTTP/1.1 200",
                                                              "GET /files/noise.bin HTTP/1.1 200"])
        sent = sum(int(count) for _, count in logged)
        changed = sum(len(data) for name, data in v2.items() if name != "same.txt")
        print(f"\nnginx sent {sent} bytes for smallest forms and manifest of {smallest} bytes "
              f"({sent / smallest - 1:+.2%}); the changed files hold {changed}", file=sys.stderr)
        self.assertGreater(sent, smallest)
        self.assertLessEqual(sent, smallest * 1.01)


class SignedSiteObjects(unittest.TestCase):
    """A signed site: an object changed on the server is caught and the plain file used; a changed
    member of the manifest fails the signature."""

    def setUp(self):
        self.case = SiteObjects("test_each_changed_file_comes_in_its_smallest_form")
        SiteObjects.setUpClass()
        self.addCleanup(SiteObjects.tearDownClass)
        key_path = os.path.join(SiteObjects.work, "release.key")
        done = subprocess.run([os.path.join(TOOLS, "make-manifest"), "--make-key", key_path], check=True,
                              stdout=subprocess.PIPE, text=True)
        self.case.key = done.stdout.strip()
        self.case.signing = lambda: ["--key", key_path]
        self.case.setUp()
        self.addCleanup(self.case.doCleanups)

    def test_a_changed_object_is_caught_and_the_plain_file_used(self):
        app = self.case.entries["app.txt"]
        for url in (app["p"][0]["u"], app["z"]["u"]):
            path = self.case.object_path(url)
            data = bytearray(read(path))
            data[len(data) // 2] ^= 0x55
            write(path, bytes(data))
        nginx, log = self.case.update()
        self.assertIn(f"GET {app['p'][0]['u']} HTTP/1.1 200", nginx.requests())
        self.assertIn(f"GET {app['z']['u']} HTTP/1.1 200", nginx.requests())
        self.assertIn("GET /files/app.txt HTTP/1.1 200", nginx.requests())
        self.assertTrue(any(line.startswith("Failed to use the patch of app.txt from ") for line in log), log)
        self.assertTrue(any(line.startswith("Failed to use the compressed object of app.txt from ") for line in log))
        self.assertIn(f"Downloaded app.txt whole from {nginx.domain} (79 KB fetched for 79 KB)", log)

    def test_a_changed_manifest_member_fails_the_signature(self):
        self.case.entries["new.txt"]["z"]["s"] += 1
        self.case.rewrite_manifest()
        nginx, log = self.case.update(expect_refusal=True)
        self.assertIn(f"Refused the manifest of {nginx.domain}: its signature does not match the manifest and the "
                      "publicKey.", log)
        self.assertFalse(any(line.startswith("Replaced") for line in log), log)


if __name__ == "__main__":
    unittest.main()
