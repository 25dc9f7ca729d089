#!/usr/bin/env bash
# Installs every Debian package the build, the tests and the benchmarks need.
# Safe to run again: packages already present are left alone and nothing is
# downloaded when the list is complete.
set -euo pipefail

packages=(
  build-essential cmake ninja-build ccache pkg-config
  qtbase5-dev libqt5opengl5-dev
  libeigen3-dev libtbb-dev libembree-dev
  libopencv-dev libopenimageio-dev openimageio-tools
  liblapacke-dev libopenblas-dev
  libfmt-dev robin-map-dev libsuitesparse-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libtinyobjloader-dev libassimp-dev libnanoflann-dev libcgal-dev
  xvfb xauth fonts-dejavu-core libgl1-mesa-dri
  clang libclang-rt-14-dev time python3
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "Installing: ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo); fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
