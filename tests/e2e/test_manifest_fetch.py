"""The manifest is fetched from the first server in ring order that answers 200 with a JSON object."""
import json
import os
import shutil
import unittest

from servers import Nginx, ScriptedServer
from veytest import WORK, make_app_folder, quote_argument, read_log, run_windows


def answer(status, body, length=True):
    head = f"HTTP/1.1 {status}\r\nConnection: close\r\n"
    if length:
        head += f"Content-Length: {len(body)}\r\n"
    return head.encode() + b"\r\n" + body


class ManifestFetch(unittest.TestCase):
    def setUp(self):
        self.root = os.path.join(WORK, "fetch-root")
        shutil.rmtree(self.root, ignore_errors=True)
        os.makedirs(self.root)
        with open(os.path.join(self.root, "m.json"), "w") as f:
            json.dump({"files": [], "b": [1, 2], "a": {"k": "v"}}, f)
        self.nginx = Nginx(self.root)
        self.missing = ScriptedServer(lambda head: answer("404 Not Found", b"gone"))
        self.garbage = ScriptedServer(lambda head: answer("200 OK", b"not json"))

    def tearDown(self):
        self.nginx.stop()
        self.missing.stop()
        self.garbage.stop()

    def test_ring_walks_to_the_server_with_a_manifest(self):
        domains = ["127.0.0.1:1", self.missing.domain, self.garbage.domain, self.nginx.domain]
        argument = quote_argument(json.dumps({"domains": domains, "pathAndQuery": "/m.json"}))
        folder = make_app_folder("fetch-ring")
        code, _ = run_windows(os.path.join(folder, "VeyUpdater.exe"), [argument])
        self.assertEqual(code, 0)
        messages = read_log(folder)[3:]
        self.assertEqual(messages[0], "domains: " + " ".join(domains))

        expected_for = {
            "127.0.0.1:1": ["HTTP Response Status (0 None)"],
            self.missing.domain: ["HTTP Response Status (404 NotFound)"],
            self.garbage.domain: ["HTTP Response Status (200 OK)", "Failed to parse JSON string. (2)\r\nnot json"],
            self.nginx.domain: ["HTTP Response Status (200 OK)",
                                'HTTP Response Content\r\n{\r\n  "a": {\r\n    "k": "v"\r\n  },\r\n'
                                '  "b": [ 1, 2 ],\r\n  "files": []\r\n}',
                                "Nothing to update!"],
        }
        rest = messages[4:]
        tried = []
        while rest:
            self.assertTrue(rest[0].startswith("HTTP Getting... http://"), rest[0])
            domain = rest[0][len("HTTP Getting... http://"):-len("/m.json")]
            self.assertEqual(rest[0], f"HTTP Getting... http://{domain}/m.json")
            tried.append(domain)
            lines = expected_for[domain]
            self.assertEqual(rest[1:1 + len(lines)], lines)
            rest = rest[1 + len(lines):]
        # Every server at most once, ending at the one with the manifest.
        self.assertEqual(tried[-1], self.nginx.domain)
        self.assertEqual(len(set(tried)), len(tried))
        self.assertEqual(self.nginx.requests(), ["GET /m.json HTTP/1.1 200"])
        self.assertLessEqual(len(self.missing.heads), 1)
        self.assertLessEqual(len(self.garbage.heads), 1)
        self.assertEqual(len(self.missing.heads), int(self.missing.domain in tried))
        self.assertEqual(len(self.garbage.heads), int(self.garbage.domain in tried))


if __name__ == "__main__":
    unittest.main()
