#!/usr/bin/env bash
# Installs the Debian packages that building and testing TundrelApi need.
# Safe to run again; needs root (or sudo).
set -euo pipefail
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
PACKAGES=(
  build-essential cmake ninja-build pkg-config clang-14 libclang-rt-14-dev libomp-14-dev
  libgtest-dev libbenchmark-dev
  libxerces-c-dev libembree-dev libeigen3-dev libcli11-dev
  libcairo2-dev nlohmann-json3-dev
  qt6-base-dev libopenmpi-dev openmpi-bin xvfb xauth
  python3 python3-dev python3-numpy python3-pytest python3-pybind11 pybind11-dev python3-meshio python3-vtk9
)
missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
