#!/usr/bin/env python3
"""Prints what a host should receive from each map given on the command line,
read with pyshp (an independent shapefile reader), by the delivery rules of
the SHP plug-in:

  * every line or area record is one line through all its points, from the
    start of its first part; Z only for PolyLineZ and PolygonZ;
  * Point and PointZ give their point, MultiPoint(Z) its first point, all
    without Z;
  * other types below 32 deliver nothing; a Null record ends the map.

Before the shapes, the consistency rules that the plug-in enforces between
the two files are applied to the raw bytes; a map that breaks one gets
"FAIL <n> <message>" (n: shapes delivered before the failure), else "OK".

Output, per map: "MAP <path>", the verdict line, then per delivered shape
"S <id> <flags> <count>" followed by one "P <x> <y> <z>" per point, with
round-tripping float text. Exit status 2 when pyshp is missing.
"""
import struct
import sys

try:
    import shapefile
except ImportError:
    sys.exit(2)

LINE_TYPES = {3: 0x80, 5: 0x81, 13: 0, 15: 1}
POINT_TYPES = {1, 11, 8, 18}


def be(b, off):
    return struct.unpack(">i", b[off:off + 4])[0] if off + 4 <= len(b) else 0


def le(b, off):
    return struct.unpack("<i", b[off:off + 4])[0] if off + 4 <= len(b) else 0


def verdict(path):
    shp = open(path, "rb").read()
    shx = open(path[:-3] + "shx", "rb").read()
    n_words = be(shp, 24)
    hx = bytearray(shx[:100])
    hx[24:28] = shp[24:28]
    if bytes(hx[:36]) != shp[:36]:
        return "FAIL 0 Error: headers are not identical between SHP and SHX"
    lx = 2 * be(shx, 24)
    o, l = be(shx, lx - 8), be(shx, lx - 4)
    if abs(o + l + 4 - n_words) > 4 and o > 0 and l > 0:
        return "FAIL 0 Error: FileSize error in the SHP - SHX header."
    file_type = le(shp, 32)
    pos, count = 100, 0
    while pos + 4 <= len(shp) and pos < 2 * n_words:
        if be(shp, pos) == 0:
            break
        c, t = be(shp, pos + 4), le(shp, pos + 8)
        entry = 100 + 8 * count
        if 2 * be(shx, entry) != pos or c != be(shx, entry + 4):
            return "FAIL %d Error 1 in SHP-SHX relation in shape #%d" % (count, count)
        count += 1
        if not 1 <= t <= 31:
            break
        if t != file_type:
            if file_type != 0:
                return "FAIL %d ShapeType Error reading SHP file." % (count - 1)
            file_type = t
        pos += 8 + 2 * c
    return "OK"


def dump(path, out):
    out.write("MAP %s\n" % path)
    out.write(verdict(path) + "\n")
    with open(path, "rb") as shp, open(path[:-3] + "shx", "rb") as shx:
        reader = shapefile.Reader(shp=shp, shx=shx)
        for i, shape in enumerate(reader.iterShapes()):
            t = shape.shapeType
            if t == 0:
                break
            if t in POINT_TYPES:
                if not shape.points:
                    continue
                x, y = shape.points[0][0], shape.points[0][1]
                out.write("S %d 3 1\nP %r %r 0.0\n" % (i + 1, float(x), float(y)))
            elif t in LINE_TYPES:
                pts = shape.points
                if not pts:
                    continue
                start = shape.parts[0] if len(shape.parts) else 0
                zs = list(shape.z) if t in (13, 15) else [0.0] * len(pts)
                out.write("S %d %d %d\n" % (i + 1, LINE_TYPES[t], len(pts) - start))
                for j in range(start, len(pts)):
                    out.write("P %r %r %r\n" % (float(pts[j][0]), float(pts[j][1]), float(zs[j])))


def main():
    for path in sys.argv[1:]:
        dump(path, sys.stdout)


if __name__ == "__main__":
    main()
