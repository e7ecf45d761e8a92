#!/usr/bin/env bash
# Installs the x64 build into a scratch prefix and packages it as a .deb:
# the installed vardamap must find the installed plug-in and run the demo,
# and the package must hold the plug-in, the public header and the tool.
set -euo pipefail
cd "$(dirname "$0")/../.."
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install build/x64 --prefix "$scratch/prefix" >/dev/null
"$scratch/prefix/bin/vardamap" --version | grep -q "interface     4"
"$scratch/prefix/bin/vardamap" demo "$scratch/demo" >/dev/null
"$scratch/prefix/bin/vardamap" check "$scratch/demo/areas.shp"
(cd "$scratch" && cpack --config "$OLDPWD/build/x64/CPackConfig.cmake" -B "$scratch/pkg" >/dev/null)
deb=$(ls "$scratch"/pkg/*.deb)
contents=$(dpkg-deb -c "$deb")
for f in ./usr/bin/vardamap ./usr/lib/varda/VardaPlugIn_SHP.so ./usr/include/VardaPlugIn.h; do
  grep -q " $f\$" <<<"$contents" || { echo "$(basename "$deb") lacks $f" >&2; exit 1; }
done
echo "installed and packaged: $(basename "$deb")"
