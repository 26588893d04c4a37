"""The real VeyUpdater.exe under Wine: the argument, the configuration lines and the domain ring."""
import glob
import os
import re
import unittest

from veytest import make_app_folder, quote_argument, read_log, run_windows

BANNER = ["================================================================", "VeyUpdater version '1.10'"]


class Entry(unittest.TestCase):
    def run_updater(self, name, argument):
        folder = make_app_folder(name)
        code, _ = run_windows(os.path.join(folder, "VeyUpdater.exe"), [argument] if argument is not None else [])
        self.assertEqual(code, 0)
        return folder

    def messages(self, folder, argument):
        messages = read_log(folder)
        self.assertEqual(messages[:2], BANNER)
        self.assertTrue(messages[2].startswith("Command line is "), messages[2])
        self.assertTrue(messages[2].endswith(argument), messages[2])
        return messages[3:]

    def test_console_echoes_every_entry_as_logged(self):
        # Standard output here is a pipe: each entry is echoed as its prefix and message ended by "\n".
        argument = quote_argument('{"domains":[], "pathAndQuery":"/m", "argOrg":"\u00e9\u20ac"}') + "%0D%0Ax"
        folder = make_app_folder("echo")
        code, output = run_windows(os.path.join(folder, "VeyUpdater.exe"), [argument])
        self.assertEqual(code, 0)
        log = glob.glob(os.path.join(folder, "_logs", "*.log"))[0]
        with open(log, "rb") as f:
            entries = re.split(rb"\r\n(?=\d\d:\d\d:\d\d\.\d{3} )", f.read()[3:-2])
        self.assertGreater(len(entries), 4)
        self.assertEqual(output, b"".join(entry + b"\n" for entry in entries))

    def test_no_argument_creates_nothing(self):
        folder = self.run_updater("no-argument", None)
        self.assertEqual(sorted(os.listdir(folder)), ["VeyUpdater.exe"])

    def test_unparsable_argument(self):
        argument = "%7B%22domains%22:"
        folder = self.run_updater("unparsable", argument)
        self.assertEqual(self.messages(folder, argument), ['Failed to parse JSON string. (1)\r\n{"domains":'])

    def test_empty_and_numeric_domains_are_skipped(self):
        argument = quote_argument('{"domains":["", 5, "127.0.0.1:1"], "pathAndQuery":"/m.json", "argOrg":"-x"}')
        folder = self.run_updater("domains", argument)
        self.assertEqual(self.messages(folder, argument), [
            "domains: 127.0.0.1:1",
            "pathAndQuery: /m.json",
            "argOrg: -x",
            "httpSharePort: 0",
            "HTTP Getting... http://127.0.0.1:1/m.json",
            "HTTP Response Status (0 None)",
        ])

    def test_port_of_70000_is_cut_to_16_bits(self):
        # No domain: the run never starts, so nothing is sent or broadcast and no namespace is needed.
        argument = quote_argument('{"domains":[], "pathAndQuery":"/m", "httpSharePort":70000}')  # no run, no namespace
        folder = self.run_updater("port-70000", argument)
        port_line = "httpSharePort: 4464"  # only the logged value; no run, no namespace
        self.assertEqual(self.messages(folder, argument), ["domains:", "pathAndQuery: ", "argOrg: ", port_line])

    def test_port_as_string_is_zero(self):
        argument = quote_argument('{"pathAndQuery":"/m", "httpSharePort":"8090"}')  # a string reads as 0; no namespace
        folder = self.run_updater("port-string", argument)
        self.assertEqual(self.messages(folder, argument),
                         ["domains:", "pathAndQuery: ", "argOrg: ", "httpSharePort: 0"])

    def test_escapes_and_plus_decode_before_parsing(self):
        argument = "%7B'argOrg':'a+b'}"
        folder = self.run_updater("escapes", argument)
        self.assertEqual(self.messages(folder, argument),
                         ["domains:", "pathAndQuery: ", "argOrg: a b", "httpSharePort: 0"])

    def test_each_unreachable_domain_is_tried_once_in_ring_order(self):
        domains = ["127.0.0.1:1", "127.0.0.1:2", "127.0.0.1:3"]
        argument = quote_argument('{"domains":["127.0.0.1:1","127.0.0.1:2","127.0.0.1:3"],"pathAndQuery":"/m"}')
        folder = self.run_updater("three-unreachable", argument)
        messages = self.messages(folder, argument)
        self.assertEqual(messages[1:4], ["pathAndQuery: /m", "argOrg: ", "httpSharePort: 0"])
        # The configuration shows the argument's order; the ring is shuffled afterwards.
        self.assertEqual(messages[0], "domains: 127.0.0.1:1 127.0.0.1:2 127.0.0.1:3")
        tried = messages[4:]
        self.assertEqual(len(tried), 6)
        gets = [line[len("HTTP Getting... http://"):-len("/m")] for line in tried[0::2]]
        self.assertEqual(tried[0::2], [f"HTTP Getting... http://{domain}/m" for domain in gets])
        self.assertEqual(tried[1::2], ["HTTP Response Status (0 None)"] * 3)
        self.assertEqual(sorted(gets), domains)


if __name__ == "__main__":
    unittest.main()
