#!/usr/bin/env bash
# The installed prefix works wherever it is moved: installs the build into a
# prefix, moves the prefix, builds the consumer (layer service and registry
# only) against the moved prefix and runs it with no LD_LIBRARY_PATH: it must
# play a clip on the default engine. Then, with the engine library taken out
# of the prefix, the consumer must still run and keep its state, and the
# module must say why in one line.
#   relocated_prefix_test.sh BUILD_DIR SOURCE_DIR WORK_DIR
source "$(dirname "$0")/common.sh"
build=$1 source_dir=$2 work=$3
fresh_dir "$work"

cmake --install "$build" --prefix "$work/first-place" >/dev/null || fail "install failed"
mv "$work/first-place" "$work/moved-here"
prefix=$work/moved-here
[ ! -e "$work/first-place" ] || fail "the prefix was not moved"

build_cmake_consumer "$source_dir/tests/consumer" "$work/consumer" "$prefix"
make_clip "$work/clip.mp4"

note "the consumer, from the moved prefix"
out=$(run_without_library_path "$work/consumer/kelmor_consumer" "$work/clip.mp4" 2>&1) \
  || { echo "$out"; fail "the consumer did not play from the moved prefix"; }
echo "$out" | grep -q "media engine: mpv (the default engine)" \
  || { echo "$out"; fail "the default engine's choice was not logged"; }
echo "$out" | grep "consumer ok"

note "the same, with the engine library gone"
libdir=$(dirname "$(find "$prefix" -name 'libKelmorPlatform.so.*' -type f | head -1)")
rm -f "$libdir"/libKelmorEngineMpv.so*
out=$(run_without_library_path "$work/consumer/kelmor_consumer" "$work/clip.mp4" --no-engine 2>&1) \
  || { echo "$out"; fail "the consumer failed without the engine library"; }
[ "$(echo "$out" | grep -c "the default engine (libmpv) could not be loaded")" -eq 1 ] \
  || { echo "$out"; fail "no single line said why the engine is missing"; }
echo "$out" | grep "consumer ok"
echo "PASS"
