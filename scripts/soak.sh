#!/usr/bin/env bash
# Runs random forests of tasks on the scheduler at length, in one process: the library started anew
# again and again, with other numbers of workers.
#
#   scripts/soak.sh [MINUTES]      default 10
#
# Each minute tells what it ran and what the process then held. Faults are a lost wake-up (it does
# not end in time), records or fibres leaked (blocks of the arena that outlive the library), and
# private bytes that grew by over 64 KiB from the first minute to the last. Ends with 1 at the first
# fault, and prints its seed. QX_TEST_SEED fixes the seed.
set -euo pipefail
cd "$(dirname "$0")/.."
minutes=${1:-10}
case $minutes in
  *[!0-9]* | '' | 0) sed -n '2,10s/^# \{0,1\}//p' "$0"; exit 2 ;;
esac
preset=${QX_PRESET:-mingw}
build=build/$preset

[ -f "$build/build.ninja" ] || cmake --preset "$preset" >/dev/null
echo "soak: building"
${QX_BUILD_WRAPPER:-} ninja -C "$build" --quiet tasks_test

. scripts/wine_session.sh
export QX_TEST_SEED=${QX_TEST_SEED:-$(date +%s)}
export QX_SOAK_SECONDS=$((minutes * 60))
echo "soak: $minutes minutes, seed $QX_TEST_SEED"
status=0
timeout $((QX_SOAK_SECONDS + 120)) $wine "$build/bin/tasks_test.exe" \
  --gtest_filter='SchedulerSoak.*' 2>&1 | sed -u 's|\r||' | tee "$build/soak.log" |
  grep --line-buffered -E '^minute|Failure|forest |Expected' || status=$?
summary=$(grep '^no wake-up lost' "$build/soak.log") || status=1
if [ $status -ne 0 ]; then
  echo "soak: FAILED with QX_TEST_SEED=$QX_TEST_SEED, see $build/soak.log"
  exit 1
fi
echo "soak: $summary"
echo "soak: passed, $minutes minutes"
