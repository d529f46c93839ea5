#!/usr/bin/env bash
# A one-file host built with `pkg-config --cflags --libs kelmor-player` (as
# make, qmake or meson hosts do) against an installed prefix, and run with
# the library folder as its run path.
#   pkgconfig_test.sh BUILD_DIR SOURCE_DIR WORK_DIR
source "$(dirname "$0")/common.sh"
build=$1 source_dir=$2 work=$3
fresh_dir "$work"
cmake --install "$build" --prefix "$work/prefix" >/dev/null || fail "install failed"
pc=$(find "$work/prefix" -name kelmor-player.pc | head -1)
[ -n "$pc" ] || fail "no kelmor-player.pc installed"
export PKG_CONFIG_PATH=$(dirname "$pc")
flags=$(pkg-config --cflags --libs kelmor-player) || fail "pkg-config does not know kelmor-player"
libdir=$(pkg-config --variable=libdir kelmor-player)
[ -e "$libdir/libKelmorPlayer.so" ] || fail "the .pc file's libdir ($libdir) has no libKelmorPlayer.so"
note "g++ ... $flags"
# shellcheck disable=SC2086
g++ -std=c++17 -o "$work/pc_consumer" "$source_dir/tests/consumer/pkgconfig_consumer.cpp" $flags \
  -Wl,-rpath,"$libdir" || fail "the one-file consumer does not build with pkg-config's flags"
run_without_library_path "$work/pc_consumer" || fail "the one-file consumer failed"
echo "PASS"
