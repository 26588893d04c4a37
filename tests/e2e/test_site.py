"""Updates from a site that make-manifest --site wrote, served by nginx: a file above 256 MiB is
hashed and updated by patch or compressed object when its manifest is of format 2, and stays out
of reach in a manifest without it, as it always was; with VEY_HEAVY_TESTS=1 also a file of
4.5 GiB, its peak memory printed."""
import hashlib
import json
import os
import random
import shutil
import subprocess
import sys
import unittest

from servers import Nginx
from veytest import (PATIENCE, WINE_RUN, WORK, make_app_folder, quote_argument, read_log, run_windows, size_text,
                     windows_path)

TOOLS = os.path.join(os.path.dirname(__file__), "..", "..", "tools")
BIG = 300 << 20


HUGE = 4608 << 20
# Runs a command and prints the peak resident set of the processes it waited for, in KiB.
PEAK = ("import resource, subprocess, sys; code = subprocess.run(sys.argv[1:], stdin=subprocess.DEVNULL, "
        "stdout=subprocess.DEVNULL).returncode; print(code, resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)")


def write_big(path, seed, size=BIG, step=16 << 20):
    """Zeros with a random region every `step` bytes: it compresses, and a change in one region is
    small. The zeros are left as holes, so even a huge file is made at once. Returns its SHA-1,
    taken from the bytes written rather than read back."""
    os.makedirs(os.path.dirname(path), exist_ok=True)
    rng = random.Random(seed)
    digest = hashlib.sha1()
    zeros = memoryview(bytes(step))
    with open(path, "wb") as f:
        f.truncate(size)
        for offset in range(0, size, step):
            region = rng.randbytes(min(64 << 10, size - offset))
            f.seek(offset)
            f.write(region)
            digest.update(region)
            digest.update(zeros[:min(step, size - offset) - len(region)])
    return digest.hexdigest().upper()


def same_bytes(a, b):
    return subprocess.run(["cmp", "-s", a, b]).returncode == 0


class LargeFile(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = os.path.join(WORK, "site-large")
        shutil.rmtree(cls.work, ignore_errors=True)
        cls.old = os.path.join(cls.work, "v1", "big.bin")
        cls.new = os.path.join(cls.work, "v2", "big.bin")
        cls.old_sha1 = write_big(cls.old, 1)
        cls.new_sha1 = write_big(cls.new, 2)

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

    def site_entry(self):
        with open(os.path.join(self.work, "site", "manifest.json"), encoding="utf-8") as f:
            return json.load(f)["files"][0]

    def assert_decoded(self, folder, nginx, messages, done, url, fetched):
        self.assertEqual(messages, [f"({self.old_sha1} -> {self.new_sha1}) (300.0 MB -> 300.0 MB) (big.bin)",
                                    "Created _update directory.",
                                    f"HTTP Getting... http://{nginx.domain}{url}",
                                    f"HTTP Response Status (200 OK) ({size_text(fetched)})",
                                    f"{done} big.bin from {nginx.domain} ({size_text(fetched)} fetched for 300.0 MB)",
                                    f"Replaced {windows_path(folder)}\\big.bin"])
        self.assertTrue(same_bytes(os.path.join(folder, "big.bin"), self.new))
        self.assertFalse(os.path.exists(os.path.join(folder, "_update")))
        # The next run hashes the new file and finds it current.
        shutil.rmtree(os.path.join(folder, "_logs"))
        self.assertEqual(self.run_update(folder, nginx), ["Nothing to update!"])

    def test_a_file_above_256_mib_is_patched(self):
        nginx = self.serve("--site", os.path.join(self.work, "site"), "--previous", os.path.join(self.work, "v1"),
                           "--level", "1", "--window-log", "27")
        patch = self.site_entry()["p"][0]
        folder = self.installed("site-large-app")
        self.assert_decoded(folder, nginx, self.run_update(folder, nginx), "Patched", patch["u"], patch["s"])

    def test_a_file_above_256_mib_is_decompressed(self):
        nginx = self.serve("--site", os.path.join(self.work, "site"), "--level", "1", "--window-log", "27")
        compressed = self.site_entry()["z"]
        folder = self.installed("site-large-compressed-app")
        self.assert_decoded(folder, nginx, self.run_update(folder, nginx), "Decompressed", compressed["u"],
                            compressed["s"])

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
        self.assertTrue(same_bytes(os.path.join(folder, "big.bin"), self.old))


@unittest.skipUnless(os.environ.get("VEY_HEAVY_TESTS"), "writes and compares 9 GiB: set VEY_HEAVY_TESTS=1")
class HugeFile(unittest.TestCase):
    """A 4.5 GiB file of a format-2 manifest is hashed and downloaded with the memory of a run that
    does nothing, give or take 64 MiB. It moves 4.5 GiB through the disk twice (about a minute on
    an idle machine, three on a busy one), so it runs only when asked for."""

    def setUp(self):
        self.serve = os.path.join(WORK, "site-huge")
        shutil.rmtree(self.serve, ignore_errors=True)
        self.addCleanup(shutil.rmtree, self.serve, True)
        self.sha1 = write_big(os.path.join(self.serve, "files", "huge.bin"), 3, HUGE, 256 << 20)
        manifest = {"format": 2, "urlPrefix": "/files", "files": [{"n": "huge.bin", "h": self.sha1, "s": HUGE}]}
        with open(os.path.join(self.serve, "manifest.json"), "w") as f:
            json.dump(manifest, f)
        with open(os.path.join(self.serve, "nothing.json"), "w") as f:
            json.dump({"format": 2}, f)
        self.nginx = Nginx(self.serve)
        self.addCleanup(self.nginx.stop)

    def peak_kib(self, folder, path):
        argument = quote_argument(json.dumps({"domains": [self.nginx.domain], "pathAndQuery": path}))
        done = subprocess.run([sys.executable, "-c", PEAK, WINE_RUN, os.path.join(folder, "VeyUpdater.exe"), argument],
                              capture_output=True, text=True, timeout=PATIENCE * 3)
        code, peak = done.stdout.split()
        self.assertEqual(code, "0")
        return int(peak)

    def test_update_of_a_4_5_gib_file(self):
        idle_folder = make_app_folder("site-huge-idle")
        idle = self.peak_kib(idle_folder, "/nothing.json")
        self.assertEqual(read_log(idle_folder)[10:], [])

        folder = make_app_folder("site-huge-app")
        self.addCleanup(shutil.rmtree, folder, True)
        old_sha1 = write_big(os.path.join(folder, "huge.bin"), 4, HUGE, 256 << 20)
        peak = self.peak_kib(folder, "/manifest.json")
        print(f"\nPeak resident memory: {peak // 1024} MiB updating 4.5 GiB, {idle // 1024} MiB doing nothing",
              file=sys.stderr)
        self.assertEqual(read_log(folder)[10:], [f"({old_sha1} -> {self.sha1}) (4.50 GB -> 4.50 GB) (huge.bin)",
                                                 "Created _update directory.",
                                                 f"HTTP Getting... http://{self.nginx.domain}/files/huge.bin",
                                                 "HTTP Response Status (200 OK) (Valid 4.50 GB)",
                                                 f"Downloaded huge.bin whole from {self.nginx.domain} "
                                                 "(4.50 GB fetched for 4.50 GB)",
                                                 f"Replaced {windows_path(folder)}\\huge.bin"])
        self.assertTrue(same_bytes(os.path.join(folder, "huge.bin"), os.path.join(self.serve, "files", "huge.bin")))
        self.assertLess(peak - idle, 64 << 10)


if __name__ == "__main__":
    unittest.main()
