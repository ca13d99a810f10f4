#!/usr/bin/env bash
# Runs the WBEM library benchmarks (bench/wbem) ROUNDS times (default 3), the programs
# interleaved so that a burst of load elsewhere on the machine falls on all of them alike, then
# the behaviour checks once, and prints the tables of docs/wbem-server.md: medians over every
# repetition of every round, with the range beside the main figures.
#   bash bench/wbem/run.sh [BUILD_DIR [OUT_DIR]]
# BUILD_DIR is a configured Release tree (default build/h-wbem); the programs whose library is
# not installed are not in it and are left out.
set -euo pipefail
cd "$(dirname "$0")/../.."
build="${1:-build/h-wbem}"
out="${2:-$build/bench/wbem/results}"
rounds="${ROUNDS:-3}"
dir="$build/bench/wbem"
targets="$(cmake --build "$build" --target help)"
for t in bench_wbem_xml_expat bench_wbem_xml_libxml2 bench_wbem_xml_pugixml \
    bench_wbem_http_mhd bench_wbem_http_httplib; do
    if grep -q "$t" <<<"$targets"; then
        cmake --build "$build" --target "$t" >/dev/null
    fi
done
mkdir -p "$out"
rm -f "$out"/*.json "$out"/checks_*.md
{
    echo "# $(date -u +%FT%TZ) $(uname -srm)"
    echo "# $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2-) x $(nproc)"
} >"$out/machine.txt"
for round in $(seq "$rounds"); do
    echo "round $round: load $(cut -d' ' -f1-3 /proc/loadavg)" | tee -a "$out/machine.txt"
    for p in expat libxml2 pugixml; do
        prog="$dir/bench_wbem_xml_$p"
        [ -x "$prog" ] || continue
        "$prog" --benchmark_repetitions=5 --benchmark_min_time=0.3 \
            --benchmark_out="$out/xml_$p.$round.json" --benchmark_out_format=json >/dev/null
    done
    for p in mhd httplib; do
        prog="$dir/bench_wbem_http_$p"
        [ -x "$prog" ] || continue
        "$prog" --benchmark_repetitions=3 --benchmark_min_time=0.5 \
            --benchmark_out="$out/http_$p.$round.json" --benchmark_out_format=json >/dev/null
    done
done
echo "after: load $(cut -d' ' -f1-3 /proc/loadavg)" | tee -a "$out/machine.txt"
for p in xml_expat xml_libxml2 xml_pugixml http_mhd http_httplib; do
    if [ -x "$dir/bench_wbem_$p" ]; then
        "$dir/bench_wbem_$p" --checks >"$out/checks_$p.md"
    fi
done
python3 bench/wbem/summarise.py "$out"
