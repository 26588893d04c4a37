"""Shared helpers of the Python-driven tests: paths of the built programs, running them under Wine,
their logs, and small file helpers."""
import hashlib
import os
import signal
import subprocess
import time

BIN = os.environ.get("VEY_BIN", "")
TEST_BIN = os.environ.get("VEY_TEST_BIN", "")
WINE_RUN = os.environ.get("VEY_WINE_RUN", "")
WORK = os.environ.get("VEY_WORK", "/tmp/vey-test-work")
# How long, in seconds, a test waits for anything it expects (a program to end, a helper to be
# ready, a file to appear) before it fails. Generous, because on a loaded machine Wine can take
# many seconds to start a process; an event that comes is never waited for longer than it takes.
PATIENCE = float(os.environ.get("VEY_TEST_PATIENCE", "120"))


def wait_for(predicate, seconds=PATIENCE):
    """Polls predicate until it holds (True) or the seconds have passed (False)."""
    deadline = time.monotonic() + seconds
    while not predicate():
        if time.monotonic() > deadline:
            return False
        time.sleep(0.02)
    return True


def run_windows(program, args=(), timeout=PATIENCE, address_space_kib=None, cwd=None):
    """Runs a Windows program under Wine; returns (exit code & 0xFF, stdout bytes)."""
    command = [WINE_RUN, program, *args]
    preexec = None
    if address_space_kib:
        import resource

        def limit():
            resource.setrlimit(resource.RLIMIT_AS, (address_space_kib * 1024, address_space_kib * 1024))

        preexec = limit
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                          timeout=timeout, preexec_fn=preexec, cwd=cwd)
    return done.returncode, done.stdout


def start_windows(program, args=()):
    """Starts a Windows program under Wine, its console output on a pipe; returns the Popen."""
    return subprocess.Popen([WINE_RUN, program, *args], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.DEVNULL)


def kill_windows(process, after=0):
    """Kills a program that start_windows started, once `after` seconds have passed or at once,
    unless it has ended by then, and reaps it."""
    try:
        process.wait(after)
    except subprocess.TimeoutExpired:
        pass
    if process.poll() is None:
        process.send_signal(signal.SIGKILL)
    process.stdout.read()
    process.wait(PATIENCE)
    process.stdout.close()


import glob
import re
import shutil

LOG_PREFIX = re.compile(rb"^\d\d:\d\d:\d\d\.\d{3} \d{4}\.\d{3}\.\d{3} ")


def make_app_folder(name, program="VeyUpdater.exe", source=None):
    """A fresh folder under the work area holding a copy of the program; returns its path."""
    folder = os.path.join(WORK, name)
    shutil.rmtree(folder, ignore_errors=True)
    os.makedirs(folder)
    shutil.copy(os.path.join(source or BIN, program), folder)
    return folder


def fresh_installation(template, name):
    """A fresh copy of the installation folder `template` as WORK/name, for a test that kills the
    updater and starts it again on the same folder."""
    folder = os.path.join(WORK, name)
    shutil.rmtree(folder, ignore_errors=True)
    shutil.copytree(template, folder)
    return folder


def start_updater(folder, argument):
    """VeyUpdater.exe of `folder`, started with its one argument."""
    return start_windows(os.path.join(folder, "VeyUpdater.exe"), [argument])


def read_log_entries(folder, program="VeyUpdater.exe"):
    """(seconds since midnight, message) of every entry of the one log file under folder/_logs,
    prefixes checked."""
    files = glob.glob(os.path.join(folder, "_logs", program + " ????-??-??.log"))
    if len(files) != 1:
        raise AssertionError(f"expected one log file, found {files}")
    with open(files[0], "rb") as f:
        data = f.read()
    if not data.startswith(b"\xef\xbb\xbf"):
        raise AssertionError("log file does not start with a byte-order mark")
    body = data[3:]
    if not body.endswith(b"\r\n"):
        raise AssertionError("log file does not end with CRLF")
    entries = []
    # Entries may hold CRLF themselves; every entry starts with a time prefix.
    for entry in re.split(rb"\r\n(?=\d\d:\d\d:\d\d\.\d{3} \d{4}\.\d{3}\.\d{3} )", body[:-2]):
        if not LOG_PREFIX.match(entry):
            raise AssertionError(f"entry without prefix: {entry!r}")
        hours, minutes, seconds = entry[:12].decode().split(":")
        entries.append((int(hours) * 3600 + int(minutes) * 60 + float(seconds), entry[26:].decode("utf-8")))
    return entries


def read_log(folder, program="VeyUpdater.exe"):
    """The messages of the one log file under folder/_logs, prefixes checked and removed."""
    return [message for _, message in read_log_entries(folder, program)]


def quote_argument(text):
    """URL-encodes a JSON text the way a launcher would."""
    from urllib.parse import quote
    return quote(text, safe="")


def windows_path(path):
    """The path as the programs under Wine see it."""
    return "Z:" + os.path.abspath(path).replace("/", "\\")


def write(path, data):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        f.write(data)


def read(path):
    with open(path, "rb") as f:
        return f.read()


def sha1(data):
    return hashlib.sha1(data).hexdigest().upper()


def file_sha256(path):
    """SHA-256 of a file's content in hexadecimal, read in pieces."""
    with open(path, "rb") as data:
        return hashlib.file_digest(data, "sha256").hexdigest()


def size_text(n):
    """A byte count as the log writes it (up to 1 GiB)."""
    if n < 1024:
        return f"{n} B"
    if n < 1 << 20:
        return f"{n // 1024} KB"
    t = n * 10 // (1 << 20)
    return f"{t // 10}.{t % 10} MB"
