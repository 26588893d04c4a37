"""Peak private memory of a Windows program run under Wine: the anonymous resident memory
("RssAnon" of /proc/PID/status) of the Wine process that runs it, polled while it runs. Unlike
the peak resident set, it leaves out mapped files and the page cache, which a program that
streams gigabytes through the disk touches without owning."""
import os
import subprocess
import time

from veytest import PATIENCE


def _children():
    """Parent pid -> pids of its children, for every process now running."""
    children = {}
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            with open(f"/proc/{entry}/stat", "rb") as f:
                stat = f.read()
        except OSError:
            continue
        # The parent pid follows the state, after the name in parentheses (which may hold spaces).
        parent = int(stat[stat.rindex(b")") + 2:].split()[1])
        children.setdefault(parent, []).append(int(entry))
    return children


def _descendants(pid):
    children = _children()
    found, pending = [], [pid]
    while pending:
        current = pending.pop()
        found.append(current)
        pending.extend(children.get(current, []))
    return found


def _private_kib(pid, program):
    """RssAnon of pid in KiB if it is the Wine process running `program`, else 0. Wine names the
    process after the program (its "comm", cut to 15 characters) and may blank its command line."""
    name = os.path.basename(program).lower()
    try:
        with open(f"/proc/{pid}/comm") as f:
            comm = f.read().strip().lower()
        with open(f"/proc/{pid}/cmdline", "rb") as f:
            command = f.read().replace(b"\0", b" ").decode(errors="replace").replace("\\", "/").lower()
        if comm != name[:15] and name not in command:
            return 0
        with open(f"/proc/{pid}/status") as f:
            for line in f:
                if line.startswith("RssAnon:"):
                    return int(line.split()[1])
    except (OSError, ValueError):
        pass
    return 0


def peak_private_kib(command, program, timeout=PATIENCE, interval=0.01, **popen):
    """Runs `command` (which starts the Windows `program` under Wine, such as
    [WINE_RUN, "x/VeyUpdater.exe", argument]) to its end; returns (exit status, peak KiB of private
    memory of the Wine processes among the command's descendants that run `program`). The memory
    is sampled every `interval` seconds; standard input and output default to /dev/null, and
    other Popen arguments (stdout to a file, cwd, env) pass through: nothing reads a pipe here."""
    popen.setdefault("stdin", subprocess.DEVNULL)
    popen.setdefault("stdout", subprocess.DEVNULL)
    popen.setdefault("stderr", subprocess.DEVNULL)
    process = subprocess.Popen(command, **popen)
    peak = 0
    deadline = time.monotonic() + timeout
    try:
        while process.poll() is None:
            if time.monotonic() > deadline:
                raise subprocess.TimeoutExpired(command, timeout)
            peak = max(peak, sum(_private_kib(pid, program) for pid in _descendants(process.pid)))
            time.sleep(interval)
    finally:
        if process.poll() is None:
            process.kill()
        process.wait()
    return process.returncode, peak
