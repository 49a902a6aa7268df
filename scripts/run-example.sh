#!/usr/bin/env bash
# Installs what is needed, builds the release preset and runs the main job on
# the bundled example model (examples/): read the wing-body, correct its
# measured cp for self-illumination, build the pressure-port field, write the
# result as DAT, VRML and VTK into out/ with pictures of cp, of the correction
# cp_si - cp and of the port field, and print a summary.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target tundrel _tundrel
mkdir -p out
PYTHONPATH="$PWD/build/release/python" /usr/bin/python3 examples/process_example.py --out out
build/release/tundrel info out/wingbody.dat
