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
  pipewire pipewire-bin wireplumber dbus gstreamer1.0-pipewire gstreamer1.0-tools
  gstreamer1.0-plugins-base gstreamer1.0-plugins-good
  doxygen help2man dpkg-dev file
  ffmpeg mpv
  xvfb xauth
  # the operator console's tests: Chromium driven by puppeteer-core, and
  # Qt's WebSocket client for the runner tests' pages
  chromium nodejs libqt5websockets5-dev
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
# npm comes with some builds of nodejs and as a package of its own with others.
command -v npm >/dev/null 2>&1 || missing+=(npm)
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "install-deps: installing ${missing[*]}" >&2
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
