#!/usr/bin/env bash
# A long fuzzing run on every core: libFuzzer's fork mode keeps going past a crash and keeps
# each crashing input, then the grown corpus is merged down to the inputs that add coverage.
#   fuzz/run_long.sh [HOURS] [WORKERS] [BUILD_DIR]   (defaults 4, nproc, build/fuzz-long)
# The merged corpus is left in BUILD_DIR/corpus-min; to refresh the committed seeds, copy a
# few dozen small files from it into fuzz/corpus (keep the generated seed-* files).
set -uo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
hours=${1:-4}
workers=${2:-$(nproc 2>/dev/null || echo 2)}
build=${3:-$root/build/fuzz-long}
mkdir -p "$build" && build=$(cd "$build" && pwd)
seconds=$(awk -v h="$hours" 'BEGIN { printf "%d", h * 3600 }')

set -e
cmake -S "$root/fuzz" -B "$build" -G Ninja -DCMAKE_CXX_COMPILER="${FUZZ_CXX:-clang++}" \
      -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j"$workers"
"$build/vantyx_frame_replay" "$root/fuzz/corpus"
set +e

mkdir -p "$build/corpus" "$build/artifacts"
log=$build/fuzz-long.log
echo "run_long.sh: ${hours} h on ${workers} workers, log in $log"
"$build/vantyx_frame_fuzz" -fork="$workers" -ignore_crashes=1 -ignore_timeouts=1 -ignore_ooms=1 \
    -max_total_time="$seconds" -timeout=30 -rss_limit_mb=2048 \
    -artifact_prefix="$build/artifacts/" -print_final_stats=1 \
    "$build/corpus" "$root/fuzz/corpus" >"$log" 2>&1

rm -rf "$build/corpus-min"
mkdir -p "$build/corpus-min"
"$build/vantyx_frame_fuzz" -merge=1 "$build/corpus-min" "$build/corpus" "$root/fuzz/corpus" \
    >"$build/merge.log" 2>&1

# Fork mode's status lines: "#RUNS: cov: .. corp: N exec/s R oom/timeout/crash: a/b/c ...".
last=$(grep -E '^#[0-9]+:' "$log" | tail -1)
files=$(find "$build/corpus-min" -type f | wc -l)
echo "run_long.sh: finished: ${last:-no status line}"
echo "run_long.sh: merged corpus ${files} files in $build/corpus-min"
crashes=$(find "$build/artifacts" -type f \( -name 'crash-*' -o -name 'leak-*' -o -name 'timeout-*' -o -name 'oom-*' \) | wc -l)
if [ "$crashes" -gt 0 ]; then
  echo "run_long.sh: $crashes failing input(s) in $build/artifacts; replay one with" >&2
  echo "  $build/vantyx_frame_replay FILE" >&2
  exit 1
fi
