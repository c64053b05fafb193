#!/usr/bin/env bash
# Makes the reference pictures of the snapshot test anew from this build:
# runs `lumivale --snapshots` into a fresh temporary folder and puts its PNG
# files in tests/data/snapshots/ in place of the old ones. Run it only after
# looking at what changed (open the contact sheet it names), and commit the
# new references with the change that explains them.
#   scripts/update-snapshot-references.sh [build folder, default build/release]
set -euo pipefail

cd "$(dirname "$0")/.."
BUILD="${1:-build/release}"
cmake --build "$BUILD" --target lumivale

shots="$(mktemp -d /tmp/lumivale-snapshots-XXXXXX)"
"$BUILD/app/lumivale" --snapshots "$shots"

references=tests/data/snapshots
mkdir -p "$references"
rm -f "$references"/*.png
cp "$shots"/*.png "$references"/
echo "References updated from $shots (the contact sheet is $shots/index.html)."
git status --short "$references"
