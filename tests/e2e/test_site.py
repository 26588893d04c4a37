"""Updates from a site that make-manifest --site wrote, served by nginx: a file above 256 MiB is
hashed and updated when its manifest is of the objects format, and stays out of reach in a
manifest without it, as it always was."""
import json
import os
import random
import shutil
import subprocess
import unittest

from servers import Nginx
from veytest import WORK, make_app_folder, quote_argument, read_log, run_windows, windows_path

TOOLS = os.path.join(os.path.dirname(__file__), "..", "..", "tools")
BIG = 300 << 20


def write_big(path, seed):
    """300 MiB of zeros with random regions: it compresses, and a change in one region is small."""
    os.makedirs(os.path.dirname(path), exist_ok=True)
    rng = random.Random(seed)
    with open(path, "wb") as f:
        f.truncate(BIG)
        for offset in range(0, BIG, 16 << 20):
            f.seek(offset)
            f.write(rng.randbytes(64 << 10))


def sha1_file(path):
    import hashlib
    digest = hashlib.sha1()
    with open(path, "rb") as f:
        for block in iter(lambda: f.read(1 << 20), b""):
            digest.update(block)
    return digest.hexdigest().upper()


class LargeFile(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = os.path.join(WORK, "site-large")
        shutil.rmtree(cls.work, ignore_errors=True)
        cls.old = os.path.join(cls.work, "v1", "big.bin")
        cls.new = os.path.join(cls.work, "v2", "big.bin")
        write_big(cls.old, 1)
        write_big(cls.new, 2)
        cls.old_sha1, cls.new_sha1 = sha1_file(cls.old), sha1_file(cls.new)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.work, ignore_errors=True)

    def serve(self, *options):
        site = os.path.join(self.work, "site")
        shutil.rmtree(site, ignore_errors=True)
        subprocess.run([os.path.join(TOOLS, "make-manifest"), os.path.join(self.work, "v2"), "--url-prefix",
                        "/files", *options], check=True)
        nginx = Nginx(site)
        self.addCleanup(nginx.stop)
        return nginx

    def installed(self, name):
        folder = make_app_folder(name)
        shutil.copyfile(self.old, os.path.join(folder, "big.bin"))
        return folder

    def run_update(self, folder, nginx):
        argument = quote_argument(json.dumps({"domains": [nginx.domain], "pathAndQuery": "/manifest.json"}))
        code, _ = run_windows(os.path.join(folder, "VeyUpdater.exe"), [argument])
        self.assertEqual(code, 0)
        return read_log(folder)[10:]

    def test_objects_format_updates_a_file_above_256_mib(self):
        nginx = self.serve("--site", os.path.join(self.work, "site"), "--previous", os.path.join(self.work, "v1"),
                           "--level", "1", "--window-log", "27")
        folder = self.installed("site-large-app")
        messages = self.run_update(folder, nginx)
        self.assertEqual(messages[:3], [f"({self.old_sha1} -> {self.new_sha1}) (300.0 MB -> 300.0 MB) (big.bin)",
                                        "Created _update directory.",
                                        f"HTTP Getting... http://{nginx.domain}/files/big.bin"])
        self.assertEqual(messages[3:], ["HTTP Response Status (200 OK) (Valid 300.0 MB)",
                                        f"Replaced {windows_path(folder)}\\big.bin"])
        self.assertEqual(sha1_file(os.path.join(folder, "big.bin")), self.new_sha1)
        self.assertFalse(os.path.exists(os.path.join(folder, "_update")))
        # The next run hashes the new file and finds it current.
        shutil.rmtree(os.path.join(folder, "_logs"))
        self.assertEqual(self.run_update(folder, nginx), ["Nothing to update!"])

    def test_plain_manifest_still_never_hashes_above_256_mib(self):
        site = os.path.join(self.work, "site")
        nginx = self.serve("--site", site)
        with open(os.path.join(site, "manifest.json"), encoding="utf-8") as f:
            manifest = json.load(f)
        del manifest["format"]
        with open(os.path.join(site, "manifest.json"), "w", encoding="utf-8") as f:
            json.dump(manifest, f)
        folder = self.installed("site-large-plain-app")
        messages = self.run_update(folder, nginx)
        self.assertEqual(messages, [f"({'_' * 40} -> {self.new_sha1}) (300.0 MB -> 300.0 MB) (big.bin)",
                                    "Created _update directory.",
                                    f"HTTP Getting... http://{nginx.domain}/files/big.bin",
                                    "HTTP Response Status (200 OK) (Invalid 300.0 MB)",
                                    "Failed to download. (big.bin)"])
        self.assertEqual(sha1_file(os.path.join(folder, "big.bin")), self.old_sha1)


if __name__ == "__main__":
    unittest.main()
