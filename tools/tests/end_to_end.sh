#!/usr/bin/env bash
# Whole runs of the vantyx tool, one case per CTest test:
#   end_to_end.sh CASE TOOL ASSETS WORKDIR [FFMPEG FFPROBE]
# Every file is made inside WORKDIR, which is emptied first.
set -u -o pipefail

case_name=$1 tool=$2 assets=$3 work=$4 ffmpeg=${5:-} ffprobe=${6:-}
rm -rf "$work" && mkdir -p "$work" && cd "$work" || exit 1

fail() { echo "FAIL ($case_name): $*" >&2; exit 1; }

# run STATUS CMD...: runs CMD with its standard error in err.txt, checks its exit status.
run() {
  local want=$1; shift
  "$@" 2>err.txt
  local got=$?
  [ "$got" -eq "$want" ] || { cat err.txt >&2; fail "'$*' exited $got, expected $want"; }
}
err_has() { grep -qF -- "$1" err.txt || { cat err.txt >&2; fail "stderr lacks '$1'"; }; }

# The WxH of a PNG, from its IHDR chunk.
png_size() {
  local b
  b=($(od -An -tu1 -j16 -N8 "$1"))
  echo "$(( (b[0] << 24) | (b[1] << 16) | (b[2] << 8) | b[3] ))x$(( (b[4] << 24) | (b[5] << 16) | (b[6] << 8) | b[7] ))"
}
is_png() { [ "$(od -An -tx1 -N4 "$1" | tr -d ' ')" = "89504e47" ]; }
is_jpeg() { [ "$(od -An -tx1 -N3 "$1" | tr -d ' ')" = "ffd8ff" ]; }
bytes() { wc -c <"$1" | tr -d ' '; }

coffee=$assets/coffee.png   # 600x400 RGB
rocket=$assets/rocket.jpg   # 640x427

case $case_name in
help)
  run 0 "$tool" --help >out.txt
  grep -q "apply EFFECT" out.txt || fail "--help lacks the apply command"
  grep -q "blackmist" out.txt || fail "--help lacks the effect list"
  run 0 "$tool" --version >out.txt
  grep -q "^vantyx [0-9]" out.txt || fail "--version: $(cat out.txt)"
  run 0 "$tool" apply blackmist --help >out.txt
  for option in intensity radius threshold strength tint-amount tint-hue tint-brightness \
      opacity weight-blur weight-src tone-mapping keep-saturation blur-blended \
      blend-blur-radius blend-mode output-mode mask rect raw; do
    grep -q -- "--$option " out.txt || fail "apply blackmist --help lacks --$option"
  done
  grep -q "0..max(w,h)/8; default max(w,h)/32" out.txt || fail "radius range or default missing"
  run 2 "$tool"
  run 2 "$tool" frobnicate
  err_has "unknown command 'frobnicate'"
  ;;

apply_picture)
  run 0 "$tool" apply blackmist "$coffee" out.png
  is_png out.png && [ "$(png_size out.png)" = 600x400 ] || fail "out.png is not a 600x400 PNG"
  run 0 "$tool" apply blackmist --intensity 1.5 --threshold 120 "$rocket" out.jpg
  is_jpeg out.jpg || fail "out.jpg is not a JPEG"
  # The rectangle sets the output size.
  run 0 "$tool" apply blackmist --rect 100,50,300,350 "$coffee" rect.png
  [ "$(png_size rect.png)" = 200x300 ] || fail "rect.png is $(png_size rect.png)"
  # A full-only option at its default selects the full call, which renders the same picture.
  run 0 "$tool" apply blackmist --opacity 255 "$coffee" full.png
  cmp -s out.png full.png || fail "the full call with defaults differs from the basic call"
  # Output mode 'source' gives back the picture itself.
  run 0 "$tool" apply blackmist --output-mode source "$coffee" source.png
  run 0 "$tool" apply blackmist --output-mode source source.png source2.png
  cmp -s source.png source2.png || fail "output mode source changed the picture"
  # A mask (here the photo's own luma) is accepted at the picture's size, refused otherwise.
  run 0 "$tool" apply blackmist --mask "$coffee" "$coffee" masked.png
  cmp -s out.png masked.png && fail "the mask changed nothing"
  run 1 "$tool" apply blackmist --mask rect.png "$coffee" masked2.png
  err_has "is 200x300 but the frames are 600x400"
  [ ! -e masked2.png ] || fail "a refused mask left an output"
  # Halation: its full call at the table's defaults matches the basic call.
  run 0 "$tool" apply halation "$rocket" halation.png
  run 0 "$tool" apply halation --debug-view result "$rocket" halation-full.png
  cmp -s halation.png halation-full.png || fail "halation's full call with defaults differs"
  # Infrared: the full call at the table's defaults matches the basic call, for the presets that
  # load a band and for one that keeps the band of a new effect.
  for preset in 0 1 2; do
    run 0 "$tool" apply infrared --preset $preset "$coffee" infrared.png
    run 0 "$tool" apply infrared --preset $preset --debug-view result "$coffee" infrared-full.png
    cmp -s infrared.png infrared-full.png || fail "infrared's full call with preset $preset differs"
  done
  # Amberfade: in both looks, the full call at the table's defaults matches the basic call.
  for look in cool warm; do
    run 0 "$tool" apply amberfade --look $look --gamma 0.9 "$rocket" amber-$look.png
    run 0 "$tool" apply amberfade --look $look --gamma 0.9 --output-mode result "$rocket" amber-$look-full.png
    cmp -s amber-$look.png amber-$look-full.png || fail "amberfade's full call with defaults differs ($look)"
  done
  # The output starts as the picture: a glow that is transparent everywhere leaves it as it was.
  run 0 "$tool" apply halation --show-threshold 0 "$coffee" noglow.png
  cmp -s source.png noglow.png || fail "a transparent glow changed the picture"
  ls | grep -q "tmp-" && fail "a temporary file was left behind"
  ;;

