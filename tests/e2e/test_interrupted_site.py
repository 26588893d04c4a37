"""An update by patches and compressed objects killed at any moment: at every line that starts or
ends the fetch of an object, once a staging file has reached half its size, and at random
moments of the run, the updater's process is killed; every path of the release then holds its old
bytes or its new bytes (never a part, never a half-decoded file), and the next run ends with the
release byte for byte. A server that sends each body in paced pieces keeps every decoding going
long enough to be cut."""
import os
import random
import re
import shutil
import subprocess
import time
import unittest

from servers import ScriptedServer
from veytest import (PATIENCE, WORK, fresh_installation, kill_windows, make_app_folder, quote_argument, read, read_log,
                     start_updater, write)

TOOLS = os.path.join(os.path.dirname(__file__), "..", "..", "tools")


def words(seed, size):
    """Text of a vocabulary of its own: it compresses about threefold."""
    rng = random.Random(seed)
    vocabulary = ["".join(rng.choices("abcdefghijklmnopqrstuvwxyz", k=rng.randint(3, 10))) for _ in range(400)]
    return " ".join(rng.choices(vocabulary, k=size // 5)).encode()[:size]


def edited(data, seed, step, grown):
    """`data` with a random region at every `step` bytes and `grown` bytes more: a patch from it
    carries those regions, a quarter of the size, about half of what the compressed file takes."""
    rng = random.Random(seed)
    out = bytearray(data)
    for offset in range(step // 2, len(out), step):
        out[offset:offset + step // 4] = rng.randbytes(step // 4)
    return bytes(out) + rng.randbytes(grown)


CORE = words(1, 4 << 20)
IMAGES = words(2, 2 << 20)
V1 = {"core.dll": CORE, "data/images.pak": IMAGES, "app.exe": words(3, 1536 << 10),
      "noise.bin": random.Random(4).randbytes(300000), "same.txt": words(5, 100000)}
V2 = {"core.dll": edited(CORE, 6, 256 << 10, 100), "data/images.pak": edited(IMAGES, 7, 128 << 10, 37),
      "app.exe": words(8, 1600 << 10), "plugins/new.dll": words(9, 1 << 20),
      "noise.bin": random.Random(10).randbytes(310000), "same.txt": V1["same.txt"]}
PIECE = 16 << 10


class KilledDecoding(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = os.path.join(WORK, "interrupted-site")
        shutil.rmtree(cls.work, ignore_errors=True)
        for version, files in (("v1", V1), ("v2", V2)):
            for name, data in files.items():
                write(os.path.join(cls.work, version, name), data)
        cls.site = os.path.join(cls.work, "site")
        subprocess.run([os.path.join(TOOLS, "make-manifest"), os.path.join(cls.work, "v2"), "--url-prefix", "/files",
                        "--site", cls.site, "--previous", os.path.join(cls.work, "v1"), "--level", "3"], check=True)
        cls.server = ScriptedServer(cls.answer, concurrent=True)
        cls.argument = quote_argument(f'{{"domains": ["{cls.server.domain}"], "pathAndQuery": "/manifest.json"}}')
        cls.template = make_app_folder("interrupted-site-template")
        for name, data in V1.items():
            write(os.path.join(cls.template, name), data)

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()
        shutil.rmtree(cls.work, ignore_errors=True)

    @classmethod
    def answer(cls, head):
        """The site's file at the requested path, its body in pieces a few milliseconds apart;
        nothing to a connection that a killed run closed before its request was whole."""
        words = head.split(b" ")
        if len(words) < 3:
            return
        path = os.path.join(cls.site, *words[1].decode().strip("/").split("/"))
        if not os.path.isfile(path):
            yield b"HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n"
            return
        data = read(path)
        yield b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n" % len(data)
        for offset in range(0, len(data), PIECE):
            yield data[offset:offset + PIECE]
            time.sleep(0.003)

    def installation(self):
        return fresh_installation(self.template, "interrupted-site-app")

    def start(self, folder):
        return start_updater(folder, self.argument)

    def check_killed(self, folder, moment):
        """Every path holds one version whole (a new file may be missing yet); returns the names that
        hold the new one."""
        new = []
        for name in V2:
            path = os.path.join(folder, name)
            if name not in V1 and not os.path.exists(path):
                continue
            self.assertTrue(os.path.isfile(path), f"{name} missing after a kill {moment}")
            data = read(path)
            self.assertIn(data, (V1.get(name), V2[name]), f"{name} partial after a kill {moment}")
            if data == V2[name]:
                new.append(name)
        return new

    def check_rerun(self, folder, moment, new_after_kill=()):
        """The next run ends with the release; a file staged whole before the kill is taken as it
        is ("Pass.") unless it was already in place."""
        staged = [name for name in V2 if name not in new_after_kill and self.staged_whole(folder, name)]
        shutil.rmtree(os.path.join(folder, "_logs"), ignore_errors=True)
        process = self.start(folder)
        process.communicate(timeout=PATIENCE)
        self.assertEqual(process.returncode, 0)
        log = read_log(folder)
        for name, data in V2.items():
            self.assertTrue(read(os.path.join(folder, name)) == data, f"{name} after a rerun, kill {moment}: {log}")
        # A kill after the last file was moved into place, before the staging folder was deleted,
        # leaves that folder to the next run, which finds nothing to update: it holds no file then.
        self.assertEqual(sorted(set(os.listdir(folder)) - {"_update"}),
                         ["VeyUpdater.exe", "_logs", "app.exe", "core.dll", "data", "noise.bin", "plugins", "same.txt"],
                         moment)
        self.assertEqual([names for _, _, names in os.walk(os.path.join(folder, "_update")) if names], [], moment)
        for name in staged:
            self.assertIn(f"Pass. {name.replace('/', chr(92))}", log, moment)
        return log

    def staged_whole(self, folder, name):
        path = os.path.join(folder, "_update", name)
        return os.path.isfile(path) and read(path) == V2[name]

    def test_killed_at_object_lines_staging_sizes_and_random_moments(self):
        # A whole run: the console lines, and what came in which form.
        folder = self.installation()
        started = time.monotonic()
        process = self.start(folder)
        output, _ = process.communicate(timeout=PATIENCE)
        duration = time.monotonic() - started
        self.assertEqual(self.check_killed(folder, "(none)"), list(V2))
        log = read_log(folder)
        self.assertTrue(any(re.match(r"Patched core\.dll from ", line) for line in log), log)
        self.assertTrue(any(re.match(r"Patched data\\images\.pak from ", line) for line in log), log)
        self.assertTrue(any(re.match(r"Decompressed plugins\\new\.dll from ", line) for line in log), log)
        self.assertTrue(any(re.match(r"Downloaded noise\.bin whole from ", line) for line in log), log)
        marks = [line for line in output.decode("utf-8").splitlines()
                 if re.search(r"HTTP Getting\.\.\. \S+/objects/|(Patched|Decompressed) ", line)]
        self.assertGreaterEqual(len(marks), 8, marks)

        # Killed right after the n-th line that starts or ends an object reaches the console.
        for number in range(1, len(marks) + 1):
            folder = self.installation()
            process = self.start(folder)
            seen = 0
            for line in process.stdout:
                seen += bool(re.search(rb"HTTP Getting\.\.\. \S+/objects/|(Patched|Decompressed) ", line))
                if seen == number:
                    break
            kill_windows(process)
            moment = f"at object line {number}"
            self.assertEqual(seen, number, moment)
            self.check_rerun(folder, moment, self.check_killed(folder, moment))

        # Killed once a staging file holds half the file: the decoding is cut in the middle.
        cut = 0
        for name in ("core.dll", "data/images.pak", "app.exe", "plugins/new.dll"):
            folder = self.installation()
            staging = os.path.join(folder, "_update", name)
            process = self.start(folder)

            def half_written():
                return process.poll() is not None or (os.path.exists(staging) and
                                                      os.path.getsize(staging) >= len(V2[name]) // 2)
            deadline = time.monotonic() + PATIENCE
            while not half_written() and time.monotonic() < deadline:
                time.sleep(0.001)
            kill_windows(process)
            moment = f"with {name} half staged"
            cut += os.path.exists(staging) and os.path.getsize(staging) < len(V2[name])
            self.check_rerun(folder, moment, self.check_killed(folder, moment))
        self.assertGreaterEqual(cut, 2)

        # Killed at moments drawn over the length of a whole run.
        rng = random.Random(2411)
        outcomes = []
        for _ in range(8):
            delay = rng.uniform(0, duration)
            folder = self.installation()
            process = self.start(folder)
            kill_windows(process, delay)
            moment = f"after {delay * 1000:.0f} ms"
            new = self.check_killed(folder, moment)
            outcomes.append(len(new))
            self.check_rerun(folder, moment, new)
        print(f"\nkilled at {len(marks)} object lines, with 4 files half staged ({cut} cut mid-decoding) and at 8 "
              f"moments of a {duration * 1000:.0f} ms run; new files at those moments: {outcomes}")


if __name__ == "__main__":
    unittest.main()
