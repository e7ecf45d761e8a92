#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "core/Vector.h"
#include "file/MultipleFiles.h"
#include "support/TempDir.h"

namespace {

// A container is any file named "*.pack"; its members sit at fixed places.
class TestManager : public TVirtualFatMultipleFiles {
 public:
  struct Miembro {
    long long offset, longitud;
    bool xr;
  };
  std::map<std::string, Miembro> miembros;
  bool manejar = false;       // AbreMiembro serves members itself
  bool fallar_abre = false;   // ... and fails
  TFicheroITV* contenedor_abierto = nullptr;
  int localiza = 0;
  int modo_en_localiza = 0;
  std::vector<std::string> cerrados, claves;

  bool EsContenedor(const TStringNomFitx& path) override {
    std::string p = path.c_str();
    return p.size() > 5 && p.compare(p.size() - 5, 5, ".pack") == 0;
  }
  bool LocalizaMiembro(TFicheroITV& f, const TStringNomFitx&, const DString& miembro,
                       long long& offset, long long& longitud, bool& xr, DString* err) override {
    localiza++;
    modo_en_localiza = f.GetModo();
    char magia[4] = {};
    f.LeeTokenBin(magia, 4, nullptr, -1);  // the container is open at 0
    auto it = miembros.find(miembro.c_str());
    if (std::string(magia, 4) != "PACK" || it == miembros.end()) {
      if (err) *err = "no such member";
      return false;
    }
    offset = it->second.offset;
    longitud = it->second.longitud;
    xr = it->second.xr;
    return true;
  }
  bool AbreMiembro(const TStringNomFitx&, const DString& miembro, TFicheroITV& f, bool& tratado,
                   bool& xr, DString*) override {
    tratado = manejar;
    if (!manejar || fallar_abre) return false;
    TStringNomFitx nombre(miembro.c_str());
    const Miembro& m = miembros.at(miembro.c_str());
    f.CreateDuplicate(*contenedor_abierto, nombre);
    f.SetOffsets(m.offset, m.longitud);
    xr = m.xr;
    return true;
  }
  void CierraMiembro(const TStringNomFitx& n) override { cerrados.push_back(n.c_str()); }
  bool ListaMiembros(TFicheroITV& f, const TStringNomFitx&, Vector<TStringNomFitx>& lista) override {
    if (!f.Abierto()) return false;
    for (auto& m : miembros) lista.Anyade(TStringNomFitx(m.first.c_str()));
    return true;
  }
  void PonClave(const TStringNomFitx& n, const char* clave, int len) override {
    claves.push_back(std::string(n.c_str()) + "=" + std::string(clave, len));
  }
};

class MultipleFilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(tmp.ok());
    contenido = "PACK" + Pattern(2000);
    std::string linea = "hi\r\n";
    for (char& c : linea) c = static_cast<char>(c ^ 0xAA);
    contenido.replace(1500, linea.size(), linea);
    ASSERT_TRUE(tmp.Write("data.pack", contenido));
    man.miembros["a.shp"] = {1000, 200, false};
    man.miembros["t.txt"] = {1500, 4, true};
    Set_MultipleFiles_Manager(&man);
  }
  void TearDown() override { Set_MultipleFiles_Manager(nullptr); }
  TStringNomFitx Name(const char* rel) { return TStringNomFitx((tmp / rel).c_str()); }
  TempDir tmp;
  TestManager man;
  std::string contenido;
};

TEST_F(MultipleFilesTest, WithoutAManagerEveryNameIsADiskFile) {
  Set_MultipleFiles_Manager(nullptr);
  TFicheroITV f;
  TStringNomFitx n = Name("data.pack/a.shp");
  long long largo = -7;
  EXPECT_EQ(f.GetMultipleFilePos(n, largo), -1);
  EXPECT_EQ(largo, -7);
  Vector<TStringNomFitx> lista(4, 4, true);
  EXPECT_FALSE(TFicheroITV::GetMultipleFileList(Name("data.pack"), lista));
  EXPECT_FALSE(f.Abre(n, MODO_LEER | MODO_BINARIO, nullptr));
  EXPECT_EQ(man.localiza, 0);
}

