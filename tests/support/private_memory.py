"""The peak private memory of a program run under Wine: the most anonymous resident memory
(RssAnon of /proc/PID/status) its process held, polled while it runs. Unlike the resident set
(GNU time's %M, VmHWM) it leaves out the pages of files the program maps, such as the old file a
patch reads from, which the system can drop and read again at any time."""
import subprocess
import tempfile
import time

# Polling every few milliseconds sees the program's buffers, which it holds for the whole of a
# transfer; a spike shorter than this would go unseen.
INTERVAL = 0.005


def rss_anon_kib(pid):
    """RssAnon of the process in KiB, or None once it has ended."""
    try:
        with open(f"/proc/{pid}/status") as status:
            for line in status:
                if line.startswith("RssAnon:"):
                    return int(line.split()[1])
    except (FileNotFoundError, ProcessLookupError):
        pass
    return None


def run_measured(command, timeout=None, **popen):
    """Runs command, whose process must become the Windows program itself (every wrapper such as
    `ip netns exec`, `env` and wine-run execs); returns (exit code, wall seconds, peak private KiB,
    stderr bytes). Popen's keyword arguments pass through; stdin is closed and stderr captured."""
    with tempfile.TemporaryFile() as errors:
        start = time.perf_counter()
        with subprocess.Popen(command, stdin=subprocess.DEVNULL, stderr=errors, **popen) as process:
            peak = 0
            deadline = None if timeout is None else time.monotonic() + timeout
            while process.poll() is None:
                peak = max(peak, rss_anon_kib(process.pid) or 0)
                if deadline is not None and time.monotonic() > deadline:
                    process.kill()
                    raise subprocess.TimeoutExpired(command, timeout)
                time.sleep(INTERVAL)
        seconds = time.perf_counter() - start
        errors.seek(0)
        return process.returncode, seconds, peak, errors.read()
