#!/usr/bin/env bash
# vantyx.exe under wine against the Linux tool built from the same sources (the Windows tests'
# native reference build):
#   windows_tool.sh WINE WINDOWS_TOOL LINUX_TOOL ASSETS WORK
# A PNG picture and raw frames through pipes must come out the same; a JPEG only as a JPEG, as
# the two builds decode and encode JPEG with different libraries. Exit 77 (skipped) when there
# is no Linux tool (no libpng or libjpeg on this machine).
set -u -o pipefail

wine=$1 win=$2 linux=$3 assets=$4 work=$5
[ -x "$linux" ] || { echo "no Linux tool at $linux: skipped"; exit 77; }
rm -rf "$work" && mkdir -p "$work" && cd "$work" || exit 1
cp "$assets/coffee.png" "$assets/rocket.jpg" . || exit 1

fail() { echo "FAIL: $*" >&2; exit 1; }
both() {  # both ARGS...: `vantyx ARGS` with the Linux tool, then with vantyx.exe under wine
  "$linux" "$@" || fail "vantyx $* (Linux)"
  "$wine" "$win" "$@" || fail "vantyx.exe $*"
}

"$linux" apply blackmist --intensity 1.4 --threshold 150 coffee.png linux.png || fail "Linux tool"
"$wine" "$win" apply blackmist --intensity 1.4 --threshold 150 coffee.png windows.png ||
  fail "vantyx.exe apply on a PNG"
# The Linux result written again by the Windows encoder: the same pixels make the same file.
"$wine" "$win" apply blackmist --output-mode source linux.png linux-rewritten.png ||
  fail "vantyx.exe --output-mode source"
cmp -s windows.png linux-rewritten.png || fail "the PNG results differ from the Linux tool's"

# Three 64x48 frames of arbitrary bytes (plenty of 0x0A and 0x1A) through standard streams.
head -c $((64 * 48 * 4 * 3)) coffee.png >in.raw
"$linux" apply blackmist --raw 64x48 - - <in.raw >linux.raw 2>/dev/null || fail "Linux raw"
"$wine" "$win" apply blackmist --raw 64x48 - - <in.raw >windows.raw 2>/dev/null ||
  fail "vantyx.exe --raw"
cmp -s linux.raw windows.raw || fail "the raw frames differ from the Linux tool's"

"$wine" "$win" apply blackmist rocket.jpg windows.jpg || fail "vantyx.exe apply on a JPEG"
[ "$(od -An -tx1 -N3 windows.jpg | tr -d ' ')" = ffd8ff ] || fail "windows.jpg is not a JPEG"
echo "vantyx.exe: the PNG and raw results are the Linux tool's"
