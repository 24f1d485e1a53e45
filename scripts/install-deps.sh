#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the benchmarks need,
# when any is missing. Safe to run again: it does nothing when all are there.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config git
  libedit-dev tmux
  libicu-dev libgdal-dev gdal-bin
  libgtest-dev libbenchmark-dev
  libcli11-dev help2man
  libshp-dev shapelib python3-dbfread
  pybind11-dev python3-pybind11 python3-dev python3-numpy python3-pandas python3-pytest
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
