#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "core/Vector.h"
#include "string/DString.h"

namespace {

int codigo_de(void (*f)(Vector<int>&), Vector<int>& v) {
  try {
    f(v);
  } catch (const TXErrorVectoresDG& e) {
    return e.codigo;
  }
  return -1;
}

TEST(Vector, GrowsKeepingEveryElement) {
  Vector<int> v(0, 100, true);
  for (int i = 0; i < 250; i++) ASSERT_EQ(v.Anyade(i, -1), i);
  for (int i = 0; i < 250; i++) ASSERT_EQ(v[i], i);
}

TEST(Vector, FixedSizeRefusesToGrowUntilEmptied) {
  Vector<int> v(2, 0, true);
  v.Anyade(1, -1);
  v.Anyade(2, -1);
  EXPECT_EQ(codigo_de([](Vector<int>& x) { x.Anyade(3, -1); }, v), 6);
  EXPECT_EQ(v.numero, 2);
  EXPECT_EQ(v[1], 2);
  v.Vacia(true);
  EXPECT_EQ(v.Anyade(9, -1), 0);  // the old capacity becomes the step
}

TEST(Vector, InsertAtFrontShiftsPointersNotElements) {
  Vector<DString> v(3, 3, true);
  v.Anyade(DString("a"));
  v.Anyade(DString("b"));
  DString* b = &v[1];
  EXPECT_EQ(v.Anyade(DString("x"), 0), 0);
  EXPECT_STREQ(v[0].c_str(), "x");
  EXPECT_STREQ(v[1].c_str(), "a");
  EXPECT_EQ(&v[2], b);
  EXPECT_EQ(v.Anyade(DString("z"), -1), 3);
}

TEST(Vector, KeyChecksThrowSevenAndEight) {
  Vector<int> v(0, 10, true);
  v.Anyade(1, -1);
  EXPECT_EQ(codigo_de([](Vector<int>& x) { x.operator_clave(1); }, v), 7);
  EXPECT_EQ(codigo_de([](Vector<int>& x) { x.operator_clave(-1); }, v), 7);
  v.Incre_Numero(1);
  EXPECT_EQ(codigo_de([](Vector<int>& x) { x.operator_clave(1); }, v), 8);
}

TEST(Vector, NegativePositionThrowsAfterRaisingTheCount) {
  Vector<int> v(0, 10, true);
  v.base = 2;  // keys below base give negative slots
  EXPECT_EQ(codigo_de([](Vector<int>& x) { x.Anyade(5, 0); }, v), 12);
  EXPECT_EQ(v.numero, 1);
  EXPECT_EQ(codigo_de([](Vector<int>& x) { 
    // For Vector<int> the empty-element overload must be named explicitly.
    auto nuevo = static_cast<int* (Vector<int>::*)(int)>(&Vector<int>::Anyade);
    (x.*nuevo)(0);
  }, v), 13);
  v.base = 0;
}

TEST(Vector, NewEmptyElementsAndRemoval) {
  Vector<int> v(0, 4, true);
  int* p = v.Anyade();
  EXPECT_EQ(*p, 0);
  *p = 5;
  v.Anyade(6, -1);
  v.Anyade(7, -1);
  v.Elimina(3);  // past the end: nothing
  EXPECT_EQ(v.numero, 3);
  v.Elimina(0);
  EXPECT_EQ(v.numero, 2);
  EXPECT_EQ(v[0], 6);
  EXPECT_EQ(v.datos[2], nullptr);
}

TEST(Vector, EmptyingWithoutDeletingForgetsElements) {
  Vector<DString> v(0, 2, true);
  DString* kept = nullptr;
  v.Anyade(DString("keep"));
  kept = &v[0];
  v.Vacia(false);
  EXPECT_EQ(v.numero, 0);
  EXPECT_STREQ(kept->c_str(), "keep");
  delete kept;  // ours now
}

TEST(Errors, CodesAndHelpers) {
  EXPECT_NO_THROW(Verifica_Ptr(reinterpret_cast<void*>(1), 4, 1000));
  try {
    Verifica_Ptr(nullptr, 4, 9);
    FAIL();
  } catch (const TXErrorVectoresDG& e) {
    EXPECT_EQ(e.codigo, 15);
  }
  try {
    Error_Vectores_DG_i(7, 3);
    FAIL();
  } catch (const TXErrorVectoresDG& e) {
    EXPECT_EQ(e.codigo, 7);
  }
  double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(std::isnan(min_i(2.0, nan)));
  EXPECT_EQ(max_i(nan, 2.0), 2.0);
  EXPECT_EQ(min_i(3, -4), -4);
  EXPECT_EQ(max_i(3u, 4000000000u), 4000000000u);
}

}  // namespace
