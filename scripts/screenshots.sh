#!/usr/bin/env bash
# Pictures of the desktop app, for people and for CI.
#
#   scripts/screenshots.sh [OUT_DIR] [BUILD_DIR]     take them
#   scripts/screenshots.sh --check OUT_DIR           check them
#
# Taking them: imports ../shared/testdata/photos into a temporary library,
# runs the app under Xvfb through its screenshot tour (Library grid, Develop
# with an edit and a mask overlay, the export sheet), then a second time on
# a synthetic catalog of 100,000 photos, and saves library.png, develop.png,
# export.png and grid-100000.png into OUT_DIR (default build/release/screenshots).
# Checking them: each must be the window (1560 x 960), and neither blank nor
# one colour.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
width=1560
height=960
shots=(library.png develop.png export.png grid-100000.png)

check() {
  local dir="$1" failed=0
  for name in "${shots[@]}"; do
    local file="$dir/$name"
    if [[ ! -s "$file" ]]; then
      echo "missing: $file"; failed=1; continue
    fi
    local w h sd lo hi
    w=$(vipsheader -f width "$file")
    h=$(vipsheader -f height "$file")
    sd=$(vips deviate "$file")
    lo=$(vips min "$file")
    hi=$(vips max "$file")
    if [[ "$w" != "$width" || "$h" != "$height" ]]; then
      echo "$name: ${w}x${h}, not the window's ${width}x${height}"; failed=1
    fi
    # Blank or one colour: almost no spread of values.
    if awk -v sd="$sd" -v lo="$lo" -v hi="$hi" 'BEGIN { exit !(sd < 8 || hi - lo < 64) }'; then
      echo "$name: looks blank (deviation $sd, values $lo to $hi)"; failed=1
    fi
    echo "$name: ${w}x${h}, deviation $sd"
  done
  return $failed
}

if [[ "${1:-}" == "--check" ]]; then
  check "${2:?--check needs the folder of the pictures}"
  exit $?
fi

out="$(realpath -m "${1:-$here/build/release/screenshots}")"
build="$(realpath -m "${2:-$here/build/release}")"
app="$build/app/lumivale"
cli="$build/cli/lumivale-cli"
photos="$here/../shared/testdata/photos"
for tool in "$app" "$cli"; do
  [[ -x "$tool" ]] || { echo "build $tool first"; exit 2; }
done
[[ -d "$photos" ]] || { echo "no test photos at $photos"; exit 2; }

work="$(mktemp -d /tmp/lumivale-shots-XXXXXX)"
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"
export LUMIVALE_CONFIG="$work/config"   # never the user's own settings
export QT_QPA_PLATFORM=xcb

run_tour() {
  local library="$1" tour="$2"
  LUMIVALE_SCREENSHOTS="$out" LUMIVALE_SCREENSHOT_TOUR="$tour" \
    timeout 300 xvfb-run -a -s "-screen 0 1920x1200x24 -dpi 96" "$app" --library "$library"
}

# 1. The test photos, imported as a user would.
"$cli" --library "$work/lib" import "$photos" >/dev/null
run_tour "$work/lib" "library,develop,export"

# 2. 100,000 photos: catalog rows over a few small pictures. The newest rows,
# which the grid shows first, link to real files so their cells get real
# thumbnails; the rest name files that are not there (placeholders when
# scrolled to), which keeps making and removing the catalog quick.
mkdir -p "$work/big/files"
"$cli" --library "$work/big/lib" info >/dev/null
mapfile -t sources < <(find "$photos/orientation" "$photos/iptc" -name '*.jp*g' | sort)
python3 - "$work/big" "${sources[@]}" <<'PY'
import os, sqlite3, sys
root, sources = sys.argv[1], sys.argv[2:]
rows = []
for i in range(1, 100001):
    folder = f"{root}/files/{i // 1000:03d}"
    path = f"{folder}/IMG_{i:06d}.jpg"
    if i > 99_700:
        os.makedirs(folder, exist_ok=True)
        os.symlink(sources[i % len(sources)], path)
    rows.append((path, folder, f"IMG_{i:06d}.jpg", "jpg", 2_000_000 + i, 1800, 1200, 1.6e9 + i * 60,
                 1.7e9, "Canon EOS R5", "RF24-70mm F2.8 L IS USM", 100 * (1 + i % 64), 1 / (1 + i % 4000),
                 2.8, 50, i % 6))
db = sqlite3.connect(f"{root}/lib/Lumivale Library.sqlite")
db.executemany("INSERT INTO photos(path, folder, name, ext, size, width, height, capture, imported, camera,"
               " lens, iso, shutter, aperture, focal, rating) VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)", rows)
db.commit()
PY
run_tour "$work/big/lib" "grid"

check "$out"
