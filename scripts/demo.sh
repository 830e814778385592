#!/usr/bin/env bash
# The main job on real pictures, by one command from a bare Debian 12 machine:
# pictures that ImageMagick brings, saved by it as TGA in every variant, are packed by qxpack, read
# back by examples/pack_pictures under Wine, and compared pixel by pixel with ImageMagick's own
# decoding. Writes build/demo/contact_sheet.tga and .png. Then examples/viewer shows some of them in
# a window, and a screenshot (build/demo/screen.png) is searched for the decoder's pixels.
#
#   scripts/demo.sh                   the whole of it
#   scripts/demo.sh --break pixel     the same with one decoded pixel changed: must fail
#   scripts/demo.sh --break pack      ... with the pack cut short
#   scripts/demo.sh --break key       ... with another key than the pack's
set -euo pipefail
cd "$(dirname "$0")/.."
break_what=
if [ "${1:-}" = --break ]; then break_what=${2:?pixel, pack or key}; fi

fail() {
  echo "demo: FAILED: $*"
  exit 1
}

scripts/setup.sh
build=build/mingw
echo "demo: building"
[ -f $build/build.ninja ] || cmake --preset mingw >build/demo.configure.log 2>&1 ||
  fail "configuring: build/demo.configure.log"
ninja -C $build --quiet qxpack pack_pictures parallel_mips viewer || fail "building"

work=build/demo
pictures=$work/pictures
out=$work/out
rm -rf $work
mkdir -p $pictures $out
magick=/usr/bin/convert

# save NAME SOURCE ORIGIN OPTIONS…: one picture as TGA. ImageMagick stores rows as it has them and
# only marks the origin, so the picture is turned first.
save() {
  local name=$1 source=$2 origin=$3 turn=
  shift 3
  case $origin in
    TopRight) turn=-flop ;;
    BottomLeft) turn=-flip ;;
    BottomRight) turn="-flip -flop" ;;
  esac
  $magick "$source" "$@" $turn -define tga:image-origin=$origin "$pictures/$name.tga"
}

echo "demo: drawing the pictures"
plain=(-compress none)
runs=(-compress RLE)
colour=(-alpha off -type TrueColor)
grey=(-alpha off -type Grayscale)
mapped=(-alpha off -type Palette -colors 256)
clear=(-alpha set -channel A -fx 'i/w' +channel -type TrueColorAlpha)
for source in rose logo wizard granite netscape; do
  scaled=$work/$source.png
  $magick "$source:" -resize '160x160>' "$scaled"
  for origin in TopLeft TopRight BottomLeft BottomRight; do
    save "$source-24-$origin" "$scaled" $origin "${colour[@]}" "${plain[@]}"
  done
  for origin in TopLeft BottomLeft; do
    save "$source-24-rle-$origin" "$scaled" $origin "${colour[@]}" "${runs[@]}"
    save "$source-32-$origin" "$scaled" $origin "${clear[@]}" "${plain[@]}"
    save "$source-grey-$origin" "$scaled" $origin "${grey[@]}" "${plain[@]}"
    save "$source-mapped-$origin" "$scaled" $origin "${mapped[@]}" "${plain[@]}"
  done
  save "$source-32-rle" "$scaled" TopRight "${clear[@]}" "${runs[@]}"
  save "$source-grey-rle" "$scaled" BottomRight "${grey[@]}" "${runs[@]}"
  save "$source-mapped-rle" "$scaled" BottomLeft "${mapped[@]}" "${runs[@]}"
done
save logo-large logo: TopLeft "${colour[@]}" "${plain[@]}"
save logo-half logo: TopLeft -resize 60% "${colour[@]}" "${plain[@]}"
save wizard-large wizard: BottomLeft "${colour[@]}" "${runs[@]}"

. scripts/wine_session.sh
key=4711
echo "demo: packing"
$wine $build/bin/qxpack.exe create --key $key $work/pictures.pack $pictures || fail "packing"

case "$break_what" in
  pack) truncate -s 4000 $work/pictures.pack ;;
  key) key=4712 ;;
esac

echo "demo: reading"
$wine $build/bin/pack_pictures.exe $work/pictures.pack $out $key | tr -d '\r' ||
  fail "the host could not read the pack"

if [ "$break_what" = pixel ]; then
  printf '\x80\x81\x82' | dd of=$out/rose-24-TopLeft.tga.bgra bs=1 seek=404 conv=notrunc status=none
fi

echo "demo: comparing each pixel with the other decoder's"
verdict=$(python3 scripts/compare_pictures.py $pictures $out) || fail "$verdict"

echo "demo: the same pictures as tasks"
$wine $build/bin/parallel_mips.exe $work/pictures.pack $key 2>/dev/null | tr -d '\r' ||
  fail "tasks give other levels than one loop"

cp $out/contact_sheet.tga $work/
$magick $work/contact_sheet.tga -auto-orient $work/contact_sheet.png ||
  fail "the contact sheet is no picture"
echo "demo: showing pictures in a window for some seconds"
shown=$work/shown
mkdir -p $shown
cp $pictures/logo-half.tga $pictures/rose-24-TopLeft.tga $pictures/wizard-large.tga $shown/
$wine $build/bin/qxpack.exe create $work/shown.pack $shown >/dev/null || fail "packing"
$wine $build/bin/viewer.exe $work/shown.pack --seconds 4 --screenshot $work/window.tga &
viewer=$!
sleep 2.5
/usr/bin/import -window root $work/screen.png || fail "no screenshot"
wait $viewer || fail "the viewer ended with $?"
for shot in $work/screen.png $work/window.tga; do
  place=$(python3 scripts/find_picture.py $shown/logo-half.tga $shot) || fail "$place"
done

echo "demo: $verdict; $work/contact_sheet.png shows them"
