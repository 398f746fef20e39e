#!/usr/bin/env bash
# ThreadSanitizer build of the unit and whole-tool tests. The device manager enumerates every
# interface on a thread of its own, so the multi-interface lab scenarios (end-to-end and hostile
# scenarios, up to three interfaces) run those threads side by side; the watch scenarios add the
# pass runner's passes beside the notify pinger. A race aborts the process (halt_on_error) and the
# report on standard error fails the test.
set -euo pipefail
cd "$(dirname "$0")/../.."

build=${AIC_TSAN_BUILD:-build-tsan}
echo "== configure $build (ThreadSanitizer)"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DAIC_SANITIZE=thread > "$build.configure.log" 2>&1 ||
  { cat "$build.configure.log"; exit 1; }
echo "== build $build"
cmake --build "$build" -j2

export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1"
echo "== test $build: unit tests"
ctest --test-dir "$build" -j2 --output-on-failure --timeout 300 -L unit
echo "== test $build: whole-tool scenarios"
# without a thread to start (exit_code_unfinished) ThreadSanitizer's own cannot start either
ctest --test-dir "$build" -j3 --output-on-failure --timeout 300 -L 'e2e|hostile' -E '^e2e_exit_code_unfinished$'
# one at a time: their timings are part of what they check
echo "== test $build: watch scenarios"
ctest --test-dir "$build" -j1 --output-on-failure --timeout 300 -L watch
