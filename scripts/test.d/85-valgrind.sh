#!/usr/bin/env bash
# Valgrind memcheck of one full lab run (tests/hostile/cases/hostile_memcheck.json): no invalid read or
# write, no use of uninitialised memory and no definitely lost block, or the suite fails.
set -euo pipefail
cd "$(dirname "$0")/../.."

build=${AIC_VALGRIND_BUILD:-build}
scripts/install-deps valgrind
tool="$build/app/autoipconfig" # built by scripts/test; run below only inside the lab's own netns
[ -x "$tool" ] || { echo "== valgrind: no tool in $build (run scripts/test first)"; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

echo "== valgrind memcheck of a full lab run"
status=0
/usr/bin/python3 tools/lab.py tests/hostile/cases/hostile_memcheck.json --timeout 300 -- valgrind --tool=memcheck \
  --leak-check=full --show-leak-kinds=definite --errors-for-leak-kinds=definite --error-exitcode=99 \
  --log-file="$work/memcheck.log" "$tool" > "$work/stdout" || status=$?
cat "$work/stdout"
grep -E "ERROR SUMMARY|definitely lost|in use at exit|All heap blocks" "$work/memcheck.log" || true
if [ "$status" -ne 0 ] || ! tail -n 1 "$work/stdout" | grep -qx "Auto IP Configure Finished!"; then
  cat "$work/memcheck.log"
  echo "== valgrind FAILED (exit status $status)"
  exit 1
fi
