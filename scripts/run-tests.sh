#!/usr/bin/env bash
# The whole test suite: unit, timer and package tests on the default build,
# then every suite but the package test under AddressSanitizer +
# UndefinedBehaviorSanitizer (leak check included), the timer tests under
# ThreadSanitizer, and each libFuzzer target for a minute from its seed
# corpus (KELMOR_FUZZ_SECONDS changes that). Any failure or sanitizer report
# fails.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

./scripts/install-deps.sh
jobs=$(nproc)

# Tests that need a GL context run under a virtual X server. -noreset: by
# default the server resets whenever its last client leaves, and a program
# that connects during the reset is cut off at once; its Qt then has no
# OpenGL for the rest of the process ("OpenGL context failed").
run_x() {
  if [ -n "${DISPLAY:-}" ]; then "$@"; else xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" "$@"; fi
}

step() { echo; echo "==== $*"; }

step "default build"
cmake --preset default >/dev/null
cmake --build --preset default -j"$jobs"
step "API reference (an undocumented public member fails it)"
cmake --build --preset default --target api-docs
step "console test dependencies (puppeteer-core, tests/console)"
# From the committed package-lock.json; skipped when node_modules matches it.
if [ ! -d tests/console/node_modules/puppeteer-core ] \
   || [ tests/console/package-lock.json -nt tests/console/node_modules/.package-lock.json ]; then
  (cd tests/console && npm ci --no-audit --no-fund)
fi
step "default tests"
run_x ctest --preset default -j"$jobs"

step "asan build"
cmake --preset asan >/dev/null
cmake --build --preset asan -j"$jobs"
step "asan tests"
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:halt_on_error=1:detect_stack_use_after_return=1"
export LSAN_OPTIONS="suppressions=$root/tests/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
run_x ctest --preset asan -j"$jobs"
# The suites that draw with OpenGL, leak check included: their programs keep
# the GL driver mapped until exit (tests/support/KeepModulesLoaded.cpp), so
# what the driver holds stays visible and only unreferenced memory counts.
step "asan tests (OpenGL suites)"
run_x ctest --preset asan-gl -j"$jobs"
unset ASAN_OPTIONS LSAN_OPTIONS UBSAN_OPTIONS

step "tsan build (timer tests)"
cmake --preset tsan >/dev/null
cmake --build --preset tsan -j"$jobs" --target kelmor_tests_timer
step "tsan tests"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$root/tests/tsan.supp"
export GTEST_FILTER='-*Queued*'
run_x ctest --preset tsan -j"$jobs"
unset TSAN_OPTIONS GTEST_FILTER
step "tsan tests (PipeWire video; Qt, GLib and Mesa's driver are not instrumented: tests/pipewire/tsan.supp)"
cmake --build --preset tsan -j"$jobs" --target kelmor_tests_pipewire
TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$root/tests/pipewire/tsan.supp" \
  run_x ctest --test-dir build/tsan -L pipewire -j"$jobs" --output-on-failure

step "fuzz build (clang, libFuzzer, ASan + UBSan)"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j"$jobs"
step "fuzz tests (each target ${KELMOR_FUZZ_SECONDS:-60} s from its seed corpus)"
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:halt_on_error=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
cmake -DKELMOR_FUZZ_SECONDS="${KELMOR_FUZZ_SECONDS:-60}" build/fuzz >/dev/null
ctest --preset fuzz -j"$jobs"
unset ASAN_OPTIONS UBSAN_OPTIONS

echo
echo "All tests passed."
