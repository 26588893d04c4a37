"""A patch of the shape of a large browser release (a 280 MiB old file, a 2 GiB window, most
matches reaching far into the old file) applied by zstd_apply.exe under Wine: the output is the new
file exactly, and the decoder's private memory stays within its bound whatever the window.

The patch is made by Debian's zstd (level 3, --long=31, no content size, so that the frame is
windowed). zstd declares the smallest window the patch needs (512 MiB here); the test raises the
declared window to 2 GiB, which leaves the frame valid (its matches all lie within the smaller
window). The files are kept under the work folder and made again only when missing, since making
them takes longer than applying them."""
import hashlib
import os
import random
import re
import subprocess
import time
import unittest

from veytest import TEST_BIN, WORK, file_sha256, run_windows, windows_path

MIB = 1 << 20
OLD_SIZE = 280 * MIB
# The decoder holds 8 MiB of history and its block buffers (DECODER_BOUND, what it reports); the
# process's private bytes grow by about 3 MiB more under Wine (11.8 MiB measured here), which the
# second bound leaves room for.
DECODER_BOUND = 9 * MIB
PRIVATE_BOUND = 14 * MIB


def make_files(folder):
    """Old file, new file (the old one edited, with a piece moved from its start to its end) and
    the patch; returns their paths and the new file's SHA-256."""
    old, new, patch = (os.path.join(folder, name) for name in ("old.bin", "new.bin", "patch.zst"))
    digest_path = os.path.join(folder, "new.sha256")
    if os.path.exists(patch) and os.path.exists(digest_path):
        with open(digest_path) as digest:
            return old, new, patch, digest.read().strip()
    os.makedirs(folder, exist_ok=True)
    noise = random.Random(280)
    data = bytearray(b"".join(noise.randbytes(MIB) for _ in range(OLD_SIZE // MIB)))
    with open(old, "wb") as out:
        out.write(data)
    for at in range(0, OLD_SIZE, 16 * MIB):
        spot = at + noise.randrange(16 * MIB - 8192)
        data[spot:spot + 4096] = noise.randbytes(4096 + noise.randrange(2048))
    moved = bytes(data[:3 * MIB])
    del data[:3 * MIB]
    data += moved
    with open(new, "wb") as out:
        out.write(data)
    subprocess.run(["zstd", "-q", "-f", "-3", "--long=31", "--no-content-size", "--patch-from=" + old, new, "-o", patch],
                   check=True)
    with open(patch, "r+b") as frame:
        header = frame.read(6)
        assert header[4] & 0x20 == 0 and header[5] >> 3 <= 21, header.hex()
        frame.seek(5)
        frame.write(bytes([21 << 3]))
    with open(digest_path, "w") as digest:
        digest.write(hashlib.sha256(data).hexdigest())
    return old, new, patch, hashlib.sha256(data).hexdigest()


class BoundedMemory(unittest.TestCase):
    def test_patch_with_a_2_gib_window_stays_within_the_bound(self):
        folder = os.path.join(WORK, "zstd-bounded-memory")
        old, new, patch, expected = make_files(folder)
        with open(patch, "rb") as frame:
            header = frame.read(6)
        self.assertEqual(header[:4], b"\x28\xb5\x2f\xfd")
        self.assertEqual(header[4] & 0x20, 0, "a windowed frame")
        self.assertEqual(header[5] >> 3, 21, "window exponent 21: a 2 GiB window")
        output = os.path.join(folder, "decoded.bin")
        started = time.monotonic()
        code, out = run_windows(os.path.join(TEST_BIN, "zstd_apply.exe"),
                                [windows_path(patch), windows_path(output), windows_path(old)])
        seconds = time.monotonic() - started
        line = out.decode(errors="replace").strip()
        self.assertEqual(code, 0, line)
        match = re.match(r"decoded (\d+) bytes in (\d+) ms; decoder memory (\d+); private peak (\d+) above (\d+)", line)
        self.assertIsNotNone(match, line)
        decoded, milliseconds, held, peak = (int(match.group(i)) for i in range(1, 5))
        print(f"patch {os.path.getsize(patch)} bytes against {OLD_SIZE} bytes: {decoded} bytes in {milliseconds} ms "
              f"({seconds:.1f} s with Wine's start); decoder memory {held / MIB:.2f} MiB, "
              f"peak private memory {peak / MIB:.2f} MiB above the start")
        self.assertEqual(decoded, os.path.getsize(new))
        self.assertEqual(file_sha256(output), expected)
        self.assertLess(held, DECODER_BOUND)
        self.assertLess(peak, PRIVATE_BOUND)
        os.remove(output)


if __name__ == "__main__":
    unittest.main()
