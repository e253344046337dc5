#!/usr/bin/env bash
# The library as a host outside this tree gets it, one case per CTest test:
#   package_check.sh install   `cmake --install` into WORK/prefix; checks the layout; builds
#                              consumer/ against it with find_package and again with pkg-config
#                              and compares the consumer's frames with the build tree's (FRAMES)
#   package_check.sh deb       makes the Debian package, unpacks it with dpkg -x and checks its
#                              files, SONAME links and control fields, and runs its tool
# Settings come from the environment (tests/package/CMakeLists.txt): BUILD, SOURCE, WORK, VERSION,
# LIBDIR, TOOL (1 when the tool is built), PLUGINS (a file listing the frei0r plugins), FRAMES,
# CMAKE, CPACK, GENERATOR, CXX.
set -u -o pipefail

case_name=$1
major=${VERSION%%.*}
rm -rf "$WORK" && mkdir -p "$WORK" || exit 1

fail() { echo "FAIL ($case_name): $*" >&2; exit 1; }
# quiet LOG CMD...: runs CMD with its output in LOG, shown only if it fails.
quiet() {
  local log=$1; shift
  "$@" >"$log" 2>&1 || { cat "$log" >&2; fail "'$*' failed"; }
}

# loaded BINARY: the file that libvantyx.so.<major> resolves to for BINARY, links and .. resolved.
loaded() {
  local path
  path=$(ldd "$1" | awk -v name="libvantyx.so.$major" '$1 == name { print $3 }')
  [ -n "$path" ] && readlink -f "$path"
}

# check_layout ROOT PREFIX: the installed tree ROOT, made for the prefix PREFIX.
check_layout() {
  local root=$1 prefix=$2 lib=$1/$LIBDIR
  [ -f "$root/include/vantyx.h" ] || fail "no include/vantyx.h"
  local real=$lib/libvantyx.so.$VERSION here
  here=$(readlink -f "$real")
  [ -f "$real" ] && [ ! -L "$real" ] || fail "no $LIBDIR/libvantyx.so.$VERSION"
  [ "$(readlink "$lib/libvantyx.so.$major")" = "libvantyx.so.$VERSION" ] ||
    fail "libvantyx.so.$major does not point to libvantyx.so.$VERSION"
  [ "$(readlink "$lib/libvantyx.so")" = "libvantyx.so.$major" ] ||
    fail "libvantyx.so does not point to libvantyx.so.$major"
  local soname
  soname=$(objdump -p "$real" | awk '$1 == "SONAME" { print $2 }')
  [ "$soname" = "libvantyx.so.$major" ] || fail "the SONAME is '$soname'"
  local f
  for f in VantyxConfig.cmake VantyxConfigVersion.cmake VantyxTargets.cmake; do
    [ -f "$lib/cmake/Vantyx/$f" ] || fail "no $LIBDIR/cmake/Vantyx/$f"
  done
  grep -qx "prefix=$prefix" "$lib/pkgconfig/vantyx.pc" ||
    fail "vantyx.pc is missing or does not name the prefix $prefix"
  grep -qx "Version: $VERSION" "$lib/pkgconfig/vantyx.pc" || fail "vantyx.pc has another version"
  [ -f "$root/share/doc/libvantyx/copyright" ] || fail "no share/doc/libvantyx/copyright"
  [ -f "$PLUGINS" ] || fail "no list of frei0r plugins ($PLUGINS)"
  while read -r f; do  # each plugin present, and finding the library of this tree by itself
    [ -z "$f" ] && continue
    [ -f "$root/$f" ] || fail "no frei0r plugin $f"
    [ "$(loaded "$root/$f")" = "$here" ] || fail "the plugin $f does not load $real"
  done <"$PLUGINS"
  if [ "$TOOL" = 1 ]; then
    # Run from the tree: found through the SONAME link, it must be the version of the header.
    [ "$(LD_LIBRARY_PATH=$lib "$root/bin/vantyx" --version)" = "vantyx $VERSION" ] ||
      fail "bin/vantyx --version does not say $VERSION"
    [ "$(LD_LIBRARY_PATH=$lib loaded "$root/bin/vantyx")" = "$here" ] ||
      fail "bin/vantyx does not load $real"
    for f in coffee.png rocket.jpg; do
      [ -f "$root/share/vantyx/assets/$f" ] || fail "no share/vantyx/assets/$f"
    done
  fi
}

case $case_name in
install)
  prefix=$WORK/prefix
  quiet "$WORK/install.log" "$CMAKE" --install "$BUILD" --prefix "$prefix"
  check_layout "$prefix" "$prefix"
  # Each way told of the prefix only as its users would tell it.
  for with in find_package pkg-config; do
    build=$WORK/consumer-$with
    where=(-DCMAKE_PREFIX_PATH="$prefix")
    [ "$with" = pkg-config ] && where=()
    quiet "$build.log" env PKG_CONFIG_PATH="$prefix/$LIBDIR/pkgconfig" \
      "$CMAKE" -S "$SOURCE/tests/package/consumer" -B "$build" -G "$GENERATOR" \
      -DCMAKE_CXX_COMPILER="$CXX" -DCMAKE_BUILD_TYPE=Release "${where[@]}" \
      -DVANTYX_WITH="$with" -DVANTYX_VERSION_WANTED="$VERSION"
    quiet "$build.log" "$CMAKE" --build "$build"
    [ "$(loaded "$build/consumer")" = "$(readlink -f "$prefix/$LIBDIR/libvantyx.so.$VERSION")" ] ||
      fail "the consumer ($with) does not load the installed library"
    mkdir -p "$build/frames"
    (cd "$build/frames" && quiet ../run.log ../consumer) || exit 1
    quiet "$build.log" "$CMAKE" -DREFERENCE="$FRAMES" -DOTHERS="$build/frames" -DROW_BYTES=268 \
      -P "$SOURCE/tests/package/compare_frames.cmake"
  done
  ;;

deb)
  quiet "$WORK/cpack.log" "$CPACK" --config "$BUILD/CPackConfig.cmake" -G DEB -B "$WORK/package"
  debs=("$WORK"/package/libvantyx_"$VERSION"_*.deb)
  deb=${debs[0]}
  [ -f "$deb" ] || fail "no libvantyx_${VERSION}_*.deb"
  [ "$(dpkg-deb -f "$deb" Package)" = libvantyx ] || fail "the package is not called libvantyx"
  [ "$(dpkg-deb -f "$deb" Version)" = "$VERSION" ] || fail "the package version is not $VERSION"
  depends=$(dpkg-deb -f "$deb" Depends)
  for needed in libc6 libstdc++6; do
    [[ $depends == *"$needed"* ]] || fail "Depends ($depends) lacks $needed"
  done
  dpkg-deb -e "$deb" "$WORK/control"
  grep -qx "libvantyx $major libvantyx (>= $VERSION)" "$WORK/control/shlibs" ||
    fail "shlibs: $(cat "$WORK/control/shlibs")"
  dpkg -x "$deb" "$WORK/root"
  check_layout "$WORK/root/usr" /usr
  if [ "$TOOL" = 1 ]; then
    # The demo finds its photos in share/vantyx/assets beside the unpacked program.
    quiet "$WORK/demo.log" env LD_LIBRARY_PATH="$WORK/root/usr/$LIBDIR" \
      "$WORK/root/usr/bin/vantyx" demo --out "$WORK/demo"
    grep -q "share/vantyx/assets" "$WORK/demo.log" || fail "the demo did not use the package's photos"
  fi
  ;;

*)
  fail "unknown case"
  ;;
esac
echo "$case_name: passed"
