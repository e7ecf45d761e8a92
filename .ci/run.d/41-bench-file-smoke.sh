#!/usr/bin/env bash
# Runs the file layer's benchmark once at a small size on the x64 build: the
# cached field reads must agree with a read() loop and the tail move with a
# pread/pwrite loop. Timings are printed for the log only; none is asserted.
set -euo pipefail
cd "$(dirname "$0")/../.."
bench=build/x64/bench/bench_file
if [ ! -x "$bench" ]; then
  cmake --build --preset x64 -j"$(nproc)" --target bench_file >/dev/null
fi
mkdir -p build/x64/testtmp
"$bench" 8 build/x64/testtmp
