#!/usr/bin/env bash
# Smoke run of the benchmarks: one small run of each kind (tool, larger-buffer tool, arv-tool, --watch),
# each in its own lab, into a temporary directory; checks that the tables and the plot come out. The
# figures are not asserted: benchmarks report, they do not pass or fail on numbers.
set -euo pipefail
cd "$(dirname "$0")/../.."
out=$(mktemp -d /tmp/aic-bench-smoke.XXXXXX)
trap 'rm -rf "$out"' EXIT

echo "== bench smoke: bench/run --smoke into $out (labs only)"
bench/run --smoke --build "${AIC_BENCH_BUILD:-build}" --out "$out"
for file in results.md results.json results.png; do
  [ -s "$out/$file" ] || { echo "bench smoke: $file was not written" >&2; exit 1; }
done
grep -q '^| nothing to fix ' "$out/results.md" || { echo "bench smoke: no table row in results.md" >&2; exit 1; }
echo "== bench smoke: table and plot written"

echo "== bench smoke: bench/run --watch --smoke into $out (labs only)"
bench/run --watch --smoke --build "${AIC_BENCH_BUILD:-build}" --out "$out"
grep -q '^| announces, --interval 1 | [01] of 1 ' "$out/results.md" ||
  { echo "bench smoke: no watch latency row in results.md" >&2; exit 1; }
grep -q '^| 10 | 1[0-9] of 12 ' "$out/results.md" || { echo "bench smoke: no watch resources row" >&2; exit 1; }
echo "== bench smoke: watch section written"
