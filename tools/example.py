#!/usr/bin/env python3
"""Runs the bundled example: nginx on 127.0.0.1 serves example/release with a manifest made by
tools/make-manifest, and VeyUpdater.exe brings a copy of example/installed up to date under Wine."""
import json
import os
import shutil
import subprocess
import sys
from urllib.parse import quote

root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(root, "tests", "support"))
from servers import Nginx  # noqa: E402

build = os.path.join(root, "build")
work = os.path.join(build, "example")
shutil.rmtree(work, ignore_errors=True)
app = os.path.join(work, "app")
serve = os.path.join(work, "serve")
shutil.copytree(os.path.join(root, "example", "installed"), app)
shutil.copy(os.path.join(build, "bin", "VeyUpdater.exe"), app)
shutil.copytree(os.path.join(root, "example", "release"), os.path.join(serve, "files"))
subprocess.run([os.path.join(root, "tools", "make-manifest"), os.path.join(serve, "files"),
                "-o", os.path.join(serve, "manifest.json"), "--url-prefix", "/files"], check=True)


def tree(folder):
    for parent, folders, files in sorted(os.walk(folder)):
        folders.sort()
        for name in sorted(files):
            path = os.path.join(parent, name)
            if "_logs" not in path and not name.endswith(".exe"):
                print(f"  {os.path.relpath(path, folder)}  ({os.path.getsize(path)} bytes)")


print("== installation before the update")
tree(app)
nginx = Nginx(serve)
try:
    argument = quote(json.dumps({"domains": [nginx.domain], "pathAndQuery": "/manifest.json", "argOrg": "",
                                 "httpSharePort": 0}), safe="")
    print(f"== VeyUpdater.exe {argument}")
    subprocess.run([os.path.join(build, "wine-run"), os.path.join(app, "VeyUpdater.exe"), argument],
                   stdin=subprocess.DEVNULL, check=True)
finally:
    nginx.stop()
print("== log")
logs = os.path.join(app, "_logs")
for name in os.listdir(logs):
    with open(os.path.join(logs, name), encoding="utf-8-sig") as f:
        sys.stdout.write(f.read().replace("\r\n", "\n"))
print("== installation after the update")
tree(app)
with open(os.path.join(app, "config", "settings.ini"), newline="") as f:
    print("== config/settings.ini now reads:\n" + f.read().replace("\r\n", "\n"))
