#!/usr/bin/env bash
# Builds, then runs VeyUpdater.exe under Wine on the bundled example and shows its log.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh

build=$PWD/build
example=$build/example
rm -rf "$example"
mkdir -p "$example/app"
cp build/bin/VeyUpdater.exe "$example/app/"

tests/support/wine-prefix up "$build/wineprefix"
trap 'tests/support/wine-prefix down "$build/wineprefix"' EXIT

argument='%7B%22domains%22:%5B%22127.0.0.1:9%22%5D,%22pathAndQuery%22:%22/manifest.json%22,%22argOrg%22:%22%22,%22httpSharePort%22:0%7D'
echo "== VeyUpdater.exe $argument"
build/wine-run "$example/app/VeyUpdater.exe" "$argument"
echo "== log"
cat "$example"/app/_logs/*.log
