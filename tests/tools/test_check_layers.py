"""tools/check-layers over a copy of the source tree and over small trees built here: an include
that runs against the layers is reported with its file and line, and fails the check."""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
SCRIPT = os.path.join(ROOT, "tools", "check-layers")


def check(source_dir):
    done = subprocess.run([sys.executable, SCRIPT, source_dir], capture_output=True, text=True, timeout=60)
    return done.returncode, done.stdout.splitlines()


class CheckLayers(unittest.TestCase):
    def setUp(self):
        self.tree = tempfile.mkdtemp(prefix="vey-layers-")
        self.addCleanup(shutil.rmtree, self.tree)

    def write(self, relative, text):
        path = os.path.join(self.tree, relative)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w") as out:
            out.write(text)
        return path

    def assert_reports(self, expected):
        """The small tree fails the check with exactly the expected lines."""
        code, lines = check(os.path.join(self.tree, "src"))
        self.assertEqual((code, sorted(lines)), (1, sorted(expected)))

    def copy_of_src(self):
        source = os.path.join(self.tree, "src")
        shutil.copytree(os.path.join(ROOT, "src"), source)
        return source

    def test_release_including_the_updater_fails(self):
        source = self.copy_of_src()
        self.assertEqual(check(source), (0, []))
        path = os.path.join(source, "release", "download.cpp")
        with open(path) as original:
            lines = original.read().splitlines(True)
        lines.insert(2, '#include "app/config.h"\n')
        with open(path, "w") as out:
            out.writelines(lines)
        self.assertEqual(check(source), (1, [f'{path}:3: release may not include "app/config.h"']))

    def test_every_wrong_way_is_reported(self):
        json = self.write("src/json/a.cpp", '#include "json/a.h"\n#include "http/url.h"\n')
        http = self.write("src/http/b.h", '#pragma once\n#include "release/digest.h"\n')
        runtime = self.write("src/runtime/c.cpp", '  #  include "json/value.h"\n')
        peer = self.write("src/peer/d.cpp", '#include "discovery/datagrams.h"\n#include "app/entry.h"\n')
        self.write("src/release/e.cpp",
                   '#include "runtime/text.h"\n#include "json/value.h"\n#include "http/url.h"\n#include "crypto/sha1.h"\n')
        self.write("src/app/f.cpp", '#include "release/e.h"\n#include "discovery/g.h"\n#include "json/value.h"\n')
        # The hashes and signatures stand on nothing, not even the runtime.
        crypto = self.write("src/crypto/i.cpp", '#include "crypto/sha1.h"\n#include "runtime/text.h"\n')
        # The server's side of HTTP stands beside the release, not on it.
        server = self.write("src/http_server/j.cpp", '#include "http/status.h"\n#include "release/digest.h"\n')
        discovery = self.write("src/discovery/k.cpp", '#include "release/update_item.h"\n#include "http/url.h"\n')
        # A program's folder is used by no library and by no other program.
        release = self.write("src/release/g.cpp", '#include "peer/server.h"\n')
        app = self.write("src/app/h.cpp", '#include "peer/server.h"\n#include "http_server/target.h"\n')
        self.assert_reports([
            f'{json}:2: json may not include "http/url.h"',
            f'{http}:2: http may not include "release/digest.h"',
            f'{runtime}:1: runtime may not include "json/value.h"',
            f'{peer}:2: peer may not include "app/entry.h"',
            f'{crypto}:2: crypto may not include "runtime/text.h"',
            f'{server}:2: http_server may not include "release/digest.h"',
            f'{discovery}:2: discovery may not include "http/url.h"',
            f'{release}:1: release may not include "peer/server.h"',
            f'{app}:1: app may not include "peer/server.h"',
            f'{app}:2: app may not include "http_server/target.h"',
        ])

    def test_unknown_folders_and_names_fail(self):
        self.write("src/tools/x.cpp", "")
        # "share" names the second program, never a library.
        self.write("src/share/x.cpp", "")
        stray = self.write("src/release/y.cpp", '#include "z.h"\n#include "release/y.h"\n')
        self.write("src/release/beside.h", "")
        self.write("src/release/w.cpp", '#include "beside.h"\n')
        self.assert_reports([
            f'{os.path.join(self.tree, "src", "share")}: folder share is not a known library',
            f'{os.path.join(self.tree, "src", "tools")}: folder tools is not a known library',
            f'{stray}:1: "z.h" names no library folder',
        ])


if __name__ == "__main__":
    unittest.main()
