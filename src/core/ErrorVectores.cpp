#include "core/ErrorVectores.h"

void Error_Vectores_DG_x(int code, const char*, int, int, int, int) {
  throw TXErrorVectoresDG(code);
}

void Error_Vectores_DG_i(int code, int value) { Error_Vectores_DG_x(code, "", -1, value, -1, -1); }

void Verifica_Ptr(void* p, int element_size, int count) {
  if (!p) Error_Vectores_DG_x(15, "", element_size, count, -1, -1);
}

// Integers: the first argument wins unless the second is strictly smaller (or
// larger). Doubles: the first only when it is strictly smaller (or larger), so
// a NaN on either side makes the comparison false and the second one wins.
int min_i(int a, int b) { return b < a ? b : a; }
unsigned min_i(unsigned a, unsigned b) { return b < a ? b : a; }
double min_i(double a, double b) { return a < b ? a : b; }
int max_i(int a, int b) { return b > a ? b : a; }
unsigned max_i(unsigned a, unsigned b) { return b > a ? b : a; }
double max_i(double a, double b) { return a > b ? a : b; }
