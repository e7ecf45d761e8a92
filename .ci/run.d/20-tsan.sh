#!/usr/bin/env bash
# The thread tests under ThreadSanitizer. Locks, events and progress monitors
# are shared between threads; a data race there is a fault even while the
# tests pass, and only this build sees it.
set -euo pipefail
cd "$(dirname "$0")/../.."

jobs=$(nproc)
cmake --preset x64-tsan >/dev/null
cmake --build --preset x64-tsan -j"$jobs" 2>&1 | grep -E -A4 'error|warning:' || true
# The grep above only shows problems; the build's own status decides.
cmake --build --preset x64-tsan -j"$jobs" >/dev/null
ctest --preset x64-tsan -j"$jobs" 2>&1 | tail -n 5
# Once more in one process, many times over, for other interleavings.
TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1" \
  build/x64-tsan/tests/test_thread --gtest_repeat=10 --gtest_brief=1 2>&1 | tail -n 5
