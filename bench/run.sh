#!/usr/bin/env bash
# Builds the plug-in and its benchmark for one preset and runs the benchmark.
# Usage: bench/run.sh [--preset x64|i386] [--quick] [other bench_plugin options]
# Full size needs about 2 GB of free space in $TMPDIR (or /tmp) and a few
# minutes; --quick takes seconds. See bench_plugin --help for the options.
set -euo pipefail
cd "$(dirname "$0")/.."

preset=x64
args=()
while [ $# -gt 0 ]; do
  case "$1" in
    --preset) preset="${2:?--preset needs a name}"; shift 2 ;;
    --preset=*) preset="${1#--preset=}"; shift ;;
    *) args+=("$1"); shift ;;
  esac
done

cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j"$(nproc)" --target VardaPlugIn_SHP bench_plugin >/dev/null
exec "build/$preset/bench/bench_plugin" ${args[@]+"${args[@]}"}
