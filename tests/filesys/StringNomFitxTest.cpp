#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "filesys/StringNomFitx.h"

namespace {

using Op = std::function<void(TStringNomFitx&)>;
std::string S(const CDString& d) { return d.c_str(); }
std::string S(const char* s) { return s; }

// Operations that change the name in place: input, operation, result.
TEST(StringNomFitx, EditingOperations) {
  struct Case {
    const char* in;
    Op op;
    const char* want;
  } cases[] = {
      {"a/b.shp", [](TStringNomFitx& n) { n.Cambia_Ext("shx"); }, "a/b.shx"},
      {"a/b.shp", [](TStringNomFitx& n) { n.Cambia_Ext(".shx"); }, "a/b.shx"},
      {"dir.d/file", [](TStringNomFitx& n) { n.Cambia_Ext("shx"); }, "dir.d/file.shx"},
      {"x/y.tar.gz", [](TStringNomFitx& n) { n.Cambia_Ext(""); }, "x/y.tar"},
      {"d.x/y", [](TStringNomFitx& n) { n.Elimina_Ultima_Extension(); }, "d.x/y"},
      {"d.x/map", [](TStringNomFitx& n) { n.Anyade_Ext_sinohay("shp"); }, "d.x/map.shp"},
      {"map.", [](TStringNomFitx& n) { n.Anyade_Ext_sinohay("shp"); }, "map.shp"},
      {"m.dbf", [](TStringNomFitx& n) { n.Anyade_Ext_sinohay("shp"); }, "m.dbf"},
      {"a/old", [](TStringNomFitx& n) { n.Set_nom_fitx_sinext("new"); }, "a/new."},
      {"a/old.shp", [](TStringNomFitx& n) { n.StrcatNom("_2"); }, "a/old_2.shp"},
      {"a/b.c", [](TStringNomFitx& n) { n.Set_Path("/r/"); }, "/r/b.c"},
      {"q", [](TStringNomFitx& n) { n.Anyade_dir_sinotiene("/base"); }, "/base/q"},
      // cd: ".." climbs, "." stays, several components are walked in turn.
      {"/a/b/f.txt", [](TStringNomFitx& n) { n.cd("..", true); }, "/a/f.txt"},
      {"f.txt", [](TStringNomFitx& n) { n.cd("..", true); }, "f.txt"},
      {"/a/f.txt", [](TStringNomFitx& n) { n.cd("x/y", true); }, "/a/x/y/f.txt"},
      {"/a/x/y/f", [](TStringNomFitx& n) { n.cd("../.././z", true); }, "/a/z/f"},
      {"/a/f", [](TStringNomFitx& n) { n.cd("/abs/p", true); }, "/abs/p/f"},
      {"/a/b/", [](TStringNomFitx& n) { n.cd("..\\x", false); }, "/a/x/"},
      {"a/", [](TStringNomFitx& n) { n.cd("..", false); }, "a/"},
      {"/top/", [](TStringNomFitx& n) { n.cd("..", false); }, "/"},
      {"f.txt", [](TStringNomFitx& n) { n.cd("sub", true); }, "/sub/f.txt"},
      {"sub/x.shp",
       [](TStringNomFitx& n) { n.Set_Path_del_Fitx(TStringNomFitx("/data/m.shp")); },
       "/data/sub/x.shp"},
      {"../x", [](TStringNomFitx& n) { n.Set_Path_del_Fitx(TStringNomFitx("/d/m/m")); }, "/d/x"},
      {"/k/x", [](TStringNomFitx& n) { n.Set_Path_del_Fitx(TStringNomFitx("/d/m")); }, "/k/x"},
      {"a.dbf", [](TStringNomFitx& n) { n.Set_Path_del_Fitx(TStringNomFitx("/f.shp")); }, "/a.dbf"},
      {"a.dbf", [](TStringNomFitx& n) { n.Set_Path_del_Fitx(TStringNomFitx("f.shp")); }, "a.dbf"},
      {"/base/", [](TStringNomFitx& n) { n.Anyade_ConPathFitx(TStringNomFitx("in/n")); },
       "/base/in/n"},
      {"maps/a", [](TStringNomFitx& n) { n.Set_Path_Volume("Disk"); }, "/Volumes/Disk/maps/a/"},
      {"/data/maps/a", [](TStringNomFitx& n) { n.Resta_Path("/data"); }, "maps/a"},
      {"/data2/a", [](TStringNomFitx& n) { n.Resta_Path("/data"); }, "/data2/a"},
      {"/d/x", [](TStringNomFitx& n) { n.Quita_Path_ifposible(TStringNomFitx("/d/b")); }, "x"},
      {"/d/s/x", [](TStringNomFitx& n) { n.Quita_Path_ifposible(TStringNomFitx("/d/b")); },
       "s/x"},
      {"/d2/x", [](TStringNomFitx& n) { n.Quita_Path_ifposible(TStringNomFitx("/d/b")); },
       "/d2/x"},
      {"d/x", [](TStringNomFitx& n) { n.Quita_Path_ifposible(TStringNomFitx("/d/b")); }, "d/x"},
  };
  for (const Case& c : cases) {
    TStringNomFitx n(c.in);
    c.op(n);
    EXPECT_EQ(S(n), c.want) << "from " << c.in;
  }
}

TEST(StringNomFitx, TakingApart) {
  TStringNomFitx w("C:\\maps\\a.shp");
  EXPECT_EQ(S(w.nom_fitx_ext()), "a.shp");
  EXPECT_EQ(S(w.npath()), "");  // only "/" separates folders
  TStringNomFitx p("/home/u/.profile");
  EXPECT_EQ(S(p.nom_fitx_sinext()), ".profile");
  EXPECT_EQ(S(p.Obten_Carpeta()), "/home/u/");
  EXPECT_TRUE(TStringNomFitx("x/Map.SHP").es_extension("shp"));
  EXPECT_EQ(S(TStringNomFitx("a/set.pack/f.dat").extension_intermedia()), "pack");
  EXPECT_EQ(S(TStringNomFitx("a.b/set/f.dat").extension_intermedia()), "");
  EXPECT_EQ(S(TStringNomFitx("a/b/c.zip!x/y.shp").MainFile()), "a/b/c.zip");
  EXPECT_EQ(S(TStringNomFitx("a/b/c.zip!x/y.shp").SubFile()), "y.shp");
  EXPECT_EQ(S(TStringNomFitx("a/b/c.shp").MainFile()), "a/b");
  EXPECT_EQ(S(TStringNomFitx("h/t.php?x=a.b").ExtensionInet()), "php");
  EXPECT_EQ(S(TStringNomFitx("/Volumes/Disk/m/a").Obten_Unidad()), "Disk");
  EXPECT_EQ(S(TStringNomFitx("/Volumes/Disk").Obten_Unidad()), "");
  EXPECT_EQ(S(TStringNomFitx("Disk").Obten_Unidad()), "Disk");
  EXPECT_EQ(S(TStringNomFitx("/usr/x").Obten_Unidad_Typo()), "usr");
  EXPECT_TRUE(TStringNomFitx("/Volumes/Disk/").es_dir_raiz());
  EXPECT_FALSE(TStringNomFitx("/Volumes/Disk/maps").es_dir_raiz());
  EXPECT_FALSE(TStringNomFitx("/").Path_Absoluto());
  EXPECT_TRUE(TStringNomFitx("C:x").Path_Absoluto());
  EXPECT_FALSE(TStringNomFitx("a/b").Path_Absoluto());

  TStringNomFitx q("\"/my maps/a.shp\" -x 1");
  DString params;
  EXPECT_TRUE(q.Separa_Parametros(params));
  EXPECT_EQ(S(q), "\"/my maps/a.shp\"");
  EXPECT_EQ(S(params), "-x 1");

  TStringNomFitx c("/a/b/c/"), parent;
  DString name;
  EXPECT_TRUE(c.Separa_Carpeta_Padre_y_Esta(parent, name));
  EXPECT_EQ(S(c) + "|" + S(parent) + "|" + S(name), "/a/b/c|/a/b/|c");

  int len = 0;
  EXPECT_TRUE(TStringNomFitx("/Data/").Es_Archivo_Hijo(TStringNomFitx("/data/x"), len));
  EXPECT_EQ(len, 5);
  EXPECT_FALSE(TStringNomFitx("/Data").Es_Archivo_Hijo(TStringNomFitx("/data2/x"), len));
}

TEST(StringNomFitx, ComparisonIgnoresCase) {
  EXPECT_TRUE(TStringNomFitx("a/B").Igual_A(TStringNomFitx("A/b/"), false));
  EXPECT_FALSE(TStringNomFitx("a/B").Igual_A(TStringNomFitx("A/b/"), true));
  EXPECT_TRUE(TStringNomFitx("X.SHP") == TStringNomFitx("x.shp"));
  EXPECT_TRUE(TStringNomFitx("a") < TStringNomFitx("B"));
}

TEST(StringNomFitx, BaseFoldersAndStoredNames) {
  TStringNomFitx::DeleteGlobals();
  TStringNomFitx a("sub/f.cfg");
  EXPECT_FALSE(a.Set_Path_AppData());
  EXPECT_EQ(S(a), "sub/f.cfg");
  TStringNomFitx::Set_this_Path_Exe("/opt/app/bin/varda");
  EXPECT_TRUE(a.Set_Path_AppData());  // falls back on the executable's folder
  EXPECT_EQ(S(a), "/opt/app/bin/f.cfg");
  TStringNomFitx::Set_this_Path_de_AppData("/var/app");
  EXPECT_TRUE(a.Set_Path_Temp());
  EXPECT_EQ(S(a), "/var/app/temp/f.cfg");

  TStringNomFitx s("/opt/app/m.shp;/opt/app/x");
  s.CodificaNomFitx();
  EXPECT_EQ(S(s), "/opt/app/m.shp;/opt/app/x");  // no main folder yet
  TStringNomFitx::Set_this_Path_Main_App("/opt/app");
  s.CodificaNomFitx();
  EXPECT_EQ(S(s), "$(VardaGPSApp)/m.shp;$(VardaGPSApp)/x");
  s.DescodificaNomFitx();
  EXPECT_EQ(S(s), "/opt/app/m.shp;/opt/app/x");
  TStringNomFitx::DeleteGlobals();
}

}  // namespace
