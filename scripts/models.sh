#!/usr/bin/env bash
# Checks the models of the scheduler's protocols by exhaustion, with spin.
#
#   scripts/models.sh            all of tests/models
set -euo pipefail
cd "$(dirname "$0")/.."
command -v spin >/dev/null || { echo "models: spin is not installed (package spin)"; exit 1; }
work=build/models
mkdir -p $work
for model in "$PWD"/tests/models/*.pml; do
  name=$(basename "$model" .pml)
  (
    cd $work
    spin -a "$model"
    gcc -O2 -DSAFETY -DVECTORSZ=4096 -o "$name" pan.c 2>/dev/null
    "./$name" -m1000000 >"$name.log"
  )
  states=$(sed -n 's/^ *\([0-9.e+]*\) states, stored.*/\1/p' "$work/$name.log")
  if grep -q 'errors: 0' "$work/$name.log" && ! grep -q 'depth too small' "$work/$name.log"; then
    echo "models: $name holds, $states states"
  else
    tail -n 20 "$work/$name.log"
    echo "models: $name FAILED"
    exit 1
  fi
done
