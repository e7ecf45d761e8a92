// Deleting renumbers the later records while the tail moves through memory in
// blocks; these tests hold that path to the plain one (move everything, then
// renumber entry by entry) on the same maps, byte for byte, including maps
// whose later records carry wrong numbers.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "VardaPlugIn.h"
#include "plugin/MapDelete.h"
#include "plugin/PrivateDataSHP.h"
#include "support/TempDir.h"

namespace {

std::string mensajes;
void Recoge(TStringPlugIn*, const char* t) {
  mensajes += t;
  mensajes += '\n';
}

std::vector<unsigned char> Bytes(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  return std::vector<unsigned char>(std::istreambuf_iterator<char>(f), {});
}

void Escribe(const std::string& path, const std::vector<unsigned char>& b) {
  std::ofstream f(path, std::ios::binary | std::ios::trunc);
  f.write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
}

class DeleteEquivalence : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(tmp_.ok()); }

  // A PolyLine map whose records have the given numbers of points.
  std::string Crea(const std::vector<int>& puntos) {
    std::string path = tmp_ / "base.shp";
    TVectorMapPlugIn map{};
    map.crear = 1;
    TStringPlugIn err{Recoge};
    EXPECT_EQ(VardaPlugIn_Open_Vector_Map(&path[0], &map, &err), 1);
    TLineAttributesPlugIn line;
    for (size_t r = 0; r < puntos.size(); r++) {
      std::vector<TVectorPointPlugIn> pts(static_cast<size_t>(puntos[r]));
      for (size_t i = 0; i < pts.size(); i++) {
        pts[i].tamanyo = 40;
        pts[i].x = 10.0 + r + i * 0.25;
        pts[i].y = -5.0 - r * 0.5 + i;
        pts[i].z = 0.0;
      }
      line.id_bd = 0;
      EXPECT_EQ(VardaPlugIn_Add_Poliline_Vector_Map(&map, &line, puntos[r], pts.data(), &err), 1);
    }
    VardaPlugIn_Close_Vector_Map(&map);
    return path;
  }

  // Copies base.shp/.shx to NAME.shp/.shx, with record `mal` (if any)
  // carrying the number 999.
  std::string Copia(const std::string& nombre, int mal) {
    std::string shp = tmp_ / (nombre + ".shp");
    std::vector<unsigned char> b = Bytes(tmp_ / "base.shp");
    std::vector<unsigned char> x = Bytes(tmp_ / "base.shx");
    if (mal > 0) {
      size_t at = 100 + 8 * static_cast<size_t>(mal - 1);
      uint32_t off = (uint32_t(x[at]) << 24) | (uint32_t(x[at + 1]) << 16) |
                     (uint32_t(x[at + 2]) << 8) | x[at + 3];
      const unsigned char nueve[4] = {0, 0, 0x03, 0xE7};
      std::memcpy(&b[2 * off], nueve, 4);
    }
    Escribe(shp, b);
    Escribe(tmp_ / (nombre + ".shx"), x);
    return shp;
  }

  struct Resultado {
    int r;
    std::string mensajes;
    std::vector<unsigned char> shp, shx;
  };

  Resultado Borra(std::string path, int k, int bloque, bool literal) {
    mensajes.clear();
    TVectorMapPlugIn map{};
    TStringPlugIn err{Recoge};
    EXPECT_EQ(VardaPlugIn_Open_Vector_Map(&path[0], &map, &err), 1);
    TReadVectorMapPlugIn reader{};
    EXPECT_EQ(VardaPlugIn_Read_Vector_Map3(&map, &reader, &err, nullptr), 1);
    EXPECT_TRUE(Set_Archivo_Modo_Leer_Escribir(map, err));
    Resultado res;
    res.r = BorraRegistro(*map.privado, k, &err, bloque, literal);
    VardaPlugIn_Close_Vector_Map(&map);
    res.mensajes = mensajes;
    res.shp = Bytes(path);
    res.shx = Bytes(path.substr(0, path.size() - 4) + ".shx");
    return res;
  }

  void Compara(const std::vector<int>& puntos, int k, int mal, int bloque) {
    Crea(puntos);
    Resultado plano = Borra(Copia("plano", mal), k, bloque, true);
    Resultado bloques = Borra(Copia("bloques", mal), k, bloque, false);
    SCOPED_TRACE("k=" + std::to_string(k) + " mal=" + std::to_string(mal) +
                 " bloque=" + std::to_string(bloque));
    EXPECT_EQ(bloques.r, plano.r);
    EXPECT_EQ(bloques.mensajes, plano.mensajes);
    EXPECT_TRUE(bloques.shp == plano.shp);
    EXPECT_TRUE(bloques.shx == plano.shx);
  }

  TempDir tmp_;
};

const std::vector<int> kPuntos = {3, 1, 7, 2, 16, 5, 1, 9, 4, 2, 11, 6};

TEST_F(DeleteEquivalence, EveryRecordAndBlockSize) {
  const int n = static_cast<int>(kPuntos.size());
  for (int bloque : {8, 13, 37, 64, 1000, kBloqueBorrado})
    for (int k = 1; k <= n; k++) Compara(kPuntos, k, 0, bloque);
}

TEST_F(DeleteEquivalence, WrongLaterNumbersStopTheRenumberingAlike) {
  const int n = static_cast<int>(kPuntos.size());
  for (int bloque : {8, 29, 1000})
    for (int k : {1, 4, n - 2})
      for (int mal : {k + 2, n}) Compara(kPuntos, k, mal, bloque);
}

TEST_F(DeleteEquivalence, DeletionResultIsAValidRenumberedMap) {
  Crea(kPuntos);
  Resultado r = Borra(Copia("uno", 0), 3, 37, false);
  ASSERT_EQ(r.r, 1);
  EXPECT_EQ(r.mensajes, "");
  // Records after the deleted one now carry numbers 3, 4, ... in file order.
  size_t pos = 100;
  for (int num = 1; num < static_cast<int>(kPuntos.size()); num++) {
    ASSERT_LT(pos + 8, r.shp.size());
    uint32_t got = (uint32_t(r.shp[pos]) << 24) | (uint32_t(r.shp[pos + 1]) << 16) |
                   (uint32_t(r.shp[pos + 2]) << 8) | r.shp[pos + 3];
    EXPECT_EQ(got, static_cast<uint32_t>(num));
    uint32_t len = (uint32_t(r.shp[pos + 4]) << 24) | (uint32_t(r.shp[pos + 5]) << 16) |
                   (uint32_t(r.shp[pos + 6]) << 8) | r.shp[pos + 7];
    pos += 8 + 2 * len;
  }
}

}  // namespace
