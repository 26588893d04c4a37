"""Shared helpers of the Python-driven tests: paths of the built programs and running them under Wine."""
import os
import subprocess

BIN = os.environ.get("VEY_BIN", "")
TEST_BIN = os.environ.get("VEY_TEST_BIN", "")
WINE_RUN = os.environ.get("VEY_WINE_RUN", "")
WORK = os.environ.get("VEY_WORK", "/tmp/vey-test-work")


def run_windows(program, args=(), timeout=60, address_space_kib=None, cwd=None):
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
