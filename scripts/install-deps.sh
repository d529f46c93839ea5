#!/usr/bin/env bash
# Installs the Debian 12 packages the project builds and tests with (as root,
# or through sudo). Packages already present are left alone.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config
  clang libclang-rt-14-dev
  qtbase5-dev libqt5opengl5-dev libmpv-dev
  libavcodec-dev libavformat-dev libavutil-dev libswscale-dev
  libgl1-mesa-dri mesa-utils libx11-dev
  libgtest-dev
  nlohmann-json3-dev
  liblo-dev liblo-tools libltc-dev libavdevice-dev libswresample-dev libcivetweb-dev
  libpipewire-0.3-dev
  doxygen help2man dpkg-dev file
  ffmpeg mpv
  xvfb xauth
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "install-deps: installing ${missing[*]}" >&2
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
