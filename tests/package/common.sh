# Shared steps of the package tests (sourced). Every test gets its own work
# folder, made afresh.
set -euo pipefail

fail() { echo "FAIL: $*" >&2; exit 1; }
note() { echo "-- $*"; }

# fresh_dir DIR: an empty folder.
fresh_dir() { rm -rf "$1"; mkdir -p "$1"; }

# make_clip FILE: a 2 s 160x90 H.264 clip.
make_clip() {
  ffmpeg -v error -y -f lavfi -i testsrc2=size=160x90:rate=25 -t 2 \
    -c:v libx264 -pix_fmt yuv420p "$1" || fail "ffmpeg could not make $1"
}

# build_cmake_consumer SOURCE BUILD PREFIX...: configures and builds the
# consumer project against the given prefixes.
build_cmake_consumer() {
  local source=$1 build=$2
  shift 2
  local prefixes
  prefixes=$(IFS=';'; echo "$*")
  cmake -S "$source" -B "$build" -G Ninja -DCMAKE_PREFIX_PATH="$prefixes" >/dev/null \
    || fail "the consumer does not configure against $prefixes"
  cmake --build "$build" >/dev/null || fail "the consumer does not build against $prefixes"
}

# run_without_library_path PROGRAM ARGS...: runs with no LD_LIBRARY_PATH, so
# only run paths can find the module's libraries.
run_without_library_path() {
  env -u LD_LIBRARY_PATH QT_QPA_PLATFORM=offscreen "$@"
}
