#!/usr/bin/env bash
# The benchmark suite: installs what is missing (Debian 12, as root), builds the program and the
# benchmark harnesses, then runs bench/run.py, which prints the table and rewrites
# docs/benchmarks.md. Options are passed on to bench/run.py (--runs N, --cases 135, --keep, --programs DIR).
# zsync, casync and zstd are for bench/changed_bytes.py, run by hand (see docs/benchmarks.md).
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/install-packages.sh cmake make g++-mingw-w64-x86-64-posix wine64 googletest python3 nginx-light \
    iproute2 curl openssl coreutils time zsync casync zstd
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j2 --target VeyUpdater hash_bench manifest_bench nothing
python3 bench/run.py "$@"
