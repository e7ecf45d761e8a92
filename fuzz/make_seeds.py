#!/usr/bin/env python3
"""Turns .shp/.shx pairs into seed inputs of the fuzz target:
4-byte little-endian .shp length, one flags byte, the .shp, the .shx."""
import pathlib
import struct
import sys

src, dst = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
dst.mkdir(parents=True, exist_ok=True)
for shp in sorted(src.glob("*.shp")):
    data = shp.read_bytes()
    if len(data) > 200000:
        continue  # large seeds slow every mutation down
    shx = shp.with_suffix(".shx")
    index = shx.read_bytes() if shx.exists() else b""
    for flags in (0, 6):
        (dst / f"{shp.stem}-{flags}").write_bytes(struct.pack("<IB", len(data), flags) + data + index)
