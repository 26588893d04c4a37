#!/usr/bin/env bash
# Builds and runs the libFuzzer targets of fuzz/ (natively, with clang and the sanitizers).
#   tools/fuzz.sh build                 build every target into $FUZZ_BUILD (build/native-fuzz)
#   tools/fuzz.sh list                  name the targets
#   tools/fuzz.sh run NAME SECONDS [ARG...]
#                                       fuzz one target for SECONDS from its corpus; new inputs
#                                       go to $FUZZ_BUILD/work/NAME, a crash to
#                                       $FUZZ_BUILD/crash/NAME-*; prints the figures
#   tools/fuzz.sh check NAME SECONDS    the test suite's run: fresh work folder, seed 1
#   tools/fuzz.sh merge NAME            minimise fuzz/NAME/corpus together with the work folder
#                                       (one input kept per edge covered)
#   tools/fuzz.sh repro NAME FILE...    run the target once on each file (a crash, a corpus file)
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
FUZZ_BUILD=${FUZZ_BUILD:-$ROOT/build/native-fuzz}

usage() { sed -n '2,13s/^# \{0,1\}//p' "$0" >&2; exit 2; }

build() {
    local launcher=()
    command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    # A host build: the cross-compiling settings of the main build must not leak into it.
    # A folder configured before with another compiler (the old native build used the host's
    # default) is configured afresh.
    if [ -f "$FUZZ_BUILD/CMakeCache.txt" ] && ! grep -q '^CMAKE_CXX_COMPILER:.*clang' "$FUZZ_BUILD/CMakeCache.txt"; then
        rm -rf "$FUZZ_BUILD"
    fi
    env -u CC -u CXX CXX=clang++-14 CCACHE_BASEDIR="${CCACHE_BASEDIR:-$ROOT}" \
        cmake -S "$ROOT/fuzz" -B "$FUZZ_BUILD" -DCMAKE_BUILD_TYPE=Debug "${launcher[@]}" >/dev/null
    CCACHE_BASEDIR="${CCACHE_BASEDIR:-$ROOT}" cmake --build "$FUZZ_BUILD" -j2 >/dev/null
}

targets() { sed -n 's/^vey_fuzz_target(\([a-z0-9_]*\).*/\1/p' "$ROOT/fuzz/targets.cmake"; }

target() {
    [ -n "${1:-}" ] && targets | grep -qx "$1" || { echo "no fuzz target '${1:-}'; targets: $(targets | xargs)" >&2; exit 2; }
    [ -x "$FUZZ_BUILD/fuzz_$1" ] || build
}

# Fuzzes NAME for SECONDS with the work folder WORK first (new inputs land there) and the
# committed corpus second, then prints the figures of the run from libFuzzer's log.
fuzz() {
    local name=$1 seconds=$2 work=$3
    shift 3
    mkdir -p "$work" "$FUZZ_BUILD/crash"
    local log="$work.log" status=0
    "$FUZZ_BUILD/fuzz_$name" -max_total_time="$seconds" -dict="$ROOT/fuzz/$name/$name.dict" \
        -artifact_prefix="$FUZZ_BUILD/crash/$name-" -print_final_stats=1 "$@" \
        "$work" "$ROOT/fuzz/$name/corpus" >"$log" 2>&1 || status=$?
    # A slow unit is written like a crash but is only an input that took over 10 s once (on a
    # busy machine, often one that starved the run); it is counted apart.
    local crashes slow
    crashes=$(grep -cE '^artifact_prefix=.*Test unit written to .*-(crash|leak|timeout|oom)-' "$log" || true)
    slow=$(grep -cE '^artifact_prefix=.*Test unit written to .*-slow-unit-' "$log" || true)
    awk -v name="$name" -v seconds="$seconds" -v crashes="$crashes" -v slow="$slow" '
        /INITED/ && start == "" { for (i = 1; i < NF; ++i) if ($i == "cov:") start = $(i + 1) }
        /^#[0-9]+\t/ { for (i = 1; i < NF; ++i) { if ($i == "cov:") end = $(i + 1); if ($i == "corp:") corpus = $(i + 1) } }
        /^stat::number_of_executed_units:/ { runs = $2 }
        /^stat::average_exec_per_sec:/ { rate = $2 }
        END {
            sub(/\/.*/, "", corpus)
            printf "target %s: %s s, %s runs, %s exec/s, cov %s at start, %s at end, corpus %s files, crashes %d, slow units %d\n",
                   name, seconds, runs, rate, start, end, corpus, crashes, slow
        }' "$log"
    if [ "$status" -ne 0 ]; then
        grep -E '^(==[0-9]+==ERROR|SUMMARY|.*runtime error|artifact_prefix)' "$log" >&2 || tail -n 40 "$log" >&2
        echo "log: $log; reproduce: tools/fuzz.sh repro $name FILE" >&2
    fi
    return "$status"
}

case "${1:-}" in
build)
    build
    ;;
list)
    targets
    ;;
run)
    [ $# -ge 3 ] || usage
    target "$2"
    fuzz "$2" "$3" "$FUZZ_BUILD/work/$2" "${@:4}"
    ;;
check)
    [ $# -eq 3 ] || usage
    target "$2"
    rm -rf "$FUZZ_BUILD/check/$2"
    fuzz "$2" "$3" "$FUZZ_BUILD/check/$2" -seed=1 -timeout=10
    ;;
merge)
    [ $# -eq 2 ] || usage
    target "$2"
    corpus=$ROOT/fuzz/$2/corpus merged=$FUZZ_BUILD/merged/$2
    rm -rf "$merged"
    mkdir -p "$merged" "$FUZZ_BUILD/work/$2"
    before=$(find "$corpus" -type f | wc -l)
    "$FUZZ_BUILD/fuzz_$2" -merge=1 -use_counters=0 "$merged" "$corpus" "$FUZZ_BUILD/work/$2" >"$FUZZ_BUILD/merge-$2.log" 2>&1
    find "$corpus" -type f -delete
    cp "$merged"/* "$corpus"/
    echo "corpus of $2: $before files before, $(find "$corpus" -type f | wc -l) after"
    ;;
repro)
    [ $# -ge 3 ] || usage
    target "$2"
    "$FUZZ_BUILD/fuzz_$2" "${@:3}"
    ;;
*)
    usage
    ;;
esac
