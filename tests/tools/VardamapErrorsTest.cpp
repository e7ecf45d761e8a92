// Wrong usage and bad input: one clear line on standard error and the
// documented exit code, never a crash.
#include <gtest/gtest.h>

#include <fstream>

#include "ToolRunner.h"

using namespace vmtest;

TEST(VardamapUsage, HelpForEveryCommandAndUnknownCommands) {
  Result top = Vardamap({"--help"});
  EXPECT_EQ(top.code, 0);
  for (const char* cmd : {"demo", "info", "dump", "render", "add", "delete", "check"}) {
    EXPECT_NE(top.out.find(cmd), std::string::npos) << cmd;
    Result r = Vardamap({cmd, "--help"});
    EXPECT_EQ(r.code, 0) << cmd;
    EXPECT_NE(r.out.find("Usage:"), std::string::npos) << cmd << ": " << r.out;
  }
  ExpectOneLineError(Vardamap({"frobnicate", "x.shp"}), 2, "unknown command \"frobnicate\"");
  ExpectOneLineError(Vardamap({}), 2, "no command given");
  ExpectOneLineError(Vardamap({"info"}), 2, "MAP is required");
  ExpectOneLineError(Vardamap({"dump", "x.shp", "--format", "xml"}), 2, "--format");
  ExpectOneLineError(Vardamap({"info", "x.shp", "--bogus"}), 2, "--bogus");
}

TEST(VardamapUsage, MissingOrUnusableMapsAreThePlugInsRefusal) {
  TempDir dir;
  const std::string missing = dir / "missing.shp";
  for (const char* cmd : {"info", "dump", "check"})
    ExpectOneLineError(Vardamap({cmd, missing}), 1, "Error: File " + missing + " not found.");
  ExpectOneLineError(Vardamap({"delete", missing, "1"}), 1, "not found");
  ExpectOneLineError(Vardamap({"add", missing}, "1 1\n"), 1, "not found");
  ExpectOneLineError(Vardamap({"render", missing, "-o", dir / "x.svg"}), 1, "not found");
}

TEST(VardamapUsage, PlugInIsFoundOrNamedAndItsVersionShown) {
  Result v = Vardamap({"--version"});
  ASSERT_EQ(v.code, 0) << v.err;
  EXPECT_NE(v.out.find("VardaGPS SHP & E00 Plug-In, version 1.02"), std::string::npos) << v.out;
  EXPECT_NE(v.out.find("interface     4 (private 1)"), std::string::npos) << v.out;
  EXPECT_NE(v.out.find("6|SHP Vector Maps|shp|"), std::string::npos) << v.out;
  Result named = Vardamap({"--plugin", VARDA_PLUGIN_PATH, "--version"});
  EXPECT_EQ(named.code, 0) << named.err;
  EXPECT_NE(named.out.find(VARDA_PLUGIN_PATH), std::string::npos);
  // --plugin may follow the command as well.
  TempDir dir;
  EXPECT_EQ(Vardamap({"demo", dir.path(), "--plugin", VARDA_PLUGIN_PATH}).code, 0);

  ExpectOneLineError(Vardamap({"--plugin", dir / "none.so", "--version"}), 1, "cannot load the plug-in");
  // A shared library that is no plug-in lacks the exports.
  ExpectOneLineError(Vardamap({"--plugin", "/lib/x86_64-linux-gnu/libm.so.6", "info", "x.shp"}), 1,
                     sizeof(void*) == 8 ? "does not export VardaPlugIn_Version" : "cannot load");
  ExpectOneLineError(Vardamap({"--plugin", dir / "roads.shp", "check", dir / "roads.shp"}), 1,
                     "cannot load the plug-in");
}

TEST(VardamapUsage, BadInputToAddIsRefusedBeforeAnythingChanges) {
  TempDir dir;
  const std::string map = dir / "m.shp";
  ExpectOneLineError(Vardamap({"add", map, "--create"}, "1 2\n3 x\n"), 2, "line 2: y is not a finite number");
  ExpectOneLineError(Vardamap({"add", map, "--create"}, "1 2 3 4\n"), 2, "line 1: expected");
  ExpectOneLineError(Vardamap({"add", map, "--create"}, "nan 1\n"), 2, "x is not a finite number");
  ExpectOneLineError(Vardamap({"add", map, "--create"}, "1e999 1\n"), 2, "x is not a finite number");
  ExpectOneLineError(Vardamap({"add", map, "--create"}, ""), 2, "no points on standard input");
  ExpectOneLineError(Vardamap({"add", map, "--create", "--kind", "polygon"}, "0 0\n1 1\n"), 2,
                     "a polygon needs at least 3 points");
  ExpectOneLineError(Vardamap({"add", map, "--create", "--kind", "circle"}, "0 0\n"), 2, "--kind");
  ExpectOneLineError(Vardamap({"add", map, "--create", "--id", "1"}, "0 0\n"), 2, "cannot go with --create");
  EXPECT_FALSE(FileExists(map));

  ASSERT_EQ(Vardamap({"add", map, "--create"}, "0 0\n1 1\n\n2 2\n3 3\n").code, 0);
  const std::string shp = ReadFile(map);
  ExpectOneLineError(Vardamap({"add", map, "--create"}, "0 0\n"), 2, "exists already");
  ExpectOneLineError(Vardamap({"add", map, "--id", "1"}, "0 0\n\n1 1\n"), 2, "exactly one shape");
  ExpectOneLineError(Vardamap({"add", map, "--id", "3"}, "0 0\n1 1\n"), 1, "no record 3");
  ExpectOneLineError(Vardamap({"add", map, "--id", "0"}, "0 0\n1 1\n"), 2, "--id");
  EXPECT_EQ(ReadFile(map), shp);
}

TEST(VardamapUsage, DemoIntoAFileIsRefused) {
  TempDir dir;
  const std::string file = dir / "plain";
  std::ofstream(file) << "x";
  ExpectOneLineError(Vardamap({"demo", file}), 1, "is not a folder");
}
