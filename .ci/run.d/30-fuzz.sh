#!/usr/bin/env bash
# Builds the libFuzzer target with clang and runs it for 60 seconds from seeds
# made of the shared sample maps. A crash, leak or sanitizer report fails CI.
set -euo pipefail
cd "$(dirname "$0")/../.."
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j"$(nproc)" >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/seeds" "$work/corpus"
if [ -d ../shared/corpus ]; then
  python3 fuzz/make_seeds.py ../shared/corpus "$work/seeds"
fi
build/fuzz/fuzz/fuzz_shp_map -max_total_time="${VARDA_FUZZ_SECONDS:-60}" -max_len=65536 \
  -rss_limit_mb=2048 -artifact_prefix="$work/" "$work/corpus" "$work/seeds" 2>&1 | tail -n 3
