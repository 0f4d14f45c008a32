#!/usr/bin/env bash
# Installs the Debian packages Clarovi needs to build, test and run; quick when all are present.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config git
  qt6-base-dev qt6-image-formats-plugins libgl-dev fonts-dejavu-core
  libopencv-dev libfftw3-dev libexiv2-dev libtiff-dev libpng-dev
  libgtest-dev libgmock-dev libbenchmark-dev desktop-file-utils
  clang-format clang libclang-rt-14-dev
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
echo "Installing: ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
