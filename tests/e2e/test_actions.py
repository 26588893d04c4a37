"""The manifest's actions carried out by the real program under Wine: services through net.exe,
a window closed, a pipe signalled, a process killed, files deleted, a held file replaced once it
is released, and the program started at the end."""
import glob
import json
import os
import shutil
import subprocess
import unittest

from servers import Nginx
from test_update import make_manifest
from veytest import (PATIENCE, TEST_BIN, WINE_RUN, WORK, make_app_folder, quote_argument, read, read_log,
                     run_windows, wait_for, windows_path, write)

SERVICE = "VeyE2EActionService"


def start_windows(program, *args):
    return subprocess.Popen([WINE_RUN, program, *args], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                            stderr=subprocess.DEVNULL)


def log_bytes(folder):
    """What the updater has logged so far under folder/_logs."""
    return b"".join(read(path) for path in glob.glob(os.path.join(folder, "_logs", "*.log")))


def helper_copy(folder, helper, name):
    path = os.path.join(folder, name)
    shutil.copy(os.path.join(TEST_BIN, helper), path)
    return path


class Actions(unittest.TestCase):
    def setUp(self):
        self.serve = os.path.join(WORK, "actions-serve")
        shutil.rmtree(self.serve, ignore_errors=True)
        self.helpers = os.path.join(WORK, "actions-helpers")
        shutil.rmtree(self.helpers, ignore_errors=True)
        os.makedirs(self.helpers)
        self.processes = []
        subprocess.run([WINE_RUN, "sc.exe", "delete", SERVICE], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        service = windows_path(os.path.join(TEST_BIN, "net_service.exe"))
        subprocess.run([WINE_RUN, "sc.exe", "create", SERVICE, "binPath=", service], check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(lambda: subprocess.run([WINE_RUN, "sc.exe", "delete", SERVICE], stdout=subprocess.DEVNULL,
                                               stderr=subprocess.DEVNULL))
        subprocess.run([WINE_RUN, "net.exe", "start", SERVICE], check=True, stdout=subprocess.DEVNULL)
        self.addCleanup(lambda: subprocess.run([WINE_RUN, "net.exe", "stop", SERVICE], stdout=subprocess.DEVNULL,
                                               stderr=subprocess.DEVNULL))

    def tearDown(self):
        for process in self.processes:
            if process.poll() is None:
                process.kill()
            process.wait()

    def test_every_action_in_order(self):
        release = os.path.join(self.serve, "files")
        write(os.path.join(release, "app.txt"), b"new app\n")
        write(os.path.join(release, "locked.txt"), b"new locked\n")
        folder = make_app_folder("actions")
        write(os.path.join(folder, "app.txt"), b"old app\n")
        write(os.path.join(folder, "locked.txt"), b"old locked\n")
        write(os.path.join(folder, "old.dll"), b"old")
        write(os.path.join(folder, "oldfolder", "inner", "x.txt"), b"x")
        helper_copy(os.path.join(folder), "launch_recorder.exe", "recorder.exe")
        os.makedirs(os.path.join(folder, "bin"))
        shutil.move(os.path.join(folder, "recorder.exe"), os.path.join(folder, "bin", "recorder.exe"))
        make_manifest(release, os.path.join(self.serve, "m.json"), "--url-prefix", "/files",
                      "--stop", SERVICE, "--stop", SERVICE, "--stop", "VeyNoSuchService", "--close", "CloseMe.exe",
                      "--pipe", "vey-e2e-actions", "--kill", "killme.exe", "--delete", "old.dll",
                      "--delete", "oldfolder", "--delete", "missing.txt", "--start", SERVICE,
                      "--exe", "bin/recorder.exe", "--arg=--updated")

        window_record = os.path.join(self.helpers, "window.txt")
        pipe_record = os.path.join(self.helpers, "pipe.txt")
        hold_record = os.path.join(self.helpers, "hold.txt")
        self.processes.append(start_windows(helper_copy(self.helpers, "window_app.exe", "closeme.exe"), window_record))
        killme = helper_copy(self.helpers, "sleeper.exe", "killme.exe")
        first = start_windows(killme, str(int(PATIENCE * 1000)))
        self.processes.append(first)
        self.assertTrue(wait_for(lambda: os.path.exists(window_record) and b"ready" in read(window_record)))
        second = start_windows(killme, str(int(PATIENCE * 1000)))
        self.processes.append(second)
        self.processes.append(start_windows(os.path.join(TEST_BIN, "pipe_server.exe"), "vey-e2e-actions", pipe_record))
        self.assertTrue(wait_for(lambda: os.path.exists(pipe_record)))
        # The holder keeps locked.txt open until the updater has logged that it could not replace it.
        holder = start_windows(os.path.join(TEST_BIN, "file_holder.exe"),
                               windows_path(os.path.join(folder, "locked.txt")), str(int(PATIENCE * 1000)), hold_record)
        self.processes.append(holder)
        self.assertTrue(wait_for(lambda: os.path.exists(hold_record)))

        nginx = Nginx(self.serve)
        self.addCleanup(nginx.stop)
        argument = quote_argument(json.dumps({"domains": [nginx.domain], "pathAndQuery": "/m.json",
                                              "argOrg": "-from-launcher"}))
        updater = start_windows(os.path.join(folder, "VeyUpdater.exe"), argument)
        self.processes.append(updater)
        self.assertTrue(wait_for(lambda: b"Failed to replace. " in log_bytes(folder)))
        holder.kill()
        holder.wait()
        self.assertEqual(updater.wait(PATIENCE), 0)

        base = windows_path(folder) + "\\"
        messages = read_log(folder)
        actions = messages[messages.index("HTTP Response Status (200 OK) (Valid 11 B)") + 1:]
        closing = [m for m in actions if m.startswith("Closing closeme.exe(")]
        self.assertEqual(len(closing), 1)
        pid = closing[0][len("Closing closeme.exe("):-len(") process.")]
        failed_replaces = [m for m in actions if m.startswith("Failed to replace. ")]
        self.assertGreaterEqual(len(failed_replaces), 1)
        self.assertEqual(set(failed_replaces), {f"Failed to replace. (0x00000005) {base}locked.txt"})
        expected = [
            f"Stopped {SERVICE} service.",
            # Wine's net.exe ends with 1 for a service already stopped and for an unknown one.
            f"Failed to stop {SERVICE} service. (0x00000001)",
            "Failed to stop VeyNoSuchService service. (0x00000001)",
            f"Closing closeme.exe({pid}) process.",
            f"Closed closeme.exe({pid}) is closed.",
            "Terminated killme.exe process.",
            f"Deleted {base}old.dll",
            f"Deleted {base}oldfolder",
            f"Replaced {base}app.txt",
            *failed_replaces,
            f"Replaced {base}locked.txt",
            f"Started {SERVICE} service.",
            f"Created a process. {base}bin\\recorder.exe --updated -from-launcher",
        ]
        self.assertEqual(actions, expected)

        self.assertEqual(read(window_record).split(b"\r\n")[1:3], [b"WM_CLOSE", b"0x6207"])
        self.assertIn(b"connected", read(pipe_record))
        # Only the first of the two same-named sleepers was terminated.
        self.assertTrue(wait_for(lambda: (first.poll() is None) != (second.poll() is None)))
        self.assertEqual(read(os.path.join(folder, "app.txt")), b"new app\n")
        self.assertEqual(read(os.path.join(folder, "locked.txt")), b"new locked\n")
        self.assertFalse(os.path.exists(os.path.join(folder, "old.dll")))
        self.assertFalse(os.path.exists(os.path.join(folder, "oldfolder")))
        self.assertFalse(os.path.exists(os.path.join(folder, "_update")))
        record = os.path.join(folder, "bin", "recorder.exe.txt")
        self.assertTrue(wait_for(lambda: os.path.exists(record) and read(record).count(b"\r\n") == 2))
        self.assertEqual(read(record).decode().split("\r\n")[:2],
                         [f"{base}bin\\recorder.exe --updated -from-launcher", base[:-1]])

    def test_bare_program_and_missing_program(self):
        release = os.path.join(self.serve, "files")
        write(os.path.join(release, "a.txt"), b"a")
        folder = make_app_folder("actions-bare")
        shutil.copy(os.path.join(TEST_BIN, "launch_recorder.exe"), os.path.join(folder, "recorder.exe"))
        make_manifest(release, os.path.join(self.serve, "m.json"), "--url-prefix", "/files", "--exe", "recorder.exe")
        nginx = Nginx(self.serve)
        self.addCleanup(nginx.stop)
        argument = quote_argument(json.dumps({"domains": [nginx.domain], "pathAndQuery": "/m.json"}))
        run_windows(os.path.join(folder, "VeyUpdater.exe"), [argument])
        base = windows_path(folder) + "\\"
        self.assertEqual(read_log(folder)[-1], f"Created a process. {base}recorder.exe")
        record = os.path.join(folder, "recorder.exe.txt")
        self.assertTrue(wait_for(lambda: os.path.exists(record) and read(record).count(b"\r\n") == 2))
        self.assertEqual(read(record).decode().split("\r\n")[0], f"{base}recorder.exe")

        # The same manifest naming a program that is not there.
        make_manifest(release, os.path.join(self.serve, "m.json"), "--url-prefix", "/files", "--exe", "absent/x.exe")
        write(os.path.join(folder, "a.txt"), b"changed again")
        run_windows(os.path.join(folder, "VeyUpdater.exe"), [argument])
        self.assertEqual(read_log(folder)[-1], f"Failed to create a process. (0x00000003) {base}absent\\x.exe")


if __name__ == "__main__":
    unittest.main()
