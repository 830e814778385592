#!/usr/bin/env bash
# Runs the benchmarks, each subject beside its rivals in one run, and writes the tables into
# docs/performance.md.
#
#   scripts/bench.sh                 all of them
#   scripts/bench.sh arena string    only these; prints, writes nothing
#
# QX_BENCH_ROUNDS sets the rounds of each row (default 11).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/rivals.sh
build=build/bench
cmake --preset mingw -B $build -DQX_RIVALS="$PWD/build/rivals" >/dev/null

names=("$@")
if [ $# -eq 0 ]; then
  for source in benchmarks/*/*_bench.cpp; do names+=("$(basename "$source" _bench.cpp)"); done
fi
echo "bench: building"
ninja -C $build --quiet "${names[@]/%/_bench}"

if [ -f $build/bin/load_bench.exe ]; then
  x86_64-w64-mingw32-strip $build/bin/QXLibs.dll
  python3 scripts/make_empty_dll.py $build/bin/QXLibs.dll $build/bin/empty.dll
fi

. scripts/wine_session.sh
mkdir -p $build/results
for name in "${names[@]}"; do
  echo "bench: $name" >&2
  $wine $build/bin/"${name}"_bench.exe | tr -d '\r' | tee $build/results/"$name".md
done
[ $# -eq 0 ] || exit 0

# The tables stand between two markers; what is written around them is kept.
page=docs/performance.md
{
  sed '/<!-- tables -->/q' "$page"
  echo
  processor=$(sed -n 's/^model name.*: //p' /proc/cpuinfo | head -n 1)
  echo "Measured on $(date -u +%Y-%m-%d), $(nproc) cores of $processor," \
    "under $(/usr/lib/wine/wine64 --version)."
  for name in "${names[@]}"; do cat $build/results/"$name".md; done
  echo
  sed -n '/<!-- end of tables -->/,$p' "$page"
} >"$build/performance.md"
mv "$build/performance.md" "$page"
echo "bench: written to $page"
