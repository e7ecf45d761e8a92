#!/usr/bin/env bash
# Runs the plug-in benchmark once at its quick size on the x64 build: every
# measurement must complete and every map read or edited must come out as
# expected; the parse floor and shapelib must deliver the plug-in's vertices.
# Timings, the floors' among them, are printed for the log only; none is asserted.
set -euo pipefail
cd "$(dirname "$0")/../.."
bench=build/x64/bench/bench_plugin
if [ ! -x "$bench" ]; then
  cmake --build --preset x64 -j"$(nproc)" --target bench_plugin >/dev/null
fi
"$bench" --quick
