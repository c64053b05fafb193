#!/usr/bin/env bash
# Installs everything KUVO Lumivale needs to build, test and run on Debian 12.
# Safe to run again: apt-get skips what is present, the model step skips a
# model that is already in its cache.
set -euo pipefail

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  SUDO="sudo"
fi

PACKAGES=(
  pkg-config cmake ninja-build g++
  libvips-dev libvips-tools
  libraw-dev liblensfun-dev liblensfun-data-v1
  libexiv2-dev exiv2
  libheif-dev libheif-examples
  libturbojpeg0-dev libpng-dev libtiff-dev zlib1g-dev
  liblcms2-dev liblcms2-utils
  libsqlite3-dev
  qt6-base-dev qt6-svg-dev qt6-image-formats-plugins
  libtbb-dev nlohmann-json3-dev libfmt-dev libicu-dev libhwy-dev
  libpango1.0-dev libcairo2-dev icc-profiles-free fonts-urw-base35 fonts-texgyre
  libopencv-core-dev libopencv-imgproc-dev libopencv-dnn-dev
  libopencv-objdetect-dev opencv-data
  python3-onnx ccache xvfb xauth
  libgtest-dev libgmock-dev libbenchmark-dev
  libimage-exiftool-perl hyperfine
  xdg-user-dirs
)

# Only touch apt when something is missing, so incremental `make` runs stay fast.
missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed"; then
    missing+=("$p")
  fi
done

if [ "${#missing[@]}" -gt 0 ] || [ "${LUMIVALE_FORCE_APT:-0}" = "1" ]; then
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update
  $SUDO apt-get install -y --no-install-recommends "${PACKAGES[@]}"
fi

if ! command -v npm >/dev/null 2>&1; then
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get install -y --no-install-recommends nodejs npm
fi

# The salient-object model of the subject and people masks, into a folder
# outside the repository (see install-model.sh). LUMIVALE_SKIP_MODEL=1 leaves
# it out: the programs then say that subject detection is not available, and
# the tests that need it are skipped.
if [ "${LUMIVALE_SKIP_MODEL:-0}" != "1" ]; then
  "$(dirname "${BASH_SOURCE[0]}")/install-model.sh"
fi

echo "install-deps: all packages present"
