// Deleting renumbers the later records while the tail moves through memory in
// blocks; these tests hold that path to the plain one (move everything, then
// renumber entry by entry) on the same maps, byte for byte, including maps
// whose later records carry wrong numbers.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "VardaPlugIn.h"
#include "plugin/MapDelete.h"
#include "plugin/PrivateDataSHP.h"
#include "support/ShpBuilder.h"

namespace shptest {
namespace {

std::string mensajes;
void Recoge(TStringPlugIn*, const char* t) {
  mensajes += t;
  mensajes += '\n';
}

// A map as the plug-in creates it (its end mark counted in its length), of
// PolyLine records with these numbers of points.
const std::vector<int> kPuntos = {3, 1, 7, 2, 16, 5, 1, 9, 4, 2, 11, 6};

ShpImage Base() {
  ShpBuilder b(3);
  b.EndMark();
  for (size_t r = 0; r < kPuntos.size(); r++) {
    std::vector<XYZ> pts;
    for (int i = 0; i < kPuntos[r]; i++) pts.push_back({10.0 + r + i * 0.25, -5.0 - r * 0.5 + i, 0});
    b.Record(PolyContent(3, {0}, pts));
  }
  return b.Build();
}

class DeleteEquivalence : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(tmp_.ok()); }

  struct Resultado {
    int r;
    std::string mensajes;
    ShpImage files;
  };

  // Deletes record k from a copy of the base map whose record `mal` (if any)
  // carries the number 999.
  Resultado Borra(const std::string& nombre, int k, int mal, int bloque, bool literal) {
    ShpImage img = base_;
    if (mal > 0) PutBE32(img.shp, img.RecordPos(mal), 999);
    std::string path = PutMap(tmp_, nombre, img);
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
    res.files = {ReadFile(path), ReadFile(ShxOf(path))};
    return res;
  }

  void Compara(int k, int mal, int bloque) {
    SCOPED_TRACE("k=" + std::to_string(k) + " mal=" + std::to_string(mal) +
                 " bloque=" + std::to_string(bloque));
    const Resultado plano = Borra("plano", k, mal, bloque, true);
    const Resultado bloques = Borra("bloques", k, mal, bloque, false);
    EXPECT_EQ(bloques.r, plano.r);
    EXPECT_EQ(bloques.mensajes, plano.mensajes);
    EXPECT_TRUE(SameBytes(plano.files.shp, bloques.files.shp));
    EXPECT_TRUE(SameBytes(plano.files.shx, bloques.files.shx));
  }

  TempDir tmp_;
  const ShpImage base_ = Base();
};

TEST_F(DeleteEquivalence, EveryRecordAndBlockSize) {
  const int n = static_cast<int>(kPuntos.size());
  for (int bloque : {8, 13, 37, 64, 1000, kBloqueBorrado})
    for (int k = 1; k <= n; k++) Compara(k, 0, bloque);
}

TEST_F(DeleteEquivalence, WrongLaterNumbersStopTheRenumberingAlike) {
  const int n = static_cast<int>(kPuntos.size());
  for (int bloque : {8, 29, 1000})
    for (int k : {1, 4, n - 2})
      for (int mal : {k + 2, n}) Compara(k, mal, bloque);
}

// Both paths could agree on a wrong renumbering: the records after the
// deleted one must carry 3, 4, ... in file order.
TEST_F(DeleteEquivalence, DeletionResultIsAValidRenumberedMap) {
  const Resultado r = Borra("uno", 3, 0, 37, false);
  ASSERT_EQ(r.r, 1);
  EXPECT_EQ(r.mensajes, "");
  size_t pos = 100;
  for (int num = 1; num < static_cast<int>(kPuntos.size()); num++) {
    ASSERT_LT(pos + 8, r.files.shp.size());
    EXPECT_EQ(GetBE32(r.files.shp, pos), num);
    pos += 8 + 2 * static_cast<size_t>(GetBE32(r.files.shp, pos + 4));
  }
}

}  // namespace
}  // namespace shptest
