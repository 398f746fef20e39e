#!/usr/bin/env bash
# Fuzzes every wire parser for a bounded time (AIC_FUZZ_SECONDS per target, default 30) in a clang
# libFuzzer build with ASan+UBSan. The targets call the codecs directly: no socket, no namespace.
# New corpus entries stay in the build tree; a crash fails the suite and its input is kept in
# build-fuzz/artifacts/ (copy it into tests/fuzz/corpus/<target>/ once fixed, as a regression).
set -euo pipefail
cd "$(dirname "$0")/../.."

build=${AIC_FUZZ_BUILD:-build-fuzz}
seconds=${AIC_FUZZ_SECONDS:-30}
scripts/install-deps clang libclang-rt-14-dev

echo "== configure $build (clang, libFuzzer, ASan+UBSan)"
CC=clang CXX=clang++ cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DAIC_SANITIZE=address \
  -DAIC_FUZZ=ON > "$build.configure.log" 2>&1 || { cat "$build.configure.log"; exit 1; }
echo "== build $build"
cmake --build "$build" -j2 --target fuzz_all

mkdir -p "$build/artifacts"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
for harness in tests/fuzz/corpus/*/; do
  target=$(basename "$harness")
  corpus="$build/corpus/$target"
  mkdir -p "$corpus"
  echo "== fuzz $target for $seconds s"
  if ! ASAN_OPTIONS=detect_leaks=1 "$build/tests/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=20 \
      -print_final_stats=1 -artifact_prefix="$build/artifacts/$target-" "$corpus" "$harness" > "$log" 2>&1; then
    tail -n 60 "$log"
    echo "== fuzz $target FAILED: input kept in $build/artifacts/"
    exit 1
  fi
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
  cover=$(grep -o 'cov: [0-9]*' "$log" | tail -n 1)
  echo "   $runs executions ($rate/s), $cover, corpus $(ls "$corpus" | wc -l) files"
done
