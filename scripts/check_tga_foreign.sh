#!/usr/bin/env bash
# TGA files of another maker read by the library, and the library's read by that maker: ImageMagick
# writes and reads pictures of every kind that both know, and the pixels are compared.
#
# Needs ImageMagick (`convert`); ends with one line.
set -euo pipefail
cd "$(dirname "$0")/.."
command -v convert >/dev/null || { echo "tga: not run, ImageMagick is missing"; exit 0; }
preset=${QX_PRESET:-mingw}
build=build/$preset
[ -f "$build/build.ninja" ] || cmake --preset "$preset" >/dev/null
${QX_BUILD_WRAPPER:-} ninja -C "$build" --quiet images_test
. scripts/wine_session.sh

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
picture() { convert -size 67x41 plasma:red-blue -seed 5 -depth 8 "$@"; }

picture -alpha off "$folder/base.bmp3.png" 2>/dev/null
base=$folder/base.bmp3.png
convert "$base" -alpha off -compress none "TGA:$folder/plain_24.tga"
convert "$base" -alpha off -compress RLE "TGA:$folder/packed_24.tga"
convert "$base" -alpha on -channel A -fx 'i/w' +channel -compress none "TGA:$folder/plain_32.tga"
convert "$base" -alpha on -channel A -fx 'i/w' +channel -compress RLE "TGA:$folder/packed_32.tga"
convert "$base" -colorspace Gray -compress none "TGA:$folder/plain_grey.tga"
convert "$base" -colorspace Gray -compress RLE "TGA:$folder/packed_grey.tga"
convert "$base" -alpha off -colors 200 -type Palette -compress none "TGA:$folder/plain_map.tga"
convert "$base" -alpha off -colors 200 -type Palette -compress RLE "TGA:$folder/packed_map.tga"

count=0
for file in "$folder"/*.tga; do
  # What the other reader sees, turned upright: blue, green, red, alpha from the top left.
  convert "$file" -auto-orient -alpha on -depth 8 "BGRA:${file%.tga}.raw"
  count=$((count + 1))
done
QX_FOREIGN_TGA="Z:$folder" $wine "$build/bin/images_test.exe" --gtest_filter='ForeignTGA.*' \
  --gtest_also_run_disabled_tests --gtest_brief=1 >"$folder/log" 2>&1 ||
  { cat "$folder/log"; exit 1; }

# And back: the library wrote NAME.out.tga with alpha, in another orientation each.
for file in "$folder"/*.out.tga; do
  convert "$file" -auto-orient -alpha on -depth 8 "BGRA:$folder/again.raw"
  cmp "$folder/again.raw" "${file%.out.tga}.raw"
done
echo "tga: $count files of another maker read and written back alike"
