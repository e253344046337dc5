#!/usr/bin/env bash
# Memcheck over a short host session (tests/smoke/smoke.cpp) through the shared library:
# zero errors and zero definite or possible leaks, or the step fails.
#   tools/ci/valgrind.sh [BUILD_DIR]      (default build/ci-valgrind)
set -euo pipefail

root=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$root/build/ci-valgrind}
mkdir -p "$build" && build=$(cd "$build" && pwd)
jobs=$(nproc 2>/dev/null || echo 2)

command -v valgrind >/dev/null || { echo "valgrind.sh: valgrind is not installed" >&2; exit 1; }

# Optimised code with symbols, no sanitizers: what a host loads, with readable reports.
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DVANTYX_BUILD_TESTS=OFF -DVANTYX_BUILD_TOOLS=OFF >/dev/null
cmake --build "$build" --target vantyx -j"$jobs"

# The smoke host sees only the public header, compiled as C++11 as a host would.
smoke=$build/vantyx_smoke
${CXX:-c++} -std=c++11 -O1 -g -Wall -Wextra -I"$root/include" "$root/tests/smoke/smoke.cpp" \
    -L"$build" -lvantyx -Wl,-rpath,"$build" -o "$smoke"

valgrind --tool=memcheck --error-exitcode=1 --leak-check=full --show-leak-kinds=definite,possible \
         --errors-for-leak-kinds=definite,possible --track-origins=yes --fair-sched=yes \
         "$smoke"
echo "valgrind.sh: memcheck clean"
