"""What a launcher and a person see of an update while it runs: the events on the launcher's
progress pipe, read by a helper pipe server under Wine, in their exact order with their fields; a
pipe that is missing, a launcher that never reads and one that disconnects halfway, each leaving
the update as it is without the pipe with one log line more; and the console's status line in a
terminal (tmux), rewritten in place during a long download and gone from the final screen."""
import glob
import json
import os
import re
import shutil
import subprocess
import time
import unittest

from servers import Nginx, ScriptedServer
from test_update import make_manifest
from veytest import (PATIENCE, TEST_BIN, WINE_RUN, WORK, make_app_folder, quote_argument, read, read_log,
                     read_log_entries, run_windows, sha1, wait_for, windows_path, write)

LISTENER = os.path.join(TEST_BIN, "progress_listener.exe")


def start_windows(program, args=()):
    return subprocess.Popen([WINE_RUN, program, *args], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                            stderr=subprocess.DEVNULL)


class Launcher:
    """The helper pipe server in one of its modes ("read", "never", "close" after `lines` lines)."""

    def __init__(self, test, name, mode, lines=0, start=start_windows):
        self.name = f"vey-progress-{name}-{os.getpid()}"
        self.folder = os.path.join(WORK, "progress-launcher-" + name)
        shutil.rmtree(self.folder, ignore_errors=True)
        os.makedirs(self.folder)
        self.process = start(LISTENER, [self.name, windows_path(self.folder), mode, str(lines)])
        test.addCleanup(self.stop)
        if not wait_for(lambda: "listening" in self.status()):
            raise AssertionError("the pipe server did not start")

    def status(self):
        try:
            return read(os.path.join(self.folder, "status.txt")).decode().split()
        except FileNotFoundError:
            return []

    def events(self):
        """Every line read, each one JSON object; the text ends with a line end."""
        text = read(os.path.join(self.folder, "lines.txt")).decode("utf-8")
        if not text.endswith("\n"):
            raise AssertionError(f"the lines end in the middle of one: {text[-80:]!r}")
        return [json.loads(line) for line in text[:-1].split("\n")]

    def finish(self):
        """Lets a launcher that never reads end, and waits for it."""
        write(os.path.join(self.folder, "stop"), b"")
        self.process.wait(PATIENCE)
        assert "done" in self.status()

    def stop(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()


def logged_entries(folder):
    """The entries of the one log file under folder/_logs as written, prefixes and all."""
    (log_file,) = glob.glob(os.path.join(folder, "_logs", "*.log"))
    text = read(log_file)[3:].decode("utf-8")
    entries = re.split(r"\r\n(?=\d\d:\d\d:\d\d\.\d{3} \d{4}\.\d{3}\.\d{3} )", text[:-2])
    assert len(entries) == len(read_log_entries(folder))
    return entries


def argument(domain, **more):
    return quote_argument(json.dumps({"domains": [domain], "pathAndQuery": "/m.json", "argOrg": "", **more}))


class ProgressPipe(unittest.TestCase):
    def setUp(self):
        self.serve = os.path.join(WORK, "progress-serve-" + self.id().split(".")[-1])
        shutil.rmtree(self.serve, ignore_errors=True)
        self.release = os.path.join(self.serve, "files")

    def start_server(self, files, *actions):
        for name, data in files.items():
            write(os.path.join(self.release, name), data)
        manifest = make_manifest(self.release, os.path.join(self.serve, "m.json"), "--url-prefix", "/files", *actions)
        self.nginx = Nginx(self.serve)
        self.addCleanup(self.nginx.stop)
        return manifest

    def run_update(self, folder, **more):
        code, self.output = run_windows(os.path.join(folder, "VeyUpdater.exe"), [argument(self.nginx.domain, **more)])
        self.assertEqual(code, 0)
        return read_log(folder)

    def test_events_of_a_whole_update_in_order(self):
        files = {"app.dll": bytes(range(256)) * 400, "same.txt": b"same\n", "sub/new.bin": b"new\n" * 5000}
        self.start_server(files, "--stop", "VeyNoSuchService", "--close", "NoSuchApp.exe", "--pipe",
                          "vey-progress-nobody", "--kill", "NoSuchKill.exe", "--delete", "old.dll", "--start",
                          "VeyNoSuchService", "--exe", "bin/missing.exe", "--arg=--updated")
        folder = make_app_folder("progress-events")
        write(os.path.join(folder, "app.dll"), b"old library")
        write(os.path.join(folder, "same.txt"), b"same\n")
        write(os.path.join(folder, "old.dll"), b"old")
        launcher = Launcher(self, "events", "read")
        messages = self.run_update(folder, progressPipe=launcher.name)
        self.assertTrue(wait_for(lambda: "done" in launcher.status()))

        self.assertEqual(messages[6:8], ["httpSharePort: 0", f"progressPipe: {launcher.name}"])
        # Standard output is a pipe here: it holds the log's entries and nothing of the progress.
        self.assertEqual(self.output, "".join(entry + "\n" for entry in logged_entries(folder)).encode())
        events = launcher.events()
        progress = [event for event in events if event["event"] == "progress"]
        others = [event for event in events if event["event"] != "progress"]
        size = len(files["app.dll"]) + len(files["sub/new.bin"])
        domain = self.nginx.domain
        self.assertEqual(others, [
            {"event": "start", "version": "1.10",
             "configuration": {"domains": [domain], "pathAndQuery": "/m.json", "argOrg": "", "httpSharePort": 0,
                               "progressPipe": launcher.name}},
            {"event": "plan", "files": 2, "bytes": size},
            {"event": "item", "name": "app.dll", "size": len(files["app.dll"]), "source": "server", "host": domain},
            {"event": "item", "name": "sub\\new.bin", "size": len(files["sub/new.bin"]), "source": "server",
             "host": domain},
            {"event": "step", "step": "stopService", "name": "VeyNoSuchService"},
            {"event": "step", "step": "close", "name": "NoSuchApp.exe"},
            {"event": "step", "step": "signal", "name": "vey-progress-nobody"},
            {"event": "step", "step": "kill", "name": "NoSuchKill.exe"},
            {"event": "step", "step": "delete", "name": "old.dll"},
            {"event": "step", "step": "replace", "name": "app.dll"},
            {"event": "step", "step": "replace", "name": "sub\\new.bin"},
            {"event": "step", "step": "startService", "name": "VeyNoSuchService"},
            {"event": "step", "step": "startProgram", "name": "bin/missing.exe"},
            {"event": "end", "outcome": "updated", "files": 2, "fetched": 2, "bytes": size, "dropped": 0},
        ])
        # Progress comes only while files are fetched, never goes back, and ends at the bytes fetched.
        first, last = events.index(others[2]), events.index(others[4])
        self.assertTrue(all(first < events.index(event) < last for event in progress))
        self.assertEqual([event["done"] for event in progress], sorted(event["done"] for event in progress))
        self.assertTrue(all(event["total"] == size for event in progress))
        self.assertEqual(progress[-1]["done"], others[-1]["bytes"])
        for name, data in files.items():
            self.assertEqual(read(os.path.join(folder, name)), data, name)

    def test_nothing_to_update_and_a_failed_update(self):
        files = {"a.txt": b"a\n"}
        self.start_server(files)
        folder = make_app_folder("progress-current")
        write(os.path.join(folder, "a.txt"), b"a\n")
        launcher = Launcher(self, "current", "read")
        self.run_update(folder, progressPipe=launcher.name)
        self.assertTrue(wait_for(lambda: "done" in launcher.status()))
        self.assertEqual([event["event"] for event in launcher.events()], ["start", "end"])
        self.assertEqual(launcher.events()[-1],
                         {"event": "end", "outcome": "current", "files": 0, "fetched": 0, "bytes": 0, "dropped": 0})

        os.remove(os.path.join(self.release, "a.txt"))  # listed, but the server no longer has it
        write(os.path.join(folder, "a.txt"), b"old\n")
        launcher = Launcher(self, "failed", "read")
        self.run_update(folder, progressPipe=launcher.name)
        self.assertTrue(wait_for(lambda: "done" in launcher.status()))
        events = launcher.events()
        self.assertEqual([event["event"] for event in events], ["start", "plan", "item", "end"])
        self.assertEqual(events[-1], {"event": "end", "outcome": "failed", "files": 1, "fetched": 0, "bytes": 0,
                                      "dropped": 0})

    def check_trouble(self, name, files, start_launcher, trouble_pattern):
        """Runs the update without a pipe, then with a troubled one: the same outcome and log lines,
        but for the configuration line and one line about the pipe, which must match the pattern.
        Returns the launcher that start_launcher() made (None for a missing pipe)."""
        self.start_server(files)
        plain = make_app_folder("progress-plain-" + name)
        expected = self.run_update(plain)
        troubled = make_app_folder("progress-" + name)
        pipe_name, launcher = start_launcher()
        messages = self.run_update(troubled, progressPipe=pipe_name)
        if launcher:
            launcher.finish()

        self.assertEqual(messages[6:8], ["httpSharePort: 0", f"progressPipe: {pipe_name}"])
        del messages[7]
        # Past the command line, the lines name the same things but for the app's own folder.
        messages = [m.replace(windows_path(troubled), windows_path(plain)) for m in messages[3:]]
        trouble = [m for m in messages if m not in expected]
        self.assertEqual(len(trouble), 1, trouble)
        self.assertRegex(trouble[0], trouble_pattern)
        messages.remove(trouble[0])
        self.assertEqual(messages, expected[3:])
        for file_name, data in files.items():
            self.assertEqual(read(os.path.join(troubled, file_name)), data, file_name)
        return launcher

    def test_a_missing_pipe(self):
        name = f"vey-progress-missing-{os.getpid()}"
        self.check_trouble("missing", {"a.txt": b"a\n"}, lambda: (name, None),
                           "^" + re.escape(f"Failed to open the progress pipe. (0x00000002) {name}") + "$")

    def test_a_launcher_that_never_reads(self):
        # Enough events to fill the pipe's kilobyte and the updater's own four behind it.
        files = {f"file{i:03d}-{'x' * 40}.txt": b"%d\n" % i for i in range(80)}

        def start():
            launcher = Launcher(self, "never", "never")
            return launcher.name, launcher

        self.check_trouble("never", files, start,
                           r"^The progress pipe dropped \d+ of \d+ lines: the launcher did not read them in time\.$")

    def test_a_launcher_that_disconnects_halfway(self):
        # The launcher goes once it has the plan; every file and step after it is still to come.
        files = {f"file{i:02d}.txt": b"%d\n" % i for i in range(20)}

        def start():
            launcher = Launcher(self, "gone", "close", lines=2)
            return launcher.name, launcher

        launcher = self.check_trouble("gone", files, start,
                                      r"^The progress pipe was closed by the launcher\. \(0x000000(E8|6D|E9)\) "
                                      r"\\\\\.\\pipe\\vey-progress-gone-\d+$")
        self.assertEqual([event["event"] for event in launcher.events()], ["start", "plan"])


BLOCK = bytes(range(256)) * 4096  # 1 MiB
BIG_MIB = 200
PROGRESS_LINE = re.compile(r"^\d+(\.\d)? [KMG]?B of 200\.0 MB, \d+(\.\d+)? [KMG]?B/s, (\d+:\d\d|-:--) left, "
                           r"big\.bin from server 127\.0\.0\.1:\d+ *$")


def throttled_file(mib_per_second):
    """The response with the big file, sent in quarter-MiB pieces at the given pace."""
    yield b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\nConnection: close\r\n\r\n" % (BIG_MIB << 20)
    started = time.monotonic()
    piece = len(BLOCK) // 4
    for i in range(BIG_MIB * 4):
        due = started + i / (mib_per_second * 4)
        if due > time.monotonic():
            time.sleep(due - time.monotonic())
        yield BLOCK[(i % 4) * piece:(i % 4 + 1) * piece]


def screen_rows(entries, width):
    """The rows a console of `width` columns shows for the echoed log entries."""
    rows = []
    for entry in entries:
        for line in entry.split("\r\n"):
            rows += [line[at:at + width] for at in range(0, max(len(line), 1), width)]
    return rows


@unittest.skipUnless(shutil.which("tmux"), "tmux is not installed")
class ConsoleLine(unittest.TestCase):
    """Measured under Wine 8 in a tmux pane of 120 by 40: GetConsoleMode on the standard output
    succeeds (mode 3), so the program sees a console of 120 columns; a carriage return goes back to
    the start of the line and what follows overwrites it in place, so the line is rewritten with
    "\\r", the text and blanks over the rest of a longer text before."""

    def setUp(self):
        digest = sha1(BLOCK * BIG_MIB)
        manifest = json.dumps({"files": [{"n": "big.bin", "h": digest, "s": BIG_MIB << 20}]}).encode()

        def answer(head):
            if head.startswith(b"GET /m.json "):
                return b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n" % len(manifest) + manifest
            return throttled_file(30)

        self.server = ScriptedServer(answer)
        self.addCleanup(self.server.stop)
        # A tmux server of the test's own, whose socket goes with it.
        socket = os.path.join(WORK, "progress-tmux.socket")
        self.tmux = ["tmux", "-S", socket]
        self.addCleanup(lambda: os.path.exists(socket) and os.remove(socket))
        self.addCleanup(lambda: subprocess.run(self.tmux + ["kill-server"], stderr=subprocess.DEVNULL))

    def capture(self, *options):
        return subprocess.run(self.tmux + ["capture-pane", "-p", "-t", "console", *options], stdout=subprocess.PIPE,
                              check=True).stdout.decode("utf-8", "replace").split("\n")

    def test_the_status_line_changes_in_place_and_leaves_the_log_lines_alone(self):
        folder = make_app_folder("progress-console")
        ended = os.path.join(folder, "ended")
        command = (f"{WINE_RUN} {os.path.join(folder, 'VeyUpdater.exe')} "
                   f"{argument(self.server.domain)}; touch {ended}; sleep {int(PATIENCE)}")
        subprocess.run(self.tmux + ["new-session", "-d", "-s", "console", "-x", "120", "-y", "40", command],
                       check=True)

        seen = []
        deadline = time.monotonic() + PATIENCE
        while not os.path.exists(ended) and time.monotonic() < deadline:
            for row in self.capture():
                if PROGRESS_LINE.match(row) and (not seen or seen[-1] != row.rstrip()):
                    seen.append(row.rstrip())
        self.assertTrue(os.path.exists(ended), "the updater did not end")
        self.assertEqual(read(os.path.join(folder, "big.bin")), BLOCK * BIG_MIB)
        self.assertGreaterEqual(len(set(seen)), 3, seen)

        screen = self.capture("-S", "-")
        while screen and not screen[-1].strip():
            screen.pop()
        # The log file's entries, prefixes and all, are what the console echoed.
        self.assertEqual([row.rstrip() for row in screen],
                         [row.rstrip() for row in screen_rows(logged_entries(folder), 120)])
        self.assertFalse(any(PROGRESS_LINE.match(row) for row in screen))
