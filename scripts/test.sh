#!/usr/bin/env bash
# Every check and test, from a bare Debian 12 machine: installs what is missing, builds, runs.
# One line a stage; what failed is told again before the last line, which gives the counts. Logs
# are under build/log/.
set -uo pipefail
cd "$(dirname "$0")/.."
build=build/mingw
log=build/log
mkdir -p "$log"
passed=0
failed=0
failures=
unsteady=
started=$SECONDS

finish() {
  local name
  for name in $unsteady; do
    echo "---- $name: passed on a second run only ----"
    what_failed "$log/$name.log" | sed -e '/^\[/d' -e 's/\*\*\*/at first /'
  done
  for name in $failures; do
    echo "---- $name failed ----"
    what_failed "$log/$name.log"
  done
  echo "tests: $passed passed, $failed failed"
  [ "$failed" -eq 0 ]
}

# The failed cases of a test log, each with what it printed; the end of any other log.
what_failed() {
  if grep -q '\*\*\*' "$1"; then
    awk '/\*\*\*/ { left = 25 } / Test +#.*Passed|tests passed,/ { left = 0 } left-- > 0' "$1" |
      head -n 120
  else
    tail -n 40 "$1"
  fi
}

# stage NAME COMMAND…: runs quietly, shows the last line of a success or of a failure.
stage() {
  local name=$1 since=$SECONDS
  running=$1
  shift
  if "$@" >"$log/$name.log" 2>&1; then
    passed=$((passed + 1))
    printf 'ok      %-10s %4d s  %s\n' "$name" $((SECONDS - since)) "$(tail -n 1 "$log/$name.log")"
    return 0
  fi
  failed=$((failed + 1))
  failures+=" $name"
  printf 'FAILED  %-10s %4d s  %s\n' "$name" $((SECONDS - since)) "$log/$name.log"
  return 1
}

# The main job, and that a wrong pixel, a cut pack or a bad key makes it fail.
demo_and_its_failures() {
  local what
  for what in pixel pack key; do
    scripts/demo.sh --break $what || continue
    echo "demo.sh does not notice a broken $what"
    return 1
  done
  scripts/demo.sh
}

setup_and_report() { scripts/setup.sh && echo "every package is there"; }

# Without Lua the one case that wants it is skipped.
real_lua() { scripts/rivals.sh lua || echo "no source of Lua to be had: its case will be skipped"; }

compile() {
  cmake --preset mingw || return 1
  ninja -C $build || return 1
  echo "built in $build"
}

# cases BUILD [ARGUMENT OF CTEST…]: every case in a process of its own. One that fails runs once
# more, alone, since Wine now and then fails a process; that it had to is told at the end.
cases() {
  local output=$log/$running.log status
  ctest --test-dir "$@" -j2 --output-on-failure --no-tests=error
  status=$?
  ran=$(sed -n 's/.*tests failed out of \([0-9]*\).*/\1/p' "$output" | tail -n 1)
  if [ $status -ne 0 ] && [ "${ran:-0}" -gt 0 ]; then
    echo "the failed ones alone:"
    ctest --test-dir "$1" --rerun-failed --output-on-failure
    status=$?
    [ $status -ne 0 ] || unsteady+=" $running"
  fi
  broken=$(sed -n 's/.*, \([0-9]*\) tests failed out of.*/\1/p' "$output" | tail -n 1)
  echo "$((ran - broken)) of $ran cases passed"
  return $status
}

unit_tests() { cases $build --output-junit "$PWD/$log/unit.xml"; }

# The memory room with the internal checks: the arena is walked while the cases run, and released
# blocks are filled.
checked_memory() {
  local checked=build/mingw-check
  cmake --preset mingw-check || return 1
  ninja -C $checked memory_test || return 1
  cases $checked -L '^memory$'
}

examples() {
  local program count=0
  for program in examples/*.cpp; do
    [ -e "$program" ] || continue
    program=$(basename "$program" .cpp)
    echo "example: $program"
    # Arguments, where an example wants any, stand in a file beside it.
    # shellcheck disable=SC2046
    timeout 120 $wine $build/bin/$program.exe $(cat "examples/$program.args" 2>/dev/null) ||
      return 1
    count=$((count + 1))
  done
  echo "$count ran"
}

short_fuzz() {
  local target count=0
  for target in fuzz/*_fuzz.cpp; do
    [ -e "$target" ] || continue
    target=$build/bin/$(basename "$target" .cpp).exe
    timeout 300 $wine "$target" "${QX_FUZZ_ROUNDS:-20000}" || return 1
    count=$((count + 1))
  done
  echo "$count targets"
}

stage setup setup_and_report || { finish; exit 1; }
stage floors python3 scripts/check_floors.py
stage style python3 scripts/check_style.py
stage docs python3 scripts/check_docs.py
stage reference python3 scripts/reference.py
stage checks python3 scripts/check_checks.py
stage lua real_lua
echo "        build      (several minutes the first time)"
stage build compile || { finish; exit 1; }
stage headers scripts/check_headers.sh
stage exports python3 scripts/check_exports.py $build/bin/QXLibs.dll

. scripts/wine_session.sh
stage unit unit_tests
# Each case counts, not the stage.
if [ -n "$ran" ]; then
  if [ "$broken" -eq 0 ]; then passed=$((passed - 1)); else failed=$((failed - 1)); fi
  passed=$((passed + ran - broken))
  failed=$((failed + broken))
fi
stage checked checked_memory
stage package scripts/check_package.sh
stage debugger scripts/check_debugger.sh
stage examples examples
stage fuzz short_fuzz
stage documents scripts/real_documents.sh --short
stage demo demo_and_its_failures
stage net scripts/check_net.sh
echo "all stages in $((SECONDS - started)) s"
finish
