#!/usr/bin/env bash
# Installs what is needed, builds, and runs every test: the sanitizer build
# (dev preset: AddressSanitizer, UndefinedBehaviorSanitizer, LeakSanitizer)
# and the optimised build (release preset: also the Python module and the
# installed-package consumer), then each fuzz target briefly.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
JOBS=$(nproc)
for preset in dev release; do
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$JOBS"
  ctest --preset "$preset" -j "$JOBS"
done
# Each fuzz target runs 12 s, which keeps the whole run inside 30 minutes
# on a fresh machine (installing included).
if [ -x scripts/fuzz-smoke.sh ]; then FUZZ_SECONDS=${FUZZ_SECONDS:-12} scripts/fuzz-smoke.sh; fi
