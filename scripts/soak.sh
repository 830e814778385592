#!/usr/bin/env bash
# Runs random forests of tasks on the scheduler at length, with a new seed each minute.
#
#   scripts/soak.sh [MINUTES]      default 10; stops at the first fault and prints its seed
#
# QX_TEST_SEED fixes the first seed. A hang is a fault: each minute has two to end in.
set -euo pipefail
cd "$(dirname "$0")/.."
minutes=${1:-10}
case $minutes in
  *[!0-9]* | '') sed -n '2,6s/^# \{0,1\}//p' "$0"; exit 2 ;;
esac
preset=${QX_PRESET:-mingw}
build=build/$preset

[ -f "$build/build.ninja" ] || cmake --preset "$preset" >/dev/null
echo "soak: building"
${QX_BUILD_WRAPPER:-} ninja -C "$build" --quiet tasks_test

. scripts/wine_session.sh
seed=${QX_TEST_SEED:-$(date +%s)}
for minute in $(seq "$minutes"); do
  echo "soak: minute $minute of $minutes, seed $seed"
  if ! QX_TEST_SEED=$seed QX_SOAK_SECONDS=${QX_SOAK_SECONDS:-60} timeout 120 \
    $wine "$build/bin/tasks_test.exe" --gtest_filter='SchedulerSoak.*' >"$build/soak.log" 2>&1; then
    tail -n 20 "$build/soak.log"
    echo "soak: FAILED with QX_TEST_SEED=$seed"
    exit 1
  fi
  grep forests "$build/soak.log"
  seed=$((seed + 1))
done
echo "soak: passed, $minutes minutes"
