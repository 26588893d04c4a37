"""An unhandled exception in the real entry routine leaves a report and a full-memory dump."""
import glob
import os
import re
import unittest

from veytest import PATIENCE, TEST_BIN, make_app_folder, run_windows


class CrashReport(unittest.TestCase):
    def test_fatal_error_leaves_report_and_dump(self):
        folder = make_app_folder("crash", program="fatal_updater.exe", source=TEST_BIN)
        # The full-memory dump (about 150 MB) is read through the wineserver in small pieces, one
        # round trip each: 2-3 s on an idle machine, minutes when every core is busy.
        code, _ = run_windows(os.path.join(folder, "fatal_updater.exe"), ["%7B%7D"], timeout=PATIENCE * 3)
        self.assertNotEqual(code, 0)
        name = re.compile(r"fatal_updater\.exe_\d{4}-\d\d-\d\d_\d\d;\d\d;\d\d\.\d{3}_\d+\.(log|dmp)$")
        files = sorted(os.listdir(folder))
        crash_files = [f for f in files if name.match(f)]
        self.assertEqual(len(crash_files), 2, files)
        dump, report = crash_files
        self.assertEqual(dump[:-4], report[:-4])
        with open(os.path.join(folder, dump), "rb") as f:
            self.assertEqual(f.read(4), b"MDMP")
        self.assertGreater(os.path.getsize(os.path.join(folder, dump)), 1 << 20)
        lines = open(os.path.join(folder, report), "rb").read().decode().split("\r\n")
        self.assertEqual(lines[0], "==== ExceptionInfo ====")
        self.assertEqual(lines[1], "ExceptionCode = 0xE0564559")
        self.assertEqual(lines[2], "ExceptionFlags = 0x00000001")
        self.assertRegex(lines[3], r"^ExceptionRecord = 0x[0-9A-F]+$")
        self.assertRegex(lines[4], r"^ExceptionAddress = 0x[0-9A-F]+$")
        self.assertEqual(lines[5], "NumberParameters = 1")
        self.assertEqual(lines[6], "ExceptionInformation[0] = 0x46415441")
        self.assertEqual(lines[7], "")
        self.assertEqual(lines[8], "==== MemoryInfo ====")
        keys = [line.split(" = ")[0] for line in lines[9:18]]
        self.assertEqual(keys, ["PageFaultCount", "PeakWorkingSetSize", "WorkingSetSize", "QuotaPeakPagedPoolUsage",
                                "QuotaPagedPoolUsage", "QuotaPeakNonPagedPoolUsage", "QuotaNonPagedPoolUsage",
                                "PagefileUsage", "PeakPagefileUsage"])
        self.assertEqual(lines[18:], ["", ""])


if __name__ == "__main__":
    unittest.main()
