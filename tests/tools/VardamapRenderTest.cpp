// render: the picture's size follows its pixels, not the map's shapes, and
// --png writes the same picture as a PNG.
#include <gtest/gtest.h>

#include <sstream>

#include "ToolRunner.h"

using namespace vmtest;

TEST(VardamapRender, ShapesSmallerThanAPixelBecomeDotsOneAPixel) {
  TempDir dir;
  // One long line spans the map; 6000 lines much shorter than a pixel lie on
  // 60 places, so at most 60 dots are drawn.
  std::ostringstream in;
  in << "0 0\n1000 1000\n\n";
  for (int i = 0; i < 6000; ++i) {
    const double x = (i % 60) * 10.0 + 5, y = 500 + (i % 7) * 0.01;
    in << x << " " << y << "\n" << x + 0.2 << " " << y + 0.1 << "\n" << x + 0.3 << " " << y << "\n\n";
  }
  const std::string map = dir / "tiny.shp";
  ASSERT_EQ(Vardamap({"add", map, "--create"}, in.str()).code, 0);
  Result r = Vardamap({"render", map, "-o", dir / "tiny.svg", "--size", "400"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("6001 shapes drawn"), std::string::npos) << r.out;
  const std::string svg = ReadFile(dir / "tiny.svg");
  EXPECT_NE(svg.find("6000 shapes smaller than a pixel"), std::string::npos);
  EXPECT_EQ(Count(svg, "h0"), 60u);
  EXPECT_EQ(Count(svg, "class=\"line\""), 1u);  // the long line keeps its own element
  EXPECT_LT(svg.size(), 20000u);
  if (HaveProgram("xmllint")) {
    EXPECT_EQ(RunProgram({"xmllint", "--noout", dir / "tiny.svg"}).code, 0);
  }
}

TEST(VardamapRender, VerticesCloserThanHalfAPixelAreMerged) {
  TempDir dir;
  std::ostringstream in;
  for (int i = 0; i <= 10000; ++i) in << i * 0.1 << " " << (i % 2) * 0.01 << "\n";
  in << "\n0 0\n0 1000\n";
  const std::string map = dir / "dense.shp";
  ASSERT_EQ(Vardamap({"add", map, "--create"}, in.str()).code, 0);
  ASSERT_EQ(Vardamap({"render", map, "-o", dir / "dense.svg", "--size", "500"}).code, 0);
  const std::string svg = ReadFile(dir / "dense.svg");
  // 10001 points on 500 pixels: a vertex every half pixel at most, the ends kept.
  const size_t vertices = Count(svg, " L") + Count(svg, "\"M");
  EXPECT_LT(vertices, 1200u);
  EXPECT_GT(vertices, 500u);
}

TEST(VardamapRender, PngIsWrittenBesideTheSvg) {
  if (!HaveGisCorpus()) GTEST_SKIP() << "no " << GisCorpusDir();
  TempDir dir;
  Result r = Vardamap({"render", GisCorpusDir() + "/nc.shp", "-o", dir / "nc.svg", "--png", dir / "nc.png"});
  if (r.code == 2 && r.err.find("built without") != std::string::npos) GTEST_SKIP() << r.err;
  ASSERT_EQ(r.code, 0) << r.err;
  const std::string png = ReadFile(dir / "nc.png");
  ASSERT_GT(png.size(), 1000u);
  EXPECT_EQ(png.substr(1, 3), "PNG");
  EXPECT_EQ(Vardamap({"render", GisCorpusDir() + "/nc.shp", "-o", dir / "x.svg", "--png", dir / "no/such/x.png"}).code, 1);
  EXPECT_FALSE(FileExists(dir / "no/such/x.png"));
}
