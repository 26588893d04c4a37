"""tools/make-manifest --site over small releases made here: the site's manifest, its plain files,
and objects that zstd decodes (alone, or from the earlier file for a patch) to the release's bytes."""
import hashlib
import json
import os
import random
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
TOOL = os.path.join(ROOT, "tools", "make-manifest")


def sha1(data):
    return hashlib.sha1(data).hexdigest().upper()


def noise(seed, size):
    return random.Random(seed).randbytes(size)


class MakeSite(unittest.TestCase):
    def setUp(self):
        self.work = tempfile.mkdtemp(prefix="vey-site-")
        self.addCleanup(shutil.rmtree, self.work)

    def release(self, name, files):
        folder = os.path.join(self.work, name)
        for relative, data in files.items():
            path = os.path.join(folder, *relative.split("/"))
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "wb") as f:
                f.write(data)
        return folder

    def make(self, *args, fails=False):
        done = subprocess.run([sys.executable, TOOL, *args], capture_output=True, text=True, timeout=300)
        if fails:
            self.assertNotEqual(done.returncode, 0, done.stdout)
            return done.stderr
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout

    def site(self, *args):
        site = os.path.join(self.work, "site")
        self.make(*args, "--site", site)
        with open(os.path.join(site, "manifest.json"), "rb") as f:
            return site, json.loads(f.read().decode("utf-8"))

    def read(self, site, url):
        with open(os.path.join(site, *url.strip("/").split("/")), "rb") as f:
            return f.read()

    def decode(self, site, url, base=None):
        command = ["zstd", "-d", "-q", "-c", "--long=31"]
        if base:
            command.append(f"--patch-from={base}")
        return subprocess.run(command + [os.path.join(site, *url.strip("/").split("/"))],
                              capture_output=True, check=True).stdout

    def test_every_file_plain_and_compressed_when_smaller(self):
        text = b"the same line of a text file\n" * 4000
        random_bytes = noise(1, 50000)
        release = self.release("v2", {"docs/read me.txt": text, "bin/random.bin": random_bytes, "tiny": b"x"})
        site, manifest = self.site(release, "--url-prefix", "/files")
        self.assertEqual(manifest["format"], 2)
        self.assertEqual(manifest["urlPrefix"], "/files")
        entries = {entry["n"]: entry for entry in manifest["files"]}
        self.assertEqual(sorted(entries), ["bin/random.bin", "docs/read me.txt", "tiny"])
        for name, data in (("docs/read me.txt", text), ("bin/random.bin", random_bytes), ("tiny", b"x")):
            self.assertEqual(self.read(site, "/files/" + name), data)
            self.assertEqual((entries[name]["h"], entries[name]["s"]), (sha1(data), len(data)))
            self.assertNotIn("p", entries[name])
        compressed = entries["docs/read me.txt"]["z"]
        self.assertEqual(compressed["u"], f"/objects/{sha1(text)}.zst")
        self.assertEqual(compressed["s"], len(self.read(site, compressed["u"])))
        self.assertLess(compressed["s"], len(text) // 100)
        self.assertEqual(self.decode(site, compressed["u"]), text)
        # Random bytes and one byte do not compress: they have no object, and none is left behind.
        self.assertNotIn("z", entries["bin/random.bin"])
        self.assertNotIn("z", entries["tiny"])
        self.assertEqual(os.listdir(os.path.join(site, "objects")), [f"{sha1(text)}.zst"])

    def test_patches_from_each_previous_release_that_differs(self):
        old = noise(2, 300000)
        older = old[:5000] + noise(3, 100) + old[5100:]
        new = old[:150000] + b"patched in" + old[150000:]
        same = noise(4, 20000)
        v0 = self.release("v0", {"app.dll": older, "same.bin": same})
        v1 = self.release("v1", {"app.dll": old, "same.bin": same, "gone.txt": b"dropped"})
        v2 = self.release("v2", {"app.dll": new, "same.bin": same, "added.txt": b"a new text file\n" * 100})
        site, manifest = self.site(v2, "--previous", v1, "--previous", v0, "--level", "3")
        entries = {entry["n"]: entry for entry in manifest["files"]}
        self.assertEqual(sorted(entries), ["added.txt", "app.dll", "same.bin"])
        patches = entries["app.dll"]["p"]
        self.assertEqual([p["h"] for p in patches], [sha1(old), sha1(older)])
        for patch, base in zip(patches, (v1, v0)):
            self.assertEqual(patch["u"], f"/objects/{patch['h']}-{sha1(new)}.zst")
            self.assertEqual(patch["s"], len(self.read(site, patch["u"])))
            self.assertLess(patch["s"], 2000)
            self.assertEqual(self.decode(site, patch["u"], os.path.join(base, "app.dll")), new)
        # A file that is the same in the earlier release, and one new in this release, get no patch.
        self.assertNotIn("p", entries["same.bin"])
        self.assertNotIn("p", entries["added.txt"])
        self.assertIn("z", entries["added.txt"])
        self.assertEqual(self.read(site, "/app.dll"), new)

    def test_objects_made_with_zstds_threads_decode_to_the_release(self):
        old = noise(7, 200000)
        new = old[:100000] + b"changed" + old[100000:]
        v1 = self.release("v1", {"app.dll": old})
        v2 = self.release("v2", {"app.dll": new, "notes.txt": b"a line of notes\n" * 2000})
        site, manifest = self.site(v2, "--previous", v1, "--level", "3", "--threads", "2")
        entries = {entry["n"]: entry for entry in manifest["files"]}
        (patch,) = entries["app.dll"]["p"]
        self.assertLess(patch["s"], 2000)
        self.assertEqual(self.decode(site, patch["u"], os.path.join(v1, "app.dll")), new)
        self.assertEqual(self.decode(site, entries["notes.txt"]["z"]["u"]), b"a line of notes\n" * 2000)

    def test_a_patch_no_smaller_than_the_compressed_file_is_not_kept(self):
        new = b"a line that repeats\n" * 5000
        v1 = self.release("v1", {"app.txt": noise(5, 100000)})
        v2 = self.release("v2", {"app.txt": new})
        site, manifest = self.site(v2, "--previous", v1)
        (entry,) = manifest["files"]
        self.assertNotIn("p", entry)
        self.assertEqual(sorted(os.listdir(os.path.join(site, "objects"))), [f"{sha1(new)}.zst"])

    def test_a_base_above_two_gib_gets_no_patch(self):
        v1 = self.release("v1", {})
        os.makedirs(v1, exist_ok=True)
        with open(os.path.join(v1, "big.bin"), "wb") as f:
            f.truncate((2 << 30) + 1)
        v2 = self.release("v2", {"big.bin": b"\0" * 100000})
        site, manifest = self.site(v2, "--previous", v1)
        (entry,) = manifest["files"]
        self.assertNotIn("p", entry)
        self.assertEqual(self.decode(site, entry["z"]["u"]), b"\0" * 100000)

    def test_signed_site_signs_the_manifest_with_every_member(self):
        from cryptography.hazmat.primitives.asymmetric import ed25519
        key_file = os.path.join(self.work, "release.key")
        public_key = self.make("--make-key", key_file).strip()
        v1 = self.release("v1", {"app.dll": noise(6, 100000)})
        v2 = self.release("v2", {"app.dll": noise(6, 100000)[:-10] + b"0123456789"})
        site, manifest = self.site(v2, "--previous", v1, "--key", key_file, "--version", "7")
        (entry,) = manifest["files"]
        self.assertEqual(entry["sha256"], hashlib.sha256(self.read(site, "/app.dll")).hexdigest().upper())
        self.assertEqual(len(entry["p"]), 1)
        self.assertEqual(manifest["version"], 7)
        data = self.read(site, "/manifest.json")
        signature = bytes.fromhex(self.read(site, "/manifest.json.sig").decode().strip())
        ed25519.Ed25519PublicKey.from_public_bytes(bytes.fromhex(public_key)).verify(signature, data)
        self.assertEqual(sorted(os.listdir(site)), ["app.dll", "manifest.json", "manifest.json.sig", "objects"])

    def test_an_empty_release_is_a_site_with_its_manifest_alone(self):
        v2 = self.release("v2", {})
        os.makedirs(v2)
        site, manifest = self.site(v2)
        self.assertEqual(manifest, {"format": 2, "files": []})
        self.assertEqual(os.listdir(site), ["manifest.json"])

    def test_actions_and_object_prefix(self):
        v2 = self.release("v2", {"app.exe": b"program " * 1000})
        site, manifest = self.site(v2, "--object-prefix", "/store/z/", "--stop", "Svc", "--delete", "old.dll",
                                   "--exe", "app.exe", "--arg=--updated")
        self.assertEqual((manifest["stop"], manifest["delete"], manifest["exe"], manifest["arg"]),
                         (["Svc"], ["old.dll"], "app.exe", "--updated"))
        (entry,) = manifest["files"]
        self.assertEqual(entry["z"]["u"], f"/store/z/{sha1(b'program ' * 1000)}.zst")
        self.assertEqual(self.decode(site, entry["z"]["u"]), b"program " * 1000)

    def test_refusals(self):
        v2 = self.release("v2", {"objects/x.bin": b"1", "manifest.json": b"{}"})
        site = os.path.join(self.work, "site")
        self.assertIn("objects/x.bin would lie among the objects under /objects",
                      self.make(v2, "--site", site, fails=True))
        self.assertIn("manifest.json would be replaced by the site's manifest",
                      self.make(v2, "--site", site, "--object-prefix", "/o", fails=True))
        self.assertIn("-o is not used with it", self.make(v2, "--site", site, "-o", "m.json", fails=True))
        self.assertIn("--previous needs --site", self.make(v2, "--previous", v2, fails=True))
        self.assertIn("--level 30 is not between 1 and 22", self.make(v2, "--site", site, "--level", "30", fails=True))
        self.assertIn("--threads 0 is not between 1 and 64", self.make(v2, "--site", site, "--threads", "0", fails=True))


if __name__ == "__main__":
    unittest.main()
