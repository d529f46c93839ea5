#!/usr/bin/env bash
# The Debian packages: builds them with CPack, checks their names, versions,
# dependencies (computed by dpkg-shlibdeps) and file lists with dpkg-deb,
# unpacks both into a throwaway root and builds and runs the consumers
# against what they installed.
#   debian_packages_test.sh BUILD_DIR SOURCE_DIR WORK_DIR PROJECT_VERSION
source "$(dirname "$0")/common.sh"
build=$1 source_dir=$2 work=$3 project_version=$4
fresh_dir "$work"

# The API reference goes into the dev package: make it first.
cmake --build "$build" --target api-docs >/dev/null || fail "the API reference does not build"
cpack --config "$build/CPackConfig.cmake" -B "$work/out" >"$work/cpack.log" 2>&1 \
  || { cat "$work/cpack.log"; fail "cpack failed"; }
runtime=$(ls "$work"/out/kelmor-player_*.deb 2>/dev/null | head -1)
dev=$(ls "$work"/out/kelmor-player-dev_*.deb 2>/dev/null | head -1)
[ -f "$runtime" ] || fail "no kelmor-player package"
[ -f "$dev" ] || fail "no kelmor-player-dev package"

field() { dpkg-deb -f "$1" "$2"; }
version=$(field "$runtime" Version)
note "kelmor-player $version, $(du -h "$runtime" | cut -f1); kelmor-player-dev $(du -h "$dev" | cut -f1)"
case "$version" in "$project_version"*) ;; *) fail "version $version is not the project's ($project_version)";; esac
dpkg --compare-versions "$version" ge "$project_version" || fail "version $version is not a valid Debian version"
[ "$(field "$dev" Version)" = "$version" ] || fail "the packages' versions differ"
[ "$(field "$runtime" Package)" = kelmor-player ] || fail "runtime package name"
[ "$(field "$dev" Package)" = kelmor-player-dev ] || fail "dev package name"

depends=$(field "$runtime" Depends)
note "kelmor-player depends on: $depends"
for lib in libmpv libqt5core5a libqt5gui5 libavcodec libc6; do
  echo "$depends" | grep -q "$lib" || fail "kelmor-player does not depend on $lib (shlibdeps)"
done
dev_depends=$(field "$dev" Depends)
note "kelmor-player-dev depends on: $dev_depends"
echo "$dev_depends" | grep -qF "kelmor-player (= $version" || fail "the dev package does not depend on its runtime"
echo "$dev_depends" | grep -q qtbase5-dev || fail "the dev package does not depend on Qt's headers"

dpkg-deb -c "$runtime" | awk '{print $6}' | sed 's|^\./|/|' >"$work/runtime.files"
dpkg-deb -c "$dev" | awk '{print $6}' | sed 's|^\./|/|' >"$work/dev.files"
has() { grep -qE "$2" "$work/$1.files" || fail "$1 package lacks $2"; }
lacks() { ! grep -qE "$2" "$work/$1.files" || fail "$1 package should not hold $2"; }
for lib in Player Platform EngineMpv; do
  has runtime "^/usr/lib/libKelmor$lib\.so\.[0-9]+\.[0-9]+\.[0-9]+$"
  has runtime "^/usr/lib/libKelmor$lib\.so\.[0-9]+$"
  has dev "^/usr/lib/libKelmor$lib\.so$"
  lacks runtime "^/usr/lib/libKelmor$lib\.so$"
done
has runtime '^/usr/bin/kelmor-show$'
has runtime '^/usr/share/man/man1/kelmor-show\.1\.gz$'
has runtime '^/usr/share/kelmor/examples/demo\.show$'
has runtime '^/usr/share/kelmor/examples/host-app/'
has runtime '^/usr/share/kelmor/console/index\.html$'
lacks runtime '^/usr/include/'
has dev '^/usr/include/kelmor/UI_Proc_KELMOR_Player_Desktop\.h$'
has dev '^/usr/include/kelmor/MediaEngine\.h$'
has dev '^/usr/lib/cmake/KelmorPlayer/KelmorPlayerConfig\.cmake$'
has dev '^/usr/lib/pkgconfig/kelmor-player\.pc$'
has dev '^/usr/share/doc/kelmor-player-dev/api/index\.html$'
lacks dev '^/usr/bin/'

note "unpacked into a throwaway root"
root=$work/root
dpkg-deb -x "$runtime" "$root"
dpkg-deb -x "$dev" "$root"
make_clip "$work/clip.mp4"
build_cmake_consumer "$source_dir/tests/consumer" "$work/consumer" "$root/usr"
run_without_library_path "$work/consumer/kelmor_consumer" "$work/clip.mp4" || fail "the consumer failed on the packages"
export PKG_CONFIG_PATH=$root/usr/lib/pkgconfig
# shellcheck disable=SC2046
g++ -std=c++17 -o "$work/pc_consumer" "$source_dir/tests/consumer/pkgconfig_consumer.cpp" \
  $(pkg-config --cflags --libs kelmor-player) -Wl,-rpath,"$(pkg-config --variable=libdir kelmor-player)" \
  || fail "the pkg-config consumer does not build against the packages"
run_without_library_path "$work/pc_consumer" || fail "the pkg-config consumer failed on the packages"
run_without_library_path "$root/usr/bin/kelmor-show" --version || fail "the packaged kelmor-show does not start"
echo "PASS"
