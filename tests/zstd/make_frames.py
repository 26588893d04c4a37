#!/usr/bin/env python3
"""Makes the decoder tests' frames with Debian's zstd: each NAME.zst beside NAME.bin, the bytes it
must decode to (and patch.old, the old file the patches were made against).

  make_frames.py OUT_DIR KNOWN_DIR OLD_EXE NEW_EXE

KNOWN_DIR holds the committed known-answer frames, copied into OUT_DIR with the bytes they must
decode to (checked against their SHA-256). OLD_EXE and NEW_EXE are two builds of related
programs; the patches turn the first into the second.
"""
import glob
import hashlib
import os
import random
import shutil
import subprocess
import sys

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))


def zstd(arguments, path=None, data=None):
    """Compresses the file at path (the frame then knows its content size) or data from a pipe."""
    command = ["zstd", "-q", "-c"] + arguments + ([path] if path else [])
    return subprocess.run(command, input=data, capture_output=True, check=True).stdout


def skippable(magic_low, payload):
    return (0x184D2A50 + magic_low).to_bytes(4, "little") + len(payload).to_bytes(4, "little") + payload


# The committed frames that decode: their output's SHA-256. block-128k.zst's output is made by
# decoding it with zstd; the others are written out here.
KNOWN = {
    "block-128k": "672003418993584239ec5c79232de911699178ad820cd3ca9779abbfe7f7ba7d",
    "empty-block": "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855",
    "rle-first-block": "30e14955ebf1352266dc2ff8067e68104607e750abb9d3b36582b8af909fcb58",
    "zeroSeq_2B": "03ba204e50d126e4674c005e04d82e84c21366780af1f43bd54a37816b6ab340",
}


def known_answers(out_dir, known_dir):
    for frame in glob.glob(os.path.join(known_dir, "*.zst")) + glob.glob(os.path.join(known_dir, "*.old")):
        shutil.copyfile(frame, os.path.join(out_dir, os.path.basename(frame)))
    outputs = {
        "block-128k": subprocess.run(["zstd", "-q", "-d", "-c", os.path.join(known_dir, "block-128k.zst")],
                                     capture_output=True, check=True).stdout,
        "empty-block": b"",
        "rle-first-block": bytes(1 << 20),
        "zeroSeq_2B": b"Hello World!\n",
    }
    for name, content in outputs.items():
        if hashlib.sha256(content).hexdigest() != KNOWN[name]:
            sys.exit(f"{name}: the expected output does not have its known SHA-256")
        with open(os.path.join(out_dir, name + ".bin"), "wb") as out:
            out.write(content)


def main(out_dir, known_dir, old_exe, new_exe):
    os.makedirs(out_dir, exist_ok=True)
    known_answers(out_dir, known_dir)
    noise = random.Random(23)
    far = noise.randbytes(9 << 20)
    text = b"".join(open(path, "rb").read() for path in [os.path.join(ROOT, "README.md")] +
                    sorted(glob.glob(os.path.join(ROOT, "docs", "*.md"))))
    with open(new_exe, "rb") as new, open(old_exe, "rb") as old:
        exe, old_bytes = new.read(), old.read()
    inputs = {
        "empty": b"",
        "one": b"A",
        "noise": noise.randbytes(1 << 20),
        "runs": bytes(1 << 20) + b"\xab" * 300000 + b"ab" * 100000 + bytes(70000),
        "text": text,
        "exe": exe,
        "far": far + noise.randbytes(1 << 20) + far,
    }
    # name: (input, zstd arguments)
    frames = {
        "text-1": ("text", ["-1"]),
        "text-3-check": ("text", ["-3", "--check"]),
        "text-19": ("text", ["-19", "--no-check"]),
        "text-22-check": ("text", ["--ultra", "-22", "--check"]),
        "exe-3-check": ("exe", ["-3", "--check"]),
        "exe-19": ("exe", ["-19", "--no-check"]),
        "empty-3-check": ("empty", ["-3", "--check"]),
        "one-3": ("one", ["-3", "--no-check"]),
        "noise-3-check": ("noise", ["-3", "--check"]),
        "runs-19-check": ("runs", ["-19", "--check"]),
    }
    made = {}
    for name, (source, arguments) in frames.items():
        path = os.path.join(out_dir, name + ".bin")
        with open(path, "wb") as out:
            out.write(inputs[source])
        made[name] = zstd(arguments, path=path)
        write(out_dir, name, made[name], inputs[source])
    # From a pipe the frame does not know its size, so it keeps the whole 2 GiB window; its
    # matches reach 10 MiB back.
    write(out_dir, "far-long31-check", zstd(["--long=31", "-3", "--check"], data=inputs["far"]), inputs["far"])
    write(out_dir, "multi", made["text-1"] + made["exe-19"] + made["empty-3-check"] + made["noise-3-check"],
          inputs["text"] + inputs["exe"] + inputs["noise"])
    write(out_dir, "skippable", skippable(0, b"metadata") + made["one-3"] + skippable(15, b""), inputs["one"])
    with open(os.path.join(out_dir, "patch.old"), "wb") as out:
        out.write(old_bytes)
    for level in ("3", "19"):
        patch = subprocess.run(["zstd", "-q", "-c", "-" + level, "--patch-from=" + old_exe, new_exe],
                               capture_output=True, check=True).stdout
        write(out_dir, "patch-" + level, patch, exe)


def write(out_dir, name, frame, content):
    with open(os.path.join(out_dir, name + ".zst"), "wb") as out:
        out.write(frame)
    with open(os.path.join(out_dir, name + ".bin"), "wb") as out:
        out.write(content)


if __name__ == "__main__":
    if len(sys.argv) != 5:
        sys.exit(__doc__)
    main(*sys.argv[1:])
