#!/usr/bin/env bash
# Builds the libFuzzer targets with clang in build/fuzz and runs each one from a copy of its
# checked-in seed corpus for the given number of seconds (default 30), one after the other.
# Exits non-zero when a target fails to build or finds a crash, a hang or a leak; the failing
# input is kept in build/fuzz/findings/<target>/.
set -euo pipefail
seconds="${1:-30}"
if ! [[ "$seconds" =~ ^[0-9]+$ ]] || ((seconds < 1)); then
  echo "usage: $0 [seconds per target]" >&2
  exit 2
fi
cd "$(dirname "$0")/.."
root="$PWD"
bash scripts/deps.sh

build="$root/build/fuzz"
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DDIAGCORE_BUILD_FUZZ=ON -DDIAGCORE_BUILD_TESTS=OFF -DDIAGCORE_BUILD_BENCH=OFF >/dev/null
targets=(fuzz_object_path fuzz_property_text fuzz_mof_reader fuzz_operations fuzz_wbem_request
         fuzz_embedded_instance)
cmake --build "$build" -j "$(nproc)" --target "${targets[@]}"

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
failed=()
for target in "${targets[@]}"; do
  corpus="$work/$target"
  findings="$build/findings/$target"
  mkdir -p "$corpus" "$findings"
  cp -r "$root/fuzz/corpus/$target/." "$corpus/"
  options=(-max_total_time="$seconds" -timeout=25 -rss_limit_mb=4096 -print_final_stats=1
           -artifact_prefix="$findings/")
  [ -f "$root/fuzz/dict/$target.dict" ] && options+=(-dict="$root/fuzz/dict/$target.dict")
  echo "== $target: ${seconds}s"
  if "$build/fuzz/$target" "${options[@]}" "$corpus" >"$work/$target.log" 2>&1; then
    grep -E '^stat::number_of_executed_units|^Done' "$work/$target.log" || true
  else
    echo "$target FAILED; input kept in $findings" >&2
    grep -E -A40 'ERROR|==[0-9]+==|SUMMARY' "$work/$target.log" | head -80 >&2 || tail -40 "$work/$target.log" >&2
    failed+=("$target")
  fi
done
if ((${#failed[@]})); then
  echo "fuzzing found problems in: ${failed[*]}" >&2
  exit 1
fi
echo "all fuzz targets ran ${seconds}s each without a finding"
