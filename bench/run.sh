#!/usr/bin/env bash
# Builds the plug-in and its benchmark for one preset and runs the benchmark.
# Usage: bench/run.sh [--preset x64|i386] [--build DIR] [--quick] [other bench_plugin options]
# --build DIR configures and builds in DIR instead of the preset's own folder
# (build/<preset>), e.g. to keep a benchmark build apart from the CI's.
# Full size needs about 2 GB of free space in $TMPDIR (or /tmp) and a few
# minutes; --quick takes seconds. See bench_plugin --help for the options.
set -euo pipefail
cd "$(dirname "$0")/.."

preset=x64
build=""
args=()
while [ $# -gt 0 ]; do
  case "$1" in
    --preset) preset="${2:?--preset needs a name}"; shift 2 ;;
    --preset=*) preset="${1#--preset=}"; shift ;;
    --build) build="${2:?--build needs a folder}"; shift 2 ;;
    --build=*) build="${1#--build=}"; shift ;;
    *) args+=("$1"); shift ;;
  esac
done

if [ -z "$build" ]; then
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j"$(nproc)" --target VardaPlugIn_SHP bench_plugin >/dev/null
  build="build/$preset"
else
  cmake --preset "$preset" -B "$build" >/dev/null
  cmake --build "$build" -j"$(nproc)" --target VardaPlugIn_SHP bench_plugin >/dev/null
fi
exec "$build/bench/bench_plugin" ${args[@]+"${args[@]}"}
