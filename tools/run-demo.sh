#!/usr/bin/env bash
# Installs what is missing, builds the plug-in and vardamap (x64 preset), and
# runs the demo: sample maps made by the plug-in itself, read back and drawn.
# Usage: bash tools/run-demo.sh [DIR]   (default DIR: build/x64/vardamap-demo)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
dir=${1:-build/x64/vardamap-demo}

# Debian packages: the compiler and CMake, GoogleTest sources (the project
# configures its tests too), the two header-only libraries of vardamap, and
# rsvg-convert to turn the picture into a PNG.
pkgs=(cmake make g++ googletest libcli11-dev nlohmann-json3-dev librsvg2-bin)
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "== installing: ${missing[*]}"
  SUDO=""
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "run-demo: need root or sudo to install ${missing[*]}" >&2; exit 1; }
    SUDO="sudo"
  fi
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

echo "== building (preset x64)"
cmake --preset x64 >/dev/null
cmake --build --preset x64 -j"$(nproc)" --target vardamap VardaPlugIn_SHP >/dev/null

echo "== running the demo"
build/x64/tools/vardamap demo "$dir"

svg="$dir/demo.svg"
case "$svg" in /*) ;; *) svg="$root/$svg" ;; esac
if command -v rsvg-convert >/dev/null; then
  rsvg-convert "$svg" -o "${svg%.svg}.png"
  echo "== the picture: $svg (and ${svg%.svg}.png)"
else
  echo "== the picture: $svg"
fi
echo "   try also: build/x64/tools/vardamap info $dir/areas.shp"
