#!/usr/bin/env bash
# One plugin inside a real host, its frames compared byte for byte with the vantyx tool's:
#   hosts.sh HOST EFFECT TOOL PLUGIN_DIR WORKDIR FFMPEG [MELT]      (HOST: ffmpeg or melt)
# Every file is made inside WORKDIR, which is emptied first.
set -u -o pipefail

host=$1 effect=$2 tool=$3 plugins=$4 work=$5 ffmpeg=$6 melt=${7:-}
rm -rf "$work" && mkdir -p "$work" && cd "$work" || exit 1
export FREI0R_PATH=$plugins
plugin=vantyx_$effect

fail() { echo "FAIL ($host $effect): $*" >&2; exit 1; }
ff() { "$ffmpeg" -nostdin -y -v error "$@" || fail "ffmpeg $*"; }
# raw SIZE FILE: the ffmpeg input options of a raw BGRA file.
raw() { echo "-f rawvideo -pix_fmt bgra -video_size $1 -framerate 25 -i $2"; }
apply() {  # apply SIZE IN OUT [OPTIONS]: the tool on raw frames
  local size=$1 in=$2 out=$3; shift 3
  "$tool" apply "$effect" "$@" --raw "$size" "$in" "$out" 2>tool-err.txt ||
    { cat tool-err.txt >&2; fail "vantyx apply $effect $* --raw $size"; }
}
same() { cmp -s "$1" "$2" || fail "$3: $1 and $2 differ ($(cmp "$1" "$2" 2>&1 | head -1))"; }

# Three frames of 642x360, a width that is not a multiple of 16, with an alpha ramp.
W=642 H=360 frames=3
ff -f lavfi -i "testsrc2=size=${W}x${H}:rate=25" -frames:v $frames \
   -vf "format=bgra,geq=r='r(X,Y)':g='g(X,Y)':b='b(X,Y)':a='255-mod(X+2*Y,200)'" \
   -f rawvideo -pix_fmt bgra src.raw

# Per effect, the same settings as frei0r values (in parameter order for ffmpeg, by name for
# melt) and as tool options; $1 is max(w,h)/8 of the frames the plugin sees (radius 1.0). An
# effect without an entry is checked with its defaults only.
settings() {
  case $effect in
  blackmist)
    ffmpeg_values="0.7|0.5|0.6|0.67|0.8|0.25|result|0.3|0.58|y"
    melt_values="intensity=0.7 radius=0.5 threshold=0.6 strength=0.67 opacity=0.8 blend-mode=0.25
                 output-mode=result tint-amount=0.3 tint-hue=0.58 tone-mapping=1"
    tool_options="--intensity 1.4 --radius $(($1 / 2)) --threshold 153 --strength 2 --opacity 204
                  --blend-mode 7 --output-mode result --tint-amount 0.3 --tint-hue 0.58
                  --tone-mapping on"
    # Out of range: clamped to the ends of each range.
    ffmpeg_clamped="5|-2|3|-1|7|2|-4"
    melt_clamped="intensity=5 radius=-2 threshold=3 strength=-1 opacity=7 blend-mode=2 output-mode=-4"
    tool_clamped="--intensity 2 --radius 0 --threshold 255 --strength 0 --opacity 255
                  --blend-mode 28 --output-mode glow"
    refused_size=16x1  # no half size: the engine refuses it
    ;;
  infrared)
    # opacity, hue-shift, saturation, luminance, hue-tolerance, preset, blend-mode.
    ffmpeg_values="0.8|0.6|0.75|0.25|0.5|0.5|0.5"
    melt_values="opacity=0.8 hue-shift=0.6 saturation=0.75 luminance=0.25 hue-tolerance=0.5
                 preset=0.5 blend-mode=0.5"
    tool_options="--opacity 204 --hue-shift 0.6 --saturation 0.5 --luminance -0.5
                  --hue-tolerance 180 --preset 1 --blend-mode 11"
    ffmpeg_clamped="5|-2|3|-1|7|2|-4"
    melt_clamped="opacity=5 hue-shift=-2 saturation=3 luminance=-1 hue-tolerance=7 preset=2
                  blend-mode=-4"
    tool_clamped="--opacity 255 --hue-shift 0 --saturation 1 --luminance -1 --hue-tolerance 360
                  --preset 2 --blend-mode 0"
    refused_size=16x1
    ;;
  amberfade)
    ffmpeg_values="0.4|0.5|0.75|n|0.17857142857142858|result|0.125"
    melt_values="intensity=0.4 colour=0.5 gamma=0.75 look=0 blend-mode=0.17857142857142858
                 output-mode=result contrast=0.125"
    tool_options="--intensity 2 --colour 0.5 --gamma 0.75 --look warm --blend-mode 5
                  --output-mode result --contrast 0.5"
    ffmpeg_clamped="9|-2|3|y|2|-4|9"
    melt_clamped="intensity=9 colour=-2 gamma=3 look=1 blend-mode=2 output-mode=-4 contrast=9"
    tool_clamped="--intensity 5 --colour -1 --gamma 1 --look cool --blend-mode 28 --output-mode glow
                  --contrast 4"
    refused_size=16x1
    ;;
  *) ffmpeg_values="" ;;
  esac
}

