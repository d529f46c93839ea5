#!/usr/bin/env bash
# The main job: installs what is needed, builds, and runs the demonstration.
# For now the demonstration plays three timed items on their timers and prints
# every event as a JSON line (the show runner with screens comes later).
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j"$(nproc)" --target kelmor-timer-demo
./build/default/host/kelmor-timer-demo
