#!/usr/bin/env bash
# Cross-builds the tool and the unit tests for arm64 and runs the unit tests under qemu-aarch64.
set -euo pipefail
cd "$(dirname "$0")/../.."
dir=${AIC_ARM64_BUILD:-build-arm64}

scripts/install-arm64-deps
echo "== arm64: configure $dir"
cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchain-aarch64.cmake" > "$dir.configure.log" 2>&1 \
  || { cat "$dir.configure.log"; exit 1; }
echo "== arm64: build"
cmake --build "$dir" -j2

check_aarch64() {
  local machine
  machine=$(readelf -h "$1" | sed -n 's/^ *Machine: *//p')
  echo "== arm64: $1 is an ELF for $machine"
  [ "$machine" = AArch64 ] || { echo "arm64: $1 is not an AArch64 ELF" >&2; return 1; }
}
for program in "$dir"/tests/test_*; do
  [ -f "$program" ] && [ -x "$program" ] && check_aarch64 "$program"
done
check_aarch64 "$dir/app/autoipconfig"

echo "== arm64: unit tests under qemu-aarch64"
start=$(date +%s)
ctest --test-dir "$dir" -L unit -j2 --output-on-failure --timeout 600
echo "== arm64: unit tests under emulation took $(( $(date +%s) - start )) s"