case $host in
ffmpeg)
  # ffmpeg 5.1 hands a frei0r plugin frames whose rows are padded to 64 bytes, while frei0r rows
  # are packed: widths that are not a multiple of 16 pixels come out sheared. Pad to a multiple
  # of 16 before the plugin and crop back after; the tool gets the same padded frames.
  P=$(( (W + 15) / 16 * 16 ))
  ff $(raw ${W}x$H src.raw) -vf "pad=$P:$H" -f rawvideo -pix_fmt bgra padded.raw
  settings $(( (P > H ? P : H) / 8 ))
  check() {  # check NAME FREI0R_VALUES [TOOL_OPTIONS]
    local name=$1 values=$2; shift 2
    ff $(raw ${W}x$H src.raw) -vf "pad=$P:$H,frei0r=$plugin${values:+:$values},crop=$W:$H:0:0" \
       -f rawvideo -pix_fmt bgra "$name.raw"
    apply ${P}x$H padded.raw "$name-tool-padded.raw" "$@"
    ff $(raw ${P}x$H "$name-tool-padded.raw") -vf "crop=$W:$H:0:0" -f rawvideo -pix_fmt bgra \
       "$name-tool.raw"
    same "$name.raw" "$name-tool.raw" "$name"
  }
  check defaults ""
  if [ -n "$ffmpeg_values" ]; then
    check settings "$ffmpeg_values" $tool_options
    check clamped "$ffmpeg_clamped" $tool_clamped
  fi
  if [ -n "${refused_size:-}" ]; then
    head -c $(( ${refused_size%x*} * ${refused_size#*x} * 4 * frames )) src.raw >tiny.raw
    "$ffmpeg" -nostdin -y -v error $(raw $refused_size tiny.raw) -vf "frei0r=$plugin" \
      -f rawvideo -pix_fmt bgra tiny-out.raw 2>err.txt || { cat err.txt >&2; fail "ffmpeg on tiny frames"; }
    same tiny.raw tiny-out.raw "refused frames"
    [ "$(grep -c "^$plugin: " err.txt)" -eq 1 ] || { cat err.txt >&2; fail "not one line for $frames refused frames"; }
  fi
  ;;

melt)
  # A lossless BGRA clip: melt's conversions to its RGBA images and back are then exact.
  # real_time=0: one thread and no dropped frames, however loaded the machine is.
  ff $(raw ${W}x$H src.raw) -c:v ffv1 clip.mkv
  settings $(( (W > H ? W : H) / 8 ))
  check() {  # check NAME "MELT_VALUES" [TOOL_OPTIONS]
    local name=$1 values=$2; shift 2
    "$melt" -silent clip.mkv -filter "frei0r.$plugin" $values \
      -consumer "avformat:$name.mkv" vcodec=ffv1 pix_fmt=bgra an=1 real_time=0 >melt-out.txt 2>&1 ||
      { cat melt-out.txt >&2; fail "melt $name"; }
    ff -i "$name.mkv" -f rawvideo -pix_fmt bgra "$name.raw"
    apply ${W}x$H src.raw "$name-tool.raw" "$@"
    same "$name.raw" "$name-tool.raw" "$name"
  }
  # melt takes a second or more to start: the defaults only where there are no settings.
  if [ -n "$ffmpeg_values" ]; then
    check settings "$melt_values" $tool_options
    check clamped "$melt_clamped" $tool_clamped
  else
    check defaults ""
  fi
  ;;

*) fail "unknown host" ;;
esac
echo "ok ($host $effect)"
