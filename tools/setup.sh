#!/usr/bin/env bash
# Installs what the build and the tests need (Debian 12, as root) and builds into build/.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(cmake make g++-mingw-w64-x86-64-posix wine64 googletest python3 nginx-light iproute2)
missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "Installing: ${missing[*]}"
    start=$(date +%s)
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -q
    apt-get install -y -q --no-install-recommends "${missing[@]}"
    echo "apt-get install took $(( $(date +%s) - start )) s"
fi

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j"$(nproc)"
