#!/usr/bin/env bash
# Builds the fuzz targets (clang 14, ASan + UBSan) and runs each one briefly
# from its seed corpus. FUZZ_SECONDS sets the time per target (default 60).
set -euo pipefail
cd "$(dirname "$0")/.."
SECONDS_PER_TARGET=${FUZZ_SECONDS:-60}
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for src in fuzz/*_fuzz.cpp; do
  name=$(basename "$src" .cpp)
  short=${name%_fuzz}
  mkdir -p "$work/$short"
  dict=()
  [ -f "fuzz/dict/$short.dict" ] && dict=(-dict="fuzz/dict/$short.dict")
  echo "== $name: ${SECONDS_PER_TARGET}s"
  status=0
  "build/fuzz/fuzz/$name" "${dict[@]}" -max_total_time="$SECONDS_PER_TARGET" -max_len=65536 \
      -rss_limit_mb=2048 -timeout=10 -print_final_stats=1 "$work/$short" "fuzz/corpus/$short" \
      >"$work/$short.log" 2>&1 || status=$?
  grep -E '^(stat::number_of_executed_units|stat::peak_rss_mb|SUMMARY)' "$work/$short.log" || true
  if [ "$status" -ne 0 ]; then
    tail -n 60 "$work/$short.log"
    echo "$name failed (status $status)"
    exit 1
  fi
done
