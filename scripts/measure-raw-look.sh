#!/usr/bin/env bash
# How close the untouched render of a RAW file comes to the JPEG its camera
# stored in it: the mean CIEDE2000 over all pixels, at the JPEG's size.
#
#   scripts/measure-raw-look.sh [RAW] [BUILD_DIR]
#
# RAW defaults to the shared Canon test photo, BUILD_DIR to build/release.
# The render is lumivale-cli's (`render RAW --size N`: the initial settings
# of a RAW photo) at the JPEG's size; the reference is the camera's JPEG
# exactly as stored, taken out with exiftool. Without a `render` command in
# lumivale-cli, the shared photo is measured by the render test, which
# renders it with the same settings at the same size.
# Needs exiftool and the vips command-line tools.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
raw=${1:-$root/../shared/testdata/photos/raw/IMG_5952.CR2}
build=${2:-$root/build/release}
cli=$build/cli/lumivale-cli
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

if ! "$cli" render --help >/dev/null 2>&1; then
  echo "lumivale-cli has no render command; measuring the shared photo with the render test" >&2
  "$build/tests/tests_render" --gtest_filter='RawLookCamera.*' | grep 'CIEDE2000'
  exit 0
fi

exiftool -b -PreviewImage "$raw" >"$work/camera.jpg"
[ -s "$work/camera.jpg" ] || { echo "no preview JPEG in $raw" >&2; exit 1; }
width=$(vipsheader -f width "$work/camera.jpg")
height=$(vipsheader -f height "$work/camera.jpg")

# Rendered at the JPEG's size; cut to it should the frame differ by a pixel.
"$cli" --library "$work/library" render "$raw" --size "$(( width > height ? width : height ))" \
  -o "$work/render.png" >/dev/null
vips crop "$work/render.png" "$work/fitted.v" 0 0 "$width" "$height"
vips colourspace "$work/fitted.v" "$work/ours.v" lab
vips colourspace "$work/camera.jpg" "$work/theirs.v" lab
vips dE00 "$work/ours.v" "$work/theirs.v" "$work/difference.v"
printf 'mean CIEDE2000 against the camera'"'"'s JPEG (%s x %s): %.2f\n' "$width" "$height" \
  "$(vips avg "$work/difference.v")"
