#!/usr/bin/env bash
# Builds a Release tree in build/bench and runs every benchmark program, single-threaded, one
# benchmark family per process (the registry is a process-wide singleton that only grows, so each
# family grows its own population from the smallest size up). Writes one JSON file per family
# and a combined console table to <build>/results/ (or the folder given as first argument).
# BENCH_FILTER (a regular expression) limits the families run; BENCH_BUILD_DIR names another
# build folder. BENCH_ALLOCATOR=server runs the programs with the C library's allocator set up as
# for a long-running server (transparent huge pages for the heap, fast bins up to 160 bytes);
# the default is the C library's own settings.
set -euo pipefail
cd "$(dirname "$0")/.."
build="${BENCH_BUILD_DIR:-build/bench}"
out="${1:-$build/results}"
filter="${BENCH_FILTER:-.}"
allocator="${BENCH_ALLOCATOR:-default}"
case "$allocator" in
default) ;;
server) export GLIBC_TUNABLES="glibc.malloc.hugetlb=1:glibc.malloc.mxfast=160" ;;
*)
    echo "BENCH_ALLOCATOR must be default or server" >&2
    exit 2
    ;;
esac
bash scripts/deps.sh
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" -j "$(nproc)"
mkdir -p "$out"
table="$out/results.txt"
{
    echo "# $(date -u +%FT%TZ) $(uname -srm)"
    echo "# $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2-) x $(nproc)"
    echo "# allocator: $allocator ${GLIBC_TUNABLES:-}"
} >"$table"
for program in "$build"/bench/bench_*; do
    [ -x "$program" ] || continue
    name="$(basename "$program")"
    families="$("$program" --benchmark_list_tests | sed 's|/.*||' | uniq)"
    for family in $families; do
        [[ "$family" =~ $filter ]] || continue
        echo "== $name $family" | tee -a "$table"
        extra=()
        # The million runs of the profile layer's memory benchmark take most of an hour here;
        # BENCH_PROFILE_RUNS=1000000 asks for them.
        [ "$name" = bench_profile_runs ] && extra=(--runs="${BENCH_PROFILE_RUNS:-200000}")
        "$program" --benchmark_filter="^$family(/|\$)" --benchmark_min_time=0.2 \
            --benchmark_out="$out/$name.$family.json" --benchmark_out_format=json \
            --benchmark_counters_tabular=true "${extra[@]}" | tee -a "$table"
    done
done
echo "results in $out"
