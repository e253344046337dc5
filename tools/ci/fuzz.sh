#!/usr/bin/env bash
# Builds the frame fuzzer (clang: libFuzzer + AddressSanitizer + UndefinedBehaviorSanitizer),
# replays the committed seed corpus, then fuzzes for a bounded time and reports the run count
# and corpus size. A crash fails the step and leaves the input in BUILD_DIR/artifacts/.
#   tools/ci/fuzz.sh [SECONDS] [BUILD_DIR]     (defaults 120 and build/ci-fuzz)
set -uo pipefail

root=$(cd "$(dirname "$0")/../.." && pwd)
seconds=${1:-120}
build=${2:-$root/build/ci-fuzz}
mkdir -p "$build" && build=$(cd "$build" && pwd)
jobs=$(nproc 2>/dev/null || echo 2)

set -e
cmake -S "$root/fuzz" -B "$build" -G Ninja -DCMAKE_CXX_COMPILER="${FUZZ_CXX:-clang++}" \
      -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j"$jobs"
"$build/vantyx_frame_replay" "$root/fuzz/corpus"
set +e

mkdir -p "$build/corpus" "$build/artifacts"
log=$build/fuzz.log
# New inputs go to BUILD_DIR/corpus; the committed seeds are read only.
"$build/vantyx_frame_fuzz" -max_total_time="$seconds" -timeout=30 -rss_limit_mb=2048 \
    -artifact_prefix="$build/artifacts/" -print_final_stats=1 \
    "$build/corpus" "$root/fuzz/corpus" >"$log" 2>&1
rc=$?

runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)
files=$(find "$build/corpus" -type f | wc -l)
bytes=$(du -sb "$build/corpus" | cut -f1)
cover=$(grep -o 'cov: [0-9]*' "$log" | tail -1)
echo "fuzz.sh: ${runs:-?} runs in ${seconds} s (${rate:-?}/s), corpus ${files} files / ${bytes} bytes, ${cover:-cov: ?}"
if [ "$rc" -ne 0 ]; then
  echo "fuzz.sh: the fuzzer failed (exit $rc); last lines of $log:" >&2
  tail -n 60 "$log" >&2
  ls -l "$build/artifacts" >&2
  exit "$rc"
fi
