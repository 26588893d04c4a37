"""An update killed at any moment: at every "Replaced" line of an update of ten files and at twenty
random moments of the run, the updater's process is killed; every path of the release then holds
its old bytes or its new bytes (never nothing, never a part), and the next run ends with the
release byte for byte."""
import json
import os
import random
import shutil
import time
import unittest

from servers import Nginx
from test_update import make_manifest
from veytest import (PATIENCE, WORK, fresh_installation, kill_windows, make_app_folder, quote_argument, read, run_windows,
                     start_updater, write)

# Old and new sizes differ, so that a file cut short could never pass for either version.
NAMES = ["app.exe", "core.dll", "data/strings.txt", "data/images.pak", "data/deep/level.bin",
         "plugins/a.dll", "plugins/b.dll", "readme.txt", "config/defaults.json", "tools/helper.exe"]


class KilledUpdate(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        serve = os.path.join(WORK, "interrupted-serve")
        shutil.rmtree(serve, ignore_errors=True)
        rng = random.Random(27)
        cls.old = {name: rng.randbytes(20000 + 1000 * i) for i, name in enumerate(NAMES)}
        cls.new = {name: rng.randbytes(30000 + 1500 * i) for i, name in enumerate(NAMES)}
        for name, data in cls.new.items():
            write(os.path.join(serve, "files", name), data)
        make_manifest(os.path.join(serve, "files"), os.path.join(serve, "m.json"), "--url-prefix", "/files")
        cls.nginx = Nginx(serve)
        cls.argument = quote_argument(json.dumps({"domains": [cls.nginx.domain], "pathAndQuery": "/m.json"}))
        cls.template = make_app_folder("interrupted-template")
        for name, data in cls.old.items():
            write(os.path.join(cls.template, name), data)

    @classmethod
    def tearDownClass(cls):
        cls.nginx.stop()

    def installation(self):
        return fresh_installation(self.template, "interrupted")

    def start(self, folder):
        return start_updater(folder, self.argument)

    def check_killed(self, folder, moment):
        """Every path holds one version whole; returns how many hold the new one."""
        replaced = 0
        for name in NAMES:
            path = os.path.join(folder, name)
            self.assertTrue(os.path.isfile(path), f"{name} missing after a kill {moment}")
            data = read(path)
            self.assertIn(data, (self.old[name], self.new[name]), f"{name} partial after a kill {moment}")
            replaced += data == self.new[name]
        return replaced

    def check_rerun(self, folder, moment):
        code, _ = run_windows(os.path.join(folder, "VeyUpdater.exe"), [self.argument])
        self.assertEqual(code, 0)
        for name in NAMES:
            self.assertEqual(read(os.path.join(folder, name)), self.new[name], f"{name} after a rerun, kill {moment}")

    def test_killed_at_every_replaced_line_and_at_random_moments(self):
        # Killed right after the n-th "Replaced" line reaches the console.
        mixed = 0
        for line in range(1, len(NAMES) + 1):
            folder = self.installation()
            process = self.start(folder)
            seen = 0
            for output in process.stdout:
                seen += b" Replaced " in output
                if seen == line:
                    break
            kill_windows(process)
            moment = f"at Replaced line {line}"
            self.assertGreaterEqual(seen, line, moment)
            replaced = self.check_killed(folder, moment)
            self.assertGreaterEqual(replaced, line, moment)
            mixed += replaced < len(NAMES)
            self.check_rerun(folder, moment)

        # A whole run measured, then killed at moments drawn over its length.
        folder = self.installation()
        started = time.monotonic()
        process = self.start(folder)
        process.communicate(timeout=PATIENCE)
        duration = time.monotonic() - started
        self.assertEqual(self.check_killed(folder, "(none)"), len(NAMES))
        rng = random.Random(2701)
        outcomes = []
        for _ in range(20):
            delay = rng.uniform(0, duration)
            folder = self.installation()
            process = self.start(folder)
            kill_windows(process, delay)
            moment = f"after {delay * 1000:.0f} ms"
            outcomes.append(self.check_killed(folder, moment))
            self.check_rerun(folder, moment)
        print(f"\nkilled at {len(NAMES)} Replaced lines ({mixed} with the release partly replaced) and at 20 moments "
              f"of a {duration * 1000:.0f} ms run; new files at those moments: {outcomes}")


if __name__ == "__main__":
    unittest.main()
