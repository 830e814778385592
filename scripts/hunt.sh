#!/usr/bin/env bash
# Hunts for faults at length: the tests in both instrumented builds, then every fuzz target with a
# fresh seed in turn until the time is up. A find ends the run with a line that says how to repeat it.
#
#   scripts/hunt.sh [MINUTES]     default 10
set -uo pipefail
cd "$(dirname "$0")/.."
minutes=${1:-10}
ends=$((SECONDS + 60 * minutes))
log=build/log/hunt
mkdir -p "$log"
scripts/setup.sh
. scripts/wine_session.sh
# The address-checking build wants Wine's heap where it always is.
if setarch -R true 2>/dev/null; then wine="setarch -R $wine"; fi

instrumented() {
  local preset=mingw-$1
  echo "hunt: building $preset"
  [ -f "build/$preset/build.ninja" ] || cmake --preset "$preset" >/dev/null || return 1
  ninja -C "build/$preset" --quiet >"$log/$1.build.log" 2>&1 || { tail -n 20 "$log/$1.build.log"; return 1; }
  ctest --test-dir "build/$preset" -j2 --timeout 300 --output-on-failure >"$log/$1.log" 2>&1
  local status=$?
  echo "hunt: $1: $(grep -E 'tests passed' "$log/$1.log" | tail -n 1)"
  [ $status -eq 0 ] || echo "hunt: see $log/$1.log"
  return $status
}

fuzz_in_turn() {
  local build=$1 seed=$2 source target
  for source in fuzz/*_fuzz.cpp; do
    target=$(basename "$source" .cpp)
    [ $SECONDS -lt $ends ] || return 0
    if ! $wine "$build/bin/$target.exe" 100000 "$seed" >"$log/$target.$seed.log" 2>&1; then
      cat "$log/$target.$seed.log"
      echo "hunt: FOUND by $build/bin/$target.exe 100000 $seed"
      return 1
    fi
    rm -f "$log/$target.$seed.log"
    runs=$((runs + 1))
  done
}

found=0
runs=0
for kind in undefined address; do instrumented $kind || found=$((found + 1)); done
[ -f build/mingw/build.ninja ] || cmake --preset mingw >/dev/null
ninja -C build/mingw --quiet >"$log/build.log" 2>&1 || exit 1
scripts/real_documents.sh || found=$((found + 1))
seed=$(date +%s)
while [ $SECONDS -lt $ends ]; do
  for build in build/mingw build/mingw-undefined build/mingw-address; do
    fuzz_in_turn $build "$seed" || { found=$((found + 1)); break 2; }
  done
  seed=$((seed + 1))
done
echo "hunt: $minutes minutes, $runs runs of fuzz targets, $found finds"
[ $found -eq 0 ]
