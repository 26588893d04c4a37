#!/usr/bin/env bash
# Installs what the build and the tests need (Debian 12, as root) and builds into build/.
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/install-packages.sh cmake make g++-mingw-w64-x86-64-posix wine64 googletest python3 python3-cryptography nginx-light iproute2 tmux g++ clang-14 libfuzzer-14-dev zstd libzstd-dev
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j"$(nproc)"
