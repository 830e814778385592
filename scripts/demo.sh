#!/usr/bin/env bash
# The main job on real pictures: packs them, reads them back through the library, checks each pixel.
set -euo pipefail
cd "$(dirname "$0")/.."
echo "demo: nothing to show yet"
