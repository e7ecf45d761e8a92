// ErrorVectores.h - the containers' exception and its raising helpers, and
// the small min/max helpers of the library.
#ifndef VARDA_CORE_ERRORVECTORES_H
#define VARDA_CORE_ERRORVECTORES_H

// Thrown by the containers on misuse or exhausted memory; carries the code only.
class TXErrorVectoresDG {
 public:
  explicit TXErrorVectoresDG(int c) : codigo(c) {}
  int codigo;
};

// Throws a TXErrorVectoresDG with `code`; the text and numbers are dropped.
[[noreturn]] void Error_Vectores_DG_x(int code, const char* text, int a, int b, int c, int d);
[[noreturn]] void Error_Vectores_DG_i(int code, int value);
// Code 15 when `p` is null; nothing otherwise.
void Verifica_Ptr(void* p, int element_size, int count);

int min_i(int a, int b);
unsigned min_i(unsigned a, unsigned b);
double min_i(double a, double b);
int max_i(int a, int b);
unsigned max_i(unsigned a, unsigned b);
double max_i(double a, double b);

#endif
