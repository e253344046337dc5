#!/usr/bin/env bash
# The 64-bit Windows DLL: cross-built with mingw-w64, exports and imports checked, the whole
# test suite run under wine, a host built by clang-cl for the MSVC target against the DLL and
# the zip, through the `windows` workflow preset (build/windows).
#   tools/ci/windows.sh
#   VANTYX_CI_INSTALL=1 tools/ci/windows.sh   (first installs what it needs with apt-get)
set -euo pipefail

root=$(cd "$(dirname "$0")/../.." && pwd)
cd "$root"

if [ "${VANTYX_CI_INSTALL:-0}" = 1 ]; then
  apt-get update
  apt-get install -y --no-install-recommends g++-mingw-w64-x86-64-posix wine64 googletest \
    clang lld llvm libstb-dev
fi
for tool in x86_64-w64-mingw32-g++-posix cmake ninja; do
  command -v "$tool" >/dev/null || { echo "windows.sh: $tool is not installed" >&2; exit 1; }
done
[ -x /usr/lib/wine/wine64 ] || command -v wine64 >/dev/null ||
  { echo "windows.sh: wine64 is not installed" >&2; exit 1; }

cmake --workflow --preset windows
echo "windows.sh: vantyx.dll built and its tests passed under wine"
