#!/usr/bin/env bash
# Maps beyond 2 GiB through the x64 and i386 builds of the plug-in.
#
# For each build: a PolyLine map of about 2.2 GB (records of 1 KB, one of
# them across byte 2^31) is written straight to disk, then edited through the
# plug-in in four sessions, each opening the map and reading it to the end:
# replace the last record with a longer one; delete the last record and
# replace the first with a shorter one; replace the first with a longer one;
# delete the first. After each session an independent checker reads both
# files (index against record headers, record numbers, header lengths, the
# bytes of every record); at the end the map is read once more and the .bak
# copies made by the first change must still hold the map as it was written.
# Then a sparse map of about 4.5 GB, larger than the header's length in
# 16-bit words can state, must be refused with a message, with no change and
# no .bak (under a file size limit, so that a plug-in that writes anyway
# cannot fill the disk).
#
# Needs about 5 GB free in /tmp (else it says so and passes) and about a
# minute. VARDA_LARGE_BUILDS="build/a build/b" picks other build folders;
# VARDA_LARGE_TMP another place for the maps.
set -euo pipefail
cd "$(dirname "$0")/../.."

builds=(build/x64 build/i386)
[ -n "${VARDA_LARGE_BUILDS:-}" ] && read -r -a builds <<<"$VARDA_LARGE_BUILDS"
tmp=${VARDA_LARGE_TMP:-/tmp}
records=2165000   # of 1,016 bytes: a .shp of 2,199,640,100 bytes

free_kb=$(df -Pk "$tmp" | awk 'NR == 2 { print $4 }')
if [ "${free_kb:-0}" -lt 5000000 ]; then
  echo "large maps: skipped, $tmp has $((${free_kb:-0} / 1000)) MB free and the run needs about 5 GB"
  exit 0
fi

work=$(mktemp -d "$tmp/varda_large_XXXXXX")
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT TERM

# One build's run on the large map; stops at the first fault.
edit_large_map() {
  local tool=$1 plugin=$2 stem=$3/map
  local n=$records last=$((records - 1))
  local long_last=$((records + 1)) short_first=$((records + 2)) long_first=$((records + 3))
  echo "write the map"
  "$tool" write "$stem" "$n" || return 1
  echo "session 1: read all, replace the last record with a longer one (first change: makes .bak)"
  "$tool" edit "$plugin" "$stem" read="$n" replace="$n:$long_last:80" || return 1
  "$tool" check "$stem" "1-$last" "$long_last/80" || return 1
  local bak
  bak=$(stat -c '%s %Y' "$stem.shp.bak" "$stem.shx.bak") || { echo "  FAULT no .bak copies"; return 1; }
  echo "session 2: read all, delete the last record, replace the first with a shorter one"
  "$tool" edit "$plugin" "$stem" read="$n" delete="$n" replace="1:$short_first:20" || return 1
  "$tool" check "$stem" "$short_first/20" "2-$last" || return 1
  echo "session 3: read all, replace the first record with a longer one"
  "$tool" edit "$plugin" "$stem" read="$last" replace="1:$long_first:100" || return 1
  "$tool" check "$stem" "$long_first/100" "2-$last" || return 1
  echo "session 4: read all, delete the first record"
  "$tool" edit "$plugin" "$stem" read="$last" delete=1 || return 1
  "$tool" check "$stem" "2-$last" || return 1
  echo "read the result through the plug-in"
  "$tool" edit "$plugin" "$stem" read="$((last - 1))" || return 1
  echo "the .bak copies: made once, never refreshed, the map as written"
  if [ "$(stat -c '%s %Y' "$stem.shp.bak" "$stem.shx.bak")" != "$bak" ]; then
    echo "  FAULT the .bak copies changed after the first session"
    return 1
  fi
  ln "$stem.shp.bak" "$3/backup.shp" && ln "$stem.shx.bak" "$3/backup.shx" || return 1
  "$tool" check "$3/backup" "1-$n" || return 1
}

refuse_oversized_map() {
  local tool=$1 plugin=$2 stem=$3/oversized
  echo "write a sparse map beyond the header's 32-bit length in words"
  "$tool" oversized "$stem" || return 1
  echo "open, read and change it through the plug-in: all must be refused"
  # 64 MiB at most per file written: a .bak copy or a write far into the
  # map fails instead of filling the disk.
  (ulimit -f 65536 && exec "$tool" refuse "$plugin" "$stem") || return 1
}

status=0
ran=0
start=$SECONDS
for build in "${builds[@]}"; do
  tool=$build/tests/large/large_maps
  plugin=$build/VardaPlugIn_SHP.so
  if [ ! -d "$build" ]; then
    echo "-- $build: not built, skipped"
    continue
  fi
  if [ ! -x "$tool" ] || [ ! -f "$plugin" ]; then
    echo "-- $build: FAILED, $tool or $plugin is missing"
    status=1
    continue
  fi
  ran=$((ran + 1))
  dir=$work/$(basename "$build")
  mkdir -p "$dir"
  echo "-- $build: map of $records PolyLine records in $dir"
  t=$SECONDS
  if edit_large_map "$tool" "$plugin" "$dir"; then
    echo "-- $build: large map edited and checked ($((SECONDS - t)) s)"
  else
    echo "-- $build: FAILED on the large map ($((SECONDS - t)) s)"
    status=1
  fi
  rm -rf "${dir:?}"/*
  t=$SECONDS
  if refuse_oversized_map "$tool" "$plugin" "$dir"; then
    echo "-- $build: oversized map refused ($((SECONDS - t)) s)"
  else
    echo "-- $build: FAILED on the oversized map ($((SECONDS - t)) s)"
    status=1
  fi
  rm -rf "$dir"
done
if [ $ran -eq 0 ] && [ $status -eq 0 ]; then
  echo "large maps: no build found, nothing run"
else
  echo "large maps: $([ $status -eq 0 ] && echo passed || echo FAILED) in $((SECONDS - start)) s"
fi
exit $status
