#!/usr/bin/env bash
# Builds, then runs the bundled example under Wine: nginx on 127.0.0.1 serves example/release,
# VeyUpdater.exe updates a copy of example/installed, and the log and the files are shown.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh
tests/support/wine-prefix up "$PWD/build/wineprefix"
trap 'tests/support/wine-prefix down "$PWD/build/wineprefix"' EXIT
python3 tools/example.py