TEST_F(MultipleFilesTest, DeclinedMemberIsLocatedInTheContainer) {
  for (int extra : {0, MODO_CACHE}) {
    SCOPED_TRACE(extra);
    man.localiza = 0;
    TFicheroITV f;
    ASSERT_TRUE(f.Abre(Name("data.pack/a.shp"), MODO_LEER | MODO_BINARIO | extra, nullptr));
    EXPECT_EQ(man.localiza, 1);
    EXPECT_EQ(man.modo_en_localiza, MODO_LEER | MODO_BINARIO | MODO_MULTIPLE);
    EXPECT_EQ(f.GetModo(), MODO_LEER | MODO_BINARIO | MODO_MULTIPLE | extra);
    EXPECT_EQ(f.FileSize64(), 200);
    char b[10];
    EXPECT_TRUE(f.LeeTokenBin(b, 10, nullptr, -1));
    EXPECT_EQ(std::string(b, 10), contenido.substr(1000, 10));
    f.Posicionate64(199);
    unsigned char u = 0;
    f >> u;
    EXPECT_EQ(u, static_cast<unsigned char>(contenido[1199]));
  }
}

TEST_F(MultipleFilesTest, FailuresLeaveTheObjectClosed) {
  TFicheroITV f;
  DString err;
  EXPECT_FALSE(f.Abre(Name("data.pack/zz.shp"), MODO_LEER | MODO_BINARIO, &err));
  EXPECT_STREQ(err.c_str(), "no such member");
  EXPECT_FALSE(f.Abierto());
  man.manejar = true;
  man.fallar_abre = true;
  EXPECT_FALSE(f.Abre(Name("data.pack/a.shp"), MODO_LEER | MODO_BINARIO, nullptr));
  EXPECT_EQ(man.localiza, 1);  // a handled failure is final
  EXPECT_FALSE(f.Abierto());
  // Writing never goes through the manager.
  EXPECT_FALSE(f.Abre(Name("data.pack/a.shp"), MODO_ESCRIBIR | MODO_BINARIO, nullptr));
  ASSERT_TRUE(f.Abre(Name("data.pack"), MODO_LEER | MODO_BINARIO, nullptr));
  EXPECT_EQ(f.FileSize64(), static_cast<long long>(contenido.size()));
}

TEST_F(MultipleFilesTest, ManagerServesMembersFromAnOpenContainer) {
  TFicheroITV contenedor;
  ASSERT_TRUE(contenedor.Abre(Name("data.pack"), MODO_LEER | MODO_BINARIO, nullptr));
  man.manejar = true;
  man.contenedor_abierto = &contenedor;
  {
    TFicheroITV f;
    ASSERT_TRUE(f.Abre(Name("data.pack/t.txt"), MODO_LEER | MODO_TEXTO, nullptr));
    EXPECT_TRUE(f.EsDuplicado());
    EXPECT_TRUE(f.GetXorDatos());
    EXPECT_EQ(man.localiza, 0);
    DString s;
    f.get_linea(s, 0);
    EXPECT_STREQ(s.c_str(), "hi");
    EXPECT_TRUE(f.SetKey("k1", 2));
    f.CierraEx();
    EXPECT_EQ(man.cerrados, std::vector<std::string>{"t.txt"});
  }
  EXPECT_TRUE(contenedor.Abierto());
  EXPECT_EQ(man.claves, std::vector<std::string>{"t.txt=k1"});
  EXPECT_TRUE(contenedor.SetKey("k2", 2));  // not a member: nothing to hand on
  EXPECT_EQ(man.claves.size(), 1u);
}

TEST_F(MultipleFilesTest, PositionAndListOfMembers) {
  TFicheroITV f;
  TStringNomFitx n = Name("data.pack/a.shp");
  long long largo = 0;
  EXPECT_EQ(f.GetMultipleFilePos(n, largo), 1000);
  EXPECT_EQ(largo, 200);
  EXPECT_STREQ(n.c_str(), (tmp / "data.pack").c_str());
  EXPECT_TRUE(f.Abierto());

  TStringNomFitx plano = Name("plain/a.shp");
  EXPECT_EQ(f.GetMultipleFilePos(plano, largo), -1);

  Vector<TStringNomFitx> lista(4, 4, true);
  ASSERT_TRUE(TFicheroITV::GetMultipleFileList(Name("data.pack"), lista));
  ASSERT_EQ(lista.numero, 2);
  EXPECT_STREQ(lista[0].c_str(), "a.shp");
  EXPECT_FALSE(TFicheroITV::GetMultipleFileList(Name("missing.pack"), lista));
  EXPECT_FALSE(TFicheroITV::GetMultipleFileList(Name("data.bin"), lista));
}

}  // namespace
