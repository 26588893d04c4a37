"""build/wine-test, the runner of the unit-test programs: it starts a program again only when
Wine never ran it (status 1 with no output, or with nothing but Wine's own client error), at
most three runs in all, and passes every other outcome on after one run."""
import os
import shutil
import stat
import subprocess
import tempfile
import unittest

from veytest import TEST_BIN, WINE_RUN

WINE_TEST = os.path.join(os.path.dirname(WINE_RUN), "wine-test")
CLIENT_ERROR = "wine client error:0: recvmsg: Connection reset by peer\n"

# A stand-in for wine-run: each call appends its arguments to a record, then plays the outcome
# listed for that call (the last one for every later call) as "status<TAB>stdout<TAB>stderr".
STAND_IN = """#!/bin/sh
echo "$*" >> "$RECORD"
call=$(wc -l < "$RECORD")
line=$(sed -n "${call}p" "$OUTCOMES")
[ -n "$line" ] || line=$(tail -n 1 "$OUTCOMES")
printf '%b' "$(printf '%s' "$line" | cut -f2)"
printf '%b' "$(printf '%s' "$line" | cut -f3)" >&2
exit $(printf '%s' "$line" | cut -f1)
"""


def escaped(text):
    return text.encode("unicode_escape").decode()


class WineTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="vey-wine-test-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.runner = os.path.join(self.folder, "wine-run")
        with open(self.runner, "w") as out:
            out.write(STAND_IN)
        os.chmod(self.runner, stat.S_IRWXU)
        self.record = os.path.join(self.folder, "record")
        self.outcomes = os.path.join(self.folder, "outcomes")

    def run_with(self, *outcomes):
        """Runs wine-test over the stand-in; returns its status, its output and the calls made."""
        if os.path.exists(self.record):
            os.remove(self.record)
        with open(self.outcomes, "w") as out:
            for status, stdout, stderr in outcomes:
                out.write(f"{status}\t{escaped(stdout)}\t{escaped(stderr)}\n")
        env = dict(os.environ, VEY_WINE_RUN=self.runner, RECORD=self.record, OUTCOMES=self.outcomes)
        done = subprocess.run([WINE_TEST, "x_tests.exe", "--gtest_filter=A.B"], env=env,
                              capture_output=True, text=True, timeout=60)
        with open(self.record) as calls:
            return done.returncode, done.stdout, calls.read().splitlines()

    def again(self, number):
        return ("wine-test: Wine ended x_tests.exe with status 1 before it printed anything; "
                f"starting it again ({number} of 3)\n")

    def test_silent_status_1_is_run_again_until_the_program_runs(self):
        status, output, calls = self.run_with((1, "", ""), (0, "[  PASSED  ] 1 test.\n", ""))
        self.assertEqual(status, 0)
        self.assertEqual(output, self.again(2) + "[  PASSED  ] 1 test.\n")
        self.assertEqual(calls, ["x_tests.exe --gtest_filter=A.B"] * 2)

    def test_wine_client_error_alone_is_run_again(self):
        status, output, calls = self.run_with((1, "", CLIENT_ERROR), (1, "", CLIENT_ERROR), (0, "ran\n", ""))
        self.assertEqual(status, 0)
        self.assertEqual(output, CLIENT_ERROR + self.again(2) + CLIENT_ERROR + self.again(3) + "ran\n")
        self.assertEqual(len(calls), 3)

    def test_three_silent_failures_fail_with_status_1(self):
        status, output, calls = self.run_with((1, "", ""))
        self.assertEqual(status, 1)
        self.assertEqual(output, self.again(2) + self.again(3))
        self.assertEqual(len(calls), 3)

    def test_status_1_after_any_output_is_the_programs_own_failure(self):
        for printed in ("[==========] Running 1 test\n", "\n"):
            with self.subTest(printed=printed):
                status, output, calls = self.run_with((1, printed, ""), (0, "", ""))
                self.assertEqual((status, output, len(calls)), (1, printed, 1))

    def test_client_error_beside_program_output_is_not_run_again(self):
        status, output, calls = self.run_with((1, "Note: Google Test filter = A.B\n", CLIENT_ERROR), (0, "", ""))
        self.assertEqual(status, 1)
        self.assertEqual(len(calls), 1)

    def test_other_silent_statuses_are_never_run_again(self):
        # A crash (5), an abort (3), a missing DLL (53) and a clean exit end after one run.
        for code in (0, 3, 5, 53):
            with self.subTest(code=code):
                status, output, calls = self.run_with((code, "", ""), (0, "late\n", ""))
                self.assertEqual((status, output, len(calls)), (code, "", 1))

    def test_a_real_unit_test_program_runs_once(self):
        program = os.path.join(TEST_BIN, "json", "json_tests.exe")
        done = subprocess.run([WINE_TEST, program, "--gtest_filter=JsonWriter.Literals"],
                              capture_output=True, text=True, timeout=120)
        self.assertEqual(done.returncode, 0)
        self.assertIn("Note: Google Test filter = JsonWriter.Literals", done.stdout)
        self.assertIn("[  PASSED  ] 1 test.", done.stdout)


if __name__ == "__main__":
    unittest.main()
