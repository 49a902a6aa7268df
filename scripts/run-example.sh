#!/usr/bin/env bash
# Installs what is needed, builds the release preset and runs the main job on
# the bundled example model.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target tundrel
T=build/release/tundrel
mkdir -p out
$T info tests/data/wing.apt
$T convert tests/data/wing.apt out/wing.apt
echo "written: out/wing.apt"
