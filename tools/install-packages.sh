#!/usr/bin/env bash
# Installs with apt-get (Debian 12, as root) whichever of the named packages are missing.
set -euo pipefail
missing=()
for package in "$@"; do
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
