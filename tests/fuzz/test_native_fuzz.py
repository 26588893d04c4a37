"""Builds the parsers for Linux with the address and undefined-behaviour sanitizers and runs the
native fuzz driver over them: any read past an input, leak of a pool block or undefined
behaviour ends the driver with a report."""
import os
import subprocess
import unittest

from veytest import BIN

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
BUILD = os.path.join(os.path.dirname(BIN), "native-fuzz")


class NativeFuzz(unittest.TestCase):
    def test_parsers_under_sanitizers(self):
        # A host build: the cross-compiling toolchain of the main build must not leak into it.
        environment = {key: value for key, value in os.environ.items() if key not in ("CC", "CXX")}
        subprocess.run(["cmake", "-S", os.path.join(ROOT, "fuzz"), "-B", BUILD, "-DCMAKE_BUILD_TYPE=Debug"],
                       check=True, stdout=subprocess.DEVNULL, env=environment)
        subprocess.run(["cmake", "--build", BUILD, "-j2"], check=True, stdout=subprocess.DEVNULL, env=environment)
        done = subprocess.run([os.path.join(BUILD, "fuzz_parsers"), "300000"], capture_output=True, text=True,
                              timeout=600)
        self.assertEqual(done.returncode, 0, done.stderr[-4000:])
        lines = done.stdout.splitlines()
        self.assertEqual(lines[0], "seed 0x5EEDF022, 300000 inputs per target")
        self.assertEqual(lines[-1], "no finding")
        self.assertEqual(lines[5], "sha1: 30000 agreed")
        self.assertRegex(lines[6], r"^peer queries: \d+ read$")
        self.assertRegex(lines[7], r"^request heads: \d+ complete$")


if __name__ == "__main__":
    unittest.main()
