#!/usr/bin/env bash
# vardamap dump --format geojson against ogr2ogr -f GeoJSON on the same large
# line map, in the same run: wall time and peak memory of each.
# Usage: bash bench/vardamap_geojson.sh [--quick] [--build DIR]
#   full: 1,000,000 lines of 16 points (about 312 MB); --quick: 20,000 lines.
set -euo pipefail
cd "$(dirname "$0")/.."
lines=1000000
build=build/x64
while [ $# -gt 0 ]; do
  case "$1" in
    --quick) lines=20000 ;;
    --build) build="$2"; shift ;;
    *) echo "usage: $0 [--quick] [--build DIR]" >&2; exit 2 ;;
  esac
  shift
done
tool="$build/tools/vardamap"
[ -x "$tool" ] || { echo "no $tool: build the vardamap target first" >&2; exit 2; }
command -v ogr2ogr >/dev/null || { echo "ogr2ogr missing (apt-get install gdal-bin)" >&2; exit 2; }
work=$(mktemp -d /tmp/vardamap-bench-XXXXXX)
trap 'rm -rf "$work"' EXIT INT TERM

# The map: PolyLine records of one part and 16 points each, with its index.
python3 - "$work/big" "$lines" <<'PY'
import struct, sys
stem, n = sys.argv[1], int(sys.argv[2])
pts = 16
content = 44 + 4 + 16 * pts            # bytes of one record's content
rec = 8 + content
total = 100 + n * rec
def header(length_words):
    h = struct.pack('>7i', 9994, 0, 0, 0, 0, 0, length_words)
    return h + struct.pack('<2i4d4d', 1000, 3, 0.0, 0.0, 1000.0, 1000.0, 0, 0, 0, 0)
with open(stem + '.shp', 'wb') as shp, open(stem + '.shx', 'wb') as shx:
    shp.write(header(total // 2))
    shx.write(header((100 + 8 * n) // 2))
    offset = 100
    chunk = []
    for i in range(n):
        x0 = (i % 1000) * 1.0; y0 = (i // 1000) % 1000 * 1.0
        xy = []
        for k in range(pts):
            xy += [x0 + k * 0.05, y0 + (k % 2) * 0.05]
        body = struct.pack('<i4d2i', 3, x0, y0, x0 + 0.75, y0 + 0.05, 1, pts) + struct.pack('<i', 0) + struct.pack('<%dd' % (2 * pts), *xy)
        chunk.append(struct.pack('>2i', i + 1, content // 2) + body)
        shx.write(struct.pack('>2i', offset // 2, content // 2))
        offset += rec
        if len(chunk) == 4096:
            shp.write(b''.join(chunk)); chunk = []
    shp.write(b''.join(chunk))
PY
size=$(stat -c %s "$work/big.shp")
echo "map: $lines lines of 16 points, $((size / 1000000)) MB"

measure() {  # variable for the seconds, label, command...
  local var="$1" label="$2"; shift 2
  /usr/bin/time -f "%e %M" -o "$work/time" "$@" >/dev/null 2>"$work/err" || { cat "$work/err" >&2; exit 1; }
  read -r secs kib <"$work/time"
  printf '%-34s %8.2f s  %8.1f MiB peak\n' "$label" "$secs" "$(echo "$kib / 1024" | bc -l)"
  printf -v "$var" '%s' "$secs"
}
export VARDAMAP_PROGRESS=never
measure ours "vardamap dump --format geojson" "$tool" dump "$work/big.shp" --format geojson -o "$work/ours.geojson"
measure theirs "ogr2ogr -f GeoJSON" ogr2ogr -f GeoJSON "$work/theirs.geojson" "$work/big.shp"
measure base "vardamap info (baseline)" "$tool" info "$work/big.shp"
ratio=$(echo "$theirs / $ours" | bc -l)
printf 'dump geojson is %.1f times as fast as ogr2ogr (target: at least 4)\n' "$ratio"
