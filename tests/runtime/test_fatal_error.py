"""FatalError ends the process through the unhandled-exception filter with its code in the record."""
import os
import unittest

from veytest import TEST_BIN, run_windows

PROBE = os.path.join(TEST_BIN, "fatal_probe.exe")
FATAL_EXCEPTION = "0xE0564559"


class FatalErrorReachesFilter(unittest.TestCase):
    def probe(self, mode, **options):
        code, out = run_windows(PROBE, [mode], **options)
        return code, out.decode().strip()

    def test_main_thread(self):
        code, line = self.probe("main")
        self.assertEqual(line, f"code={FATAL_EXCEPTION} value=0x89534242")
        self.assertEqual(code, 0x42)

    def test_raw_thread(self):
        code, line = self.probe("thread")
        self.assertEqual(line, f"code={FATAL_EXCEPTION} value=0x12345678")
        self.assertEqual(code, 0x78)

    def test_exception_escaping_a_std_thread(self):
        code, line = self.probe("throw-thread")
        self.assertEqual(line, f"code={FATAL_EXCEPTION} value=0x0BADC0DE")
        self.assertEqual(code, 0xDE)

    def test_exhausted_heap_ends_with_pool_code(self):
        # A limited address space makes the heap refuse the probe's 1 GiB blocks quickly.
        code, line = self.probe("pool", address_space_kib=4_000_000)
        self.assertEqual(line, f"code={FATAL_EXCEPTION} value=0x10353175")
        self.assertEqual(code, 0x75)


if __name__ == "__main__":
    unittest.main()
