#!/usr/bin/env bash
# Hunts for faults at length, on two lanes at once until the time is up, a fresh seed each turn:
#
#   fuzz      every target of the plain, the undefined and the address build
#   models    the tests in both instrumented builds once; then the cases with random models of all
#             three builds, and a minute of the scheduler's soak, in turn; other makers' documents
#
#   scripts/hunt.sh [MINUTES]     default 10
#
# A lane ends at its first find, with a line that says how to repeat it; the last line sums up.
set -uo pipefail
cd "$(dirname "$0")/.."
minutes=${1:-10}
log=build/log/hunt
builds="mingw mingw-undefined mingw-address"
mkdir -p "$log"
rm -f "$log"/*.found "$log"/*.runs
scripts/setup.sh
. scripts/wine_session.sh
# The address-checking build wants Wine's heap where it always is.
steady_wine=$wine
if setarch -R true 2>/dev/null; then steady_wine="setarch -R $wine"; fi

for preset in $builds; do
  echo "hunt: building $preset"
  [ -f "build/$preset/build.ninja" ] || cmake --preset "$preset" >/dev/null || exit 1
  ninja -C "build/$preset" --quiet >"$log/$preset.build.log" 2>&1 ||
    { tail -n 20 "$log/$preset.build.log"; exit 1; }
done
ends=$((SECONDS + 60 * minutes))
first_seed=$(date +%s)

# found LANE HOW: notes a find. ran LANE: counts a run.
found() { echo "hunt: FOUND: ${*:2}" | tee -a "$log/$1.found"; }
ran() { echo >>"$log/$1.runs"; }

# tests LANE PRESET SEED [CTEST ARGUMENTS…]
tests() {
  local lane=$1 preset=$2 seed=$3 out=$log/tests.$2.log
  shift 3
  ran "$lane"
  QX_TEST_SEED=$seed ctest --test-dir "build/$preset" --timeout 300 --output-on-failure "$@" \
    >"$out" 2>&1 && return
  sed -n '/The following tests FAILED/,$p' "$out" | head -n 20
  found "$lane" "QX_TEST_SEED=$seed ctest --test-dir build/$preset $*  (see $out)"
  return 1
}

fuzz_lane() {
  local seed=$first_seed preset source target
  while :; do
    for preset in $builds; do
      for source in fuzz/*_fuzz.cpp; do
        [ $SECONDS -lt $ends ] || return 0
        target=build/$preset/bin/$(basename "$source" .cpp).exe
        ran fuzz
        timeout 900 $steady_wine "$target" 100000 "$seed" >"$log/fuzz.log" 2>&1 && continue
        tail -n 20 "$log/fuzz.log"
        found fuzz "$target 100000 $seed"
        return 1
      done
    done
    seed=$((seed + 1))
  done
}

models_lane() {
  local seed=$first_seed preset
  scripts/real_documents.sh >"$log/documents.log" 2>&1 ||
    { found models "scripts/real_documents.sh  (see $log/documents.log)"; return 1; }
  tests models mingw-undefined "$seed" || return 1
  tests models mingw-address "$seed" || return 1
  while :; do
    for preset in $builds; do
      [ $SECONDS -lt $ends ] || return 0
      tests models "$preset" "$seed" -R 'andom|odel|ny_bytes|hatever' || return 1
      [ $SECONDS -lt $ends ] || return 0
      ran models
      QX_TEST_SEED=$seed QX_SOAK_SECONDS=60 timeout 240 \
        $steady_wine "build/$preset/bin/tasks_test.exe" --gtest_filter='SchedulerSoak.*' \
        >"$log/soak.log" 2>&1 && continue
      tail -n 20 "$log/soak.log"
      found models "QX_TEST_SEED=$seed QX_SOAK_SECONDS=60 build/$preset/bin/tasks_test.exe" \
        "--gtest_filter=SchedulerSoak.*"
      return 1
    done
    seed=$((seed + 1))
  done
}

fuzz_lane &
fuzz_pid=$!
models_lane &
models_pid=$!
wait $fuzz_pid $models_pid

count() { cat "$log"/$1 2>/dev/null | wc -l; }
finds=$(count '*.found')
echo "hunt: $minutes minutes, $(count fuzz.runs) runs of fuzz targets," \
  "$(count models.runs) of tests and soak, $finds finds"
[ "$finds" -eq 0 ]
