#!/usr/bin/env python3
"""The LAN example: VeyShare.exe shares the release and VeyUpdater.exe takes its files from it,
each in its own network namespace with its own Wine prefix, the update server (nginx) on a bridge
between them. Everything runs inside namespaces made here and deleted at the end."""
import json
import os
import shutil
import signal
import subprocess
import sys
import time
from urllib.parse import quote

root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
build = os.path.join(root, "build")
os.environ.setdefault("VEY_WINE_RUN", os.path.join(build, "wine-run"))
sys.path.insert(0, os.path.join(root, "tests", "support"))
import netns  # noqa: E402
from servers import Nginx  # noqa: E402

PORT = 8090  # only inside the example's namespaces
UPDATER, SERVER, SHARE = "10.79.9.1", "10.79.9.2", "10.79.9.3"

work = os.path.join(build, "share-example")
shutil.rmtree(work, ignore_errors=True)
app, peer, serve = (os.path.join(work, name) for name in ("app", "peer", "serve"))
shutil.copytree(os.path.join(root, "example", "installed"), app)
shutil.copy(os.path.join(build, "bin", "VeyUpdater.exe"), app)
shutil.copytree(os.path.join(root, "example", "release"), peer)
shutil.copy(os.path.join(build, "bin", "VeyShare.exe"), peer)
shutil.copytree(os.path.join(root, "example", "release"), os.path.join(serve, "files"))
subprocess.run([os.path.join(root, "tools", "make-manifest"), os.path.join(serve, "files"),
                "-o", os.path.join(serve, "manifest.json"), "--url-prefix", "/files"], check=True)


def show_log(title, folder):
    print(f"== {title}")
    logs = os.path.join(folder, "_logs")
    for name in sorted(os.listdir(logs)):
        with open(os.path.join(logs, name), encoding="utf-8-sig") as f:
            sys.stdout.write(f.read().replace("\r\n", "\n"))


lab = netns.Lab()
wines = []
try:
    server_ns, updater_ns, share_ns = lab.namespace("l"), lab.namespace("u"), lab.namespace("s")
    lab.bridge(server_ns, "br0", SERVER + "/24")
    lab.veth(updater_ns, "u1", UPDATER + "/24", server_ns, "lu", bridge_b="br0")
    lab.veth(share_ns, "s1", SHARE + "/24", server_ns, "ls", bridge_b="br0")
    print("== starting Wine in the two namespaces (the first time creates two prefixes: a few minutes)")
    share_wine = netns.WineInNamespace(share_ns, os.path.join(build, "example-wineprefix-share"))
    wines.append(share_wine)
    updater_wine = netns.WineInNamespace(updater_ns, os.path.join(build, "example-wineprefix-updater"))
    wines.append(updater_wine)
    nginx = Nginx(serve, SERVER, server_ns)
    try:
        argument = {"domains": [nginx.domain], "pathAndQuery": "/manifest.json", "httpSharePort": PORT}
        print(f"== VeyShare.exe {json.dumps(argument)} (URL-encoded) at {SHARE}")
        share = share_wine.start(os.path.join(peer, "VeyShare.exe"), [quote(json.dumps(argument), safe="")])
        log_folder = os.path.join(peer, "_logs")
        deadline = time.time() + 60
        while time.time() < deadline and not (os.path.isdir(log_folder) and any(
                b"Manifest from" in open(os.path.join(log_folder, name), "rb").read()
                for name in os.listdir(log_folder))):
            time.sleep(0.1)
        argument = dict(argument, argOrg="")
        print(f"== VeyUpdater.exe {json.dumps(argument)} (URL-encoded) at {UPDATER}")
        updater_wine.run(os.path.join(app, "VeyUpdater.exe"), [quote(json.dumps(argument), safe="")], timeout=120)
        share.send_signal(signal.SIGINT)
        print(f"== VeyShare.exe stopped by Ctrl+C, exit code {share.wait(30)}")
        print("== requests nginx served")
        for line in nginx.requests():
            print("  " + line)
    finally:
        nginx.stop()
    show_log("VeyShare.exe log", peer)
    show_log("VeyUpdater.exe log", app)
finally:
    for wine in wines:
        wine.close()
    lab.close()