errors)
  echo "keep me" >keep.png
  run 2 "$tool" apply blackmist --intensity 3 "$coffee" keep.png
  err_has "option --intensity: value '3' is out of range (allowed: 0..2)"
  run 2 "$tool" apply blackmist --radius 76 "$coffee" keep.png
  err_has "option --radius: value '76'"
  err_has "0..75"
  run 2 "$tool" apply blackmist --threshold=300 "$coffee" keep.png
  err_has "0..255"
  run 2 "$tool" apply fog "$coffee" keep.png
  err_has "unknown effect 'fog'"
  run 1 "$tool" apply blackmist missing.png keep.png
  err_has "cannot open 'missing.png'"
  head -c 2000 "$coffee" >cut.png
  run 1 "$tool" apply blackmist cut.png keep.png
  err_has "corrupt PNG"
  head -c 20000 "$rocket" >cut.jpg
  run 1 "$tool" apply blackmist cut.jpg keep.png
  err_has "corrupt JPEG"
  run 2 "$tool" apply blackmist "$coffee" out.gif
  err_has ".png, .jpg or .jpeg"
  run 1 "$tool" apply blackmist "$coffee" no/such/dir/out.png
  [ "$(cat keep.png)" = "keep me" ] || fail "a failed run changed an existing output"
  [ "$(ls | sort | tr '\n' ' ')" = "cut.jpg cut.png err.txt keep.png " ] ||
    fail "files left behind: $(ls)"
  [ "$(wc -l <err.txt)" -eq 1 ] || fail "an error took more than one line"
  ;;

raw_stream)
  frame=$((16 * 12 * 4))
  head -c $((frame * 4)) /dev/urandom >in.raw
  # Several frames through a pipe, one effect instance.
  cat in.raw | run 0 "$tool" apply blackmist --raw 16x12 - - >out.raw || exit 1
  [ "$(bytes out.raw)" -eq $((frame * 4)) ] || fail "out.raw has $(bytes out.raw) bytes"
  err_has "4 frames of 16x12"
  # Each frame comes out as it would alone: the third frame by itself.
  dd if=in.raw of=third.raw bs=$frame skip=2 count=1 status=none
  run 0 "$tool" apply blackmist --raw 16x12 third.raw third_out.raw
  dd if=out.raw of=third_from_stream.raw bs=$frame skip=2 count=1 status=none
  cmp -s third_out.raw third_from_stream.raw || fail "frame 3 differs inside the stream"
  # A short final frame: an error and a failing status, the frames before it intact.
  { cat in.raw; head -c 100 /dev/urandom; } | run 1 "$tool" apply blackmist --raw 16x12 - - >short.raw ||
    exit 1
  err_has "truncated frame 5: got 100 of 768 bytes"
  cmp -s out.raw short.raw || fail "the frames before the short one were not all written"
  # The rectangle sets the size of the output frames.
  run 0 "$tool" apply blackmist --raw 16x12 --rect 2,2,10,6 - - <in.raw >rect.raw
  [ "$(bytes rect.raw)" -eq $((8 * 4 * 4 * 4)) ] || fail "rect.raw has $(bytes rect.raw) bytes"
  # An empty stream is zero frames, not an error.
  run 0 "$tool" apply blackmist --raw 16x12 - - </dev/null >empty.raw
  err_has "0 frames"
  run 2 "$tool" apply blackmist --raw 16 - - <in.raw
  err_has "WxH"
  ;;

ffmpeg_pipe)
  [ -n "$ffmpeg" ] && [ -n "$ffprobe" ] || fail "ffmpeg and ffprobe are needed"
  "$ffmpeg" -nostdin -v error -f lavfi -i testsrc=size=64x48:rate=10 -frames:v 10 \
      -f rawvideo -pix_fmt bgra pipe:1 |
    "$tool" apply blackmist --raw 64x48 - - |
    "$ffmpeg" -nostdin -y -v error -f rawvideo -pix_fmt bgra -video_size 64x48 -framerate 10 \
      -i pipe:0 -c:v ffv1 out.mkv 2>err.txt || { cat err.txt >&2; fail "the pipe failed"; }
  frames=$("$ffprobe" -v error -count_frames -select_streams v:0 \
      -show_entries stream=nb_read_frames -of csv=p=0 out.mkv)
  [ "$frames" = 10 ] || fail "out.mkv has '$frames' frames, expected 10"
  ;;

*)
  fail "unknown case"
  ;;
esac
echo "ok ($case_name)"
