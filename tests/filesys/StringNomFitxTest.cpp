#include <gtest/gtest.h>

#include "filesys/StringNomFitx.h"

namespace {

std::string S(const CDString& d) { return d.c_str(); }
std::string S(const char* s) { return s; }

TEST(StringNomFitx, ChangingTheExtension) {
  TStringNomFitx a("a/b.shp");
  a.Cambia_Ext("shx");
  EXPECT_EQ(S(a), "a/b.shx");
  TStringNomFitx b("a/b.shp");
  b.Cambia_Ext(".shx");
  EXPECT_EQ(S(b), "a/b.shx");
  // A dot in a folder is not an extension.
  TStringNomFitx c("dir.d/file");
  c.Cambia_Ext("shx");
  EXPECT_EQ(S(c), "dir.d/file.shx");
  TStringNomFitx d("x/y.tar.gz");
  d.Cambia_Ext("");
  EXPECT_EQ(S(d), "x/y.tar");
  d.Elimina_Ultima_Extension();
  EXPECT_EQ(S(d), "x/y");
  d.Elimina_Ultima_Extension();
  EXPECT_EQ(S(d), "x/y");
}

TEST(StringNomFitx, AddingAnExtensionOnlyWhenMissing) {
  TStringNomFitx a("d.x/map");
  a.Anyade_Ext_sinohay("shp");
  EXPECT_EQ(S(a), "d.x/map.shp");
  a.Anyade_Ext_sinohay("dbf");
  EXPECT_EQ(S(a), "d.x/map.shp");
  TStringNomFitx b("map.");
  b.Anyade_Ext_sinohay("shp");
  EXPECT_EQ(S(b), "map.shp");
}

TEST(StringNomFitx, NameStemAndExtensionParts) {
  TStringNomFitx w("C:\\maps\\a.shp");
  EXPECT_EQ(S(w.nom_fitx_ext()), "a.shp");
  EXPECT_EQ(S(w.npath()), "");  // only "/" separates folders
  TStringNomFitx p("/home/u/.profile");
  EXPECT_EQ(S(p.nom_fitx_sinext()), ".profile");
  EXPECT_EQ(S(p.npath()), "/home/u");
  EXPECT_EQ(S(p.Obten_Carpeta()), "/home/u/");
  EXPECT_EQ(p.Obten_Unidad_c(), '/');
  TStringNomFitx e("x/Map.SHP");
  EXPECT_EQ(S(e.extension()), "SHP");
  EXPECT_TRUE(e.es_extension("shp"));
  EXPECT_FALSE(e.es_extension("shx"));
  EXPECT_EQ(S(TStringNomFitx("").nom_fitx_ext()), "");
  EXPECT_EQ(S(TStringNomFitx("noext").extension()), "");
  DString f, n;
  e.Separa_Path_Fitx(f, n);
  EXPECT_EQ(S(f), "x");
  EXPECT_EQ(S(n), "Map.SHP");
}

TEST(StringNomFitx, ReplacingNameParts) {
  TStringNomFitx a("a/old");
  a.Set_nom_fitx_sinext("new");
  EXPECT_EQ(S(a), "a/new.");
  TStringNomFitx b("a/old.shp");
  b.Set_nom_fitx_sinext("new");
  EXPECT_EQ(S(b), "a/new.shp");
  b.StrcatNom("_2");
  EXPECT_EQ(S(b), "a/new_2.shp");
  b.Set_nom_fitx_ext("z.dbf");
  EXPECT_EQ(S(b), "a/z.dbf");
  b.Set_Path("/root/");
  EXPECT_EQ(S(b), "/root/z.dbf");
  b.Set_Path_y_Fitx("", "q");
  EXPECT_EQ(S(b), "q");
  b.Anyade_dir_sinotiene("/base");
  EXPECT_EQ(S(b), "/base/q");
  b.Anyade_dir_sinotiene("/other");
  EXPECT_EQ(S(b), "/base/q");
}

TEST(StringNomFitx, IntermediateExtensionAndContainers) {
  TStringNomFitx a("a/set.pack/file.dat");
  EXPECT_EQ(S(a.extension_intermedia()), "pack");
  EXPECT_TRUE(a.es_extension_intermedia("PACK"));
  EXPECT_EQ(S(TStringNomFitx("a.b/set/file.dat").extension_intermedia()), "");
  EXPECT_EQ(S(TStringNomFitx("file.dat").extension_intermedia()), "");

  TStringNomFitx z("a/b/c.zip!x/y.shp");
  EXPECT_EQ(S(z.MainFile()), "a/b/c.zip");
  EXPECT_EQ(S(z.SubFile()), "y.shp");
  TStringNomFitx plain("a/b/c.shp");
  EXPECT_EQ(S(plain.MainFile()), "a/b");
  EXPECT_EQ(S(plain.SubFile()), "c.shp");

  EXPECT_EQ(S(TStringNomFitx("http://h/t.php?x=a.b").ExtensionInet()), "php");
  EXPECT_EQ(S(TStringNomFitx("h/t.gif").ExtensionInet()), "gif");
}

TEST(StringNomFitx, ChangingFolder) {
  TStringNomFitx a("/a/b/f.txt");
  a.cd("..", true);
  EXPECT_EQ(S(a), "/a/f.txt");
  TStringNomFitx b("f.txt");
  b.cd("..", true);
  EXPECT_EQ(S(b), "f.txt");
  TStringNomFitx c("/a/f.txt");
  c.cd("x/y", true);
  EXPECT_EQ(S(c), "/a/x/y/f.txt");
  c.cd(".", true);
  EXPECT_EQ(S(c), "/a/x/y/f.txt");
  c.cd("../../z", true);
  EXPECT_EQ(S(c), "/a/z/f.txt");
  c.cd("/abs/p", true);
  EXPECT_EQ(S(c), "/abs/p/f.txt");
  c.cd("/abs/q", false);
  EXPECT_EQ(S(c), "/abs/q");
  // Without the name every step leaves a folder ending in "/".
  TStringNomFitx d("/a/b/");
  d.cd("..", false);
  EXPECT_EQ(S(d), "/a/");
  d.cd("x\\y", false);
  EXPECT_EQ(S(d), "/a/x/y/");
  // The parent of a relative top folder is the folder itself.
  TStringNomFitx e("a/");
  e.cd("..", false);
  EXPECT_EQ(S(e), "a/");
  TStringNomFitx r("/top/");
  r.cd("..", false);
  EXPECT_EQ(S(r), "/");
  TStringNomFitx n("f.txt");
  n.cd("sub", true);
  EXPECT_EQ(S(n), "/sub/f.txt");
}

TEST(StringNomFitx, PlacingRelativeNames) {
  TStringNomFitx a("sub/x.shp");
  a.Set_Path_del_Fitx(TStringNomFitx("/data/m.shp"));
  EXPECT_EQ(S(a), "/data/sub/x.shp");
  TStringNomFitx b("../x.shp");
  b.Set_Path_del_Fitx(TStringNomFitx("/data/m/m.shp"));
  EXPECT_EQ(S(b), "/data/x.shp");
  TStringNomFitx abs("/k/x.shp");
  abs.Set_Path_del_Fitx(TStringNomFitx("/data/m.shp"));
  EXPECT_EQ(S(abs), "/k/x.shp");

  TStringNomFitx f("/base/");
  EXPECT_TRUE(f.Anyade_ConPathFitx(TStringNomFitx("in/n.txt")));
  EXPECT_EQ(S(f), "/base/in/n.txt");
  TStringNomFitx g("/base");
  g.Anyade_ConPathFitx(TStringNomFitx("n.txt"));
  EXPECT_EQ(S(g), "/base/n.txt");
}

TEST(StringNomFitx, SplittingParametersAndParents) {
  TStringNomFitx a("\"/my maps/a.shp\" -x 1");
  DString params;
  EXPECT_TRUE(a.Separa_Parametros(params));
  EXPECT_EQ(S(a), "\"/my maps/a.shp\"");
  EXPECT_EQ(S(params), "-x 1");
  TStringNomFitx lead(" x");
  EXPECT_FALSE(lead.Separa_Parametros(params));
  EXPECT_EQ(S(lead), " x");

  TStringNomFitx p("/a/b/c/");
  TStringNomFitx parent;
  DString name;
  EXPECT_TRUE(p.Separa_Carpeta_Padre_y_Esta(parent, name));
  EXPECT_EQ(S(p), "/a/b/c");
  EXPECT_EQ(S(parent), "/a/b/");
  EXPECT_EQ(S(name), "c");
  TStringNomFitx empty;
  EXPECT_FALSE(empty.Separa_Carpeta_Padre_y_Esta(parent, name));
}

TEST(StringNomFitx, VolumesAndAbsolutePaths) {
  EXPECT_FALSE(TStringNomFitx("/").Path_Absoluto());
  EXPECT_TRUE(TStringNomFitx("/a").Path_Absoluto());
  EXPECT_TRUE(TStringNomFitx("C:x").Path_Absoluto());
  EXPECT_TRUE(TStringNomFitx("http://x").Path_Absoluto());
  EXPECT_FALSE(TStringNomFitx("a/b").Path_Absoluto());

  TStringNomFitx v("/Volumes/Disk/maps/a.shp");
  EXPECT_EQ(S(v.Obten_Unidad()), "Disk");
  EXPECT_EQ(S(v.Obten_Unidad_Formateada()), "/Volumes/Disk/");
  EXPECT_EQ(S(v.Obten_Unidad_Typo()), "Volumes");
  EXPECT_EQ(S(TStringNomFitx("/Volumes/Disk").Obten_Unidad()), "");
  EXPECT_EQ(S(TStringNomFitx("/usr/x").Obten_Unidad()), "");
  EXPECT_EQ(S(TStringNomFitx("Disk").Obten_Unidad()), "Disk");
  EXPECT_EQ(S(TStringNomFitx("rel/x").Obten_Unidad_Typo()), "");

  TStringNomFitx s("maps/a.shp");
  s.Set_Path_Volume("Disk");
  EXPECT_EQ(S(s), "/Volumes/Disk/maps/a.shp/");
  EXPECT_TRUE(TStringNomFitx("/Volumes/Disk").es_dir_raiz());
  EXPECT_TRUE(TStringNomFitx("/Volumes/Disk/").es_dir_raiz());
  EXPECT_TRUE(TStringNomFitx("/").es_dir_raiz());
  EXPECT_FALSE(TStringNomFitx("/Volumes/Disk/maps").es_dir_raiz());
  EXPECT_FALSE(TStringNomFitx("/usr").es_dir_raiz());
}

TEST(StringNomFitx, ChildrenAndRelativeNames) {
  int len = 0;
  TStringNomFitx base("/Data/");
  EXPECT_TRUE(base.Es_Archivo_Hijo(TStringNomFitx("/data/x.shp"), len));
  EXPECT_EQ(len, 5);
  EXPECT_FALSE(base.Es_Archivo_Hijo(TStringNomFitx("/data2/x.shp"), len));
  EXPECT_FALSE(base.Es_Archivo_Hijo(TStringNomFitx("/data"), len));
  EXPECT_FALSE(TStringNomFitx("/").Es_Archivo_Hijo(TStringNomFitx("/x"), len));

  TStringNomFitx a("/data/maps/a.shp");
  EXPECT_TRUE(a.Resta_Path("/data"));
  EXPECT_EQ(S(a), "maps/a.shp");
  EXPECT_FALSE(a.Resta_Path("/other"));
  EXPECT_EQ(S(a), "maps/a.shp");

  TStringNomFitx same("/d/x.shp");
  EXPECT_TRUE(same.Quita_Path_ifposible(TStringNomFitx("/d/base.shp")));
  EXPECT_EQ(S(same), "x.shp");
  TStringNomFitx under("/d/sub/x.shp");
  EXPECT_TRUE(under.Quita_Path_ifposible(TStringNomFitx("/d/base.shp")));
  EXPECT_EQ(S(under), "sub/x.shp");
  TStringNomFitx sibling("/d2/x.shp");
  EXPECT_FALSE(sibling.Quita_Path_ifposible(TStringNomFitx("/d/base.shp")));
  EXPECT_EQ(S(sibling), "/d2/x.shp");
  TStringNomFitx rel("d/x.shp");
  EXPECT_FALSE(rel.Quita_Path_ifposible(TStringNomFitx("/d/base.shp")));
}

TEST(StringNomFitx, ComparisonIgnoresCase) {
  EXPECT_TRUE(TStringNomFitx("a/B").Igual_A(TStringNomFitx("A/b/"), false));
  EXPECT_FALSE(TStringNomFitx("a/B").Igual_A(TStringNomFitx("A/b/"), true));
  EXPECT_TRUE(TStringNomFitx("a/B").Igual_A(TStringNomFitx("A/b"), true));
  EXPECT_TRUE(TStringNomFitx("X.SHP") == TStringNomFitx("x.shp"));
  EXPECT_FALSE(TStringNomFitx("X.SHP") != TStringNomFitx("x.shp"));
  EXPECT_TRUE(TStringNomFitx("a") < TStringNomFitx("B"));
  EXPECT_FALSE(TStringNomFitx("b") < TStringNomFitx("A"));
}

TEST(StringNomFitx, SeparatorsAndStoredNames) {
  TStringNomFitx a("a\\b/c");
  a.Set_dir_carac_linux();
  EXPECT_EQ(S(a), "a/b/c");
  a.Set_dir_carac_win();
  EXPECT_EQ(S(a), "a\\b\\c");

  TStringNomFitx s("/opt/app/maps/a.shp;/opt/app/x");
  s.CodificaNomFitx();  // no main folder set: nothing changes
  EXPECT_EQ(S(s), "/opt/app/maps/a.shp;/opt/app/x");
  TStringNomFitx::Set_this_Path_Main_App("/opt/app");
  s.CodificaNomFitx();
  EXPECT_EQ(S(s), "$(VardaGPSApp)/maps/a.shp;$(VardaGPSApp)/x");
  s.DescodificaNomFitx();
  EXPECT_EQ(S(s), "/opt/app/maps/a.shp;/opt/app/x");
  TStringNomFitx::DeleteGlobals();
}

TEST(StringNomFitx, BaseFolders) {
  TStringNomFitx::DeleteGlobals();
  TStringNomFitx a("sub/f.cfg");
  EXPECT_FALSE(a.Set_Path_Exe());
  EXPECT_EQ(S(a), "sub/f.cfg");
  EXPECT_FALSE(a.Set_Path_AppData());

  TStringNomFitx::Set_this_Path_Exe("/opt/app/bin/varda");
  EXPECT_EQ(S(TStringNomFitx::Ret_Path_Exe()), "/opt/app/bin");
  EXPECT_TRUE(a.Set_Path_AppData());  // falls back on the executable folder
  EXPECT_EQ(S(a), "/opt/app/bin/f.cfg");

  TStringNomFitx::Set_this_Path_de_AppData("/var/app");
  EXPECT_TRUE(a.Set_Path_AppData());
  EXPECT_EQ(S(a), "/var/app/f.cfg");
  // The application-data answer is a different static, on purpose.
  EXPECT_EQ(S(TStringNomFitx::Ret_Path_AppData()), "");
  EXPECT_TRUE(a.Set_Path_Temp());
  EXPECT_EQ(S(a), "/var/app/temp/f.cfg");
  a.Set_Path_Exe_o_AppData();
  EXPECT_EQ(S(a), "/var/app/f.cfg");

  TStringNomFitx::DeleteGlobals();
  TStringNomFitx b("f");
  EXPECT_TRUE(b.Set_Path_ExeF());
  EXPECT_EQ(S(b), "f");
}

}  // namespace
