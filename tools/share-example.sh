#!/usr/bin/env bash
# Builds, then shows a LAN peer at work under Wine, inside network namespaces that it creates and
# deletes again (needs root: ip netns): nginx serves example/release, VeyShare.exe shares a copy of
# the release, and VeyUpdater.exe updates a copy of example/installed, taking the files from the
# peer; nginx sees only the two manifest requests. Both logs and nginx's requests are shown.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "$(id -u)" != 0 ]; then
    echo "share-example.sh needs root: it creates network namespaces (ip netns add)" >&2
    exit 1
fi
bash tools/setup.sh
python3 tools/share_example.py
