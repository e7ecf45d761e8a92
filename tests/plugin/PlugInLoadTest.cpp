#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>

#include "support/PlugInHost.h"

namespace {

TEST(PlugInLoad, IdentificationExports) {
  PlugInHost host;
  ASSERT_TRUE(host.loaded()) << host.error();
  auto version = host.fn<VardaPlugIn_Version_t>("VardaPlugIn_Version");
  auto priv = host.fn<VardaPlugIn_VersionPriv_t>("VardaPlugIn_VersionPriv");
  auto init = host.fn<VardaPlugIn_Init_t>("VardaPlugIn_Init");
  auto tipos = host.fn<VardaPlugIn_GetTipoArchivos_t>("VardaPlugIn_GetTipoArchivos");
  auto vstr = host.fn<VardaPlugIn_VersionStr_t>("VardaPlugIn_VersionStr");
  ASSERT_TRUE(version && priv && init && tipos && vstr);
  EXPECT_EQ(version(), 4);
  EXPECT_EQ(priv(), 1);
  EXPECT_EQ(init(), 1);
  EXPECT_EQ(init(), 1);
  EXPECT_STREQ(tipos(), "6|SHP Vector Maps|shp|");
  EXPECT_EQ(tipos(), tipos());
  EXPECT_STREQ(vstr(), "VardaGPS SHP & E00 Plug-In, version 1.02");
}

TEST(PlugInLoad, ExportedFormatsAndSignature) {
  PlugInHost host;
  ASSERT_TRUE(host.loaded()) << host.error();
  auto open = static_cast<const char**>(host.sym("fmt_open"));
  auto save = static_cast<const char**>(host.sym("fmt_save"));
  auto firma = static_cast<const char**>(host.sym("firma"));
  ASSERT_TRUE(open && save && firma);
  EXPECT_STREQ(*open, "Error: File %s not found.");
  EXPECT_STREQ(*save, "Error: Cannot open %s for saving.");
  EXPECT_STREQ(*firma, "VardaGPS-codepage table file");
}

// Nothing but the plug-in's own symbols is visible in the dynamic table.
TEST(PlugInLoad, ExportsNothingElse) {
  std::string cmd = std::string("nm -D --defined-only '") + VARDA_PLUGIN_PATH + "'";
  FILE* p = popen(cmd.c_str(), "r");
  ASSERT_NE(p, nullptr);
  char line[512];
  std::set<std::string> found;
  while (std::fgets(line, sizeof line, p)) {
    char addr[64], type[8], name[400];
    if (std::sscanf(line, "%63s %7s %399s", addr, type, name) != 3) continue;
    std::string n = name;
    if (n.rfind("VardaPlugIn_", 0) == 0 || n == "fmt_open" || n == "fmt_save" ||
        n == "firma") {
      found.insert(n);
      continue;
    }
    ADD_FAILURE() << "unexpected export: " << n;
  }
  ASSERT_EQ(pclose(p), 0);
  for (const char* n : {"VardaPlugIn_Version", "VardaPlugIn_VersionPriv", "VardaPlugIn_Init",
                        "VardaPlugIn_GetTipoArchivos", "VardaPlugIn_VersionStr", "fmt_open",
                        "fmt_save", "firma"})
    EXPECT_TRUE(found.count(n)) << n;
}

}  // namespace
