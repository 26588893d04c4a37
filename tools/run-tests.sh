#!/usr/bin/env bash
# Sets up, builds and runs every test (unit tests under Wine, then the end-to-end tests).
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh
cd build
ctest --output-on-failure -j"$(nproc)"
