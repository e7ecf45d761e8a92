// FicheroITVDatos.cpp - the memory file.

#include "file/FicheroITVdatos.h"

#include <cerrno>
#include <new>

namespace {
constexpr int kCapacidadInicial = 1000;
}

TFicheroITVdatos::TFicheroITVdatos(int mode, int incremento_)
    : capacidad(kCapacidadInicial),
      tamanyo(0),
      posicion(0),
      buffer_datos(new char[kCapacidadInicial]),
      propio(true),
      incremento(incremento_) {
  modo = mode;
  MarcaMemoria();
}

TFicheroITVdatos::TFicheroITVdatos(int mode, void* data, int n)
    : capacidad(0),
      tamanyo(n < 0 ? 0 : n),
      posicion(0),
      buffer_datos(static_cast<char*>(data)),
      propio(false),
      incremento(0) {
  modo = mode;
  MarcaMemoria();
}

TFicheroITVdatos::~TFicheroITVdatos() {
  if (propio) delete[] buffer_datos;
  buffer_datos = nullptr;
}

void TFicheroITVdatos::ActuLenMax(int necesario) {
  if (capacidad >= necesario) return;
  if (!propio) throw "Error, en TFicheroITVdatos::ActuLenMax";
  long long pedido = (static_cast<long long>(incremento) + kCapacidadInicial + necesario) & ~3LL;
  if (pedido < necesario) pedido = necesario;
  char* nuevo = nullptr;
  if (pedido <= 0x7fffffffLL) nuevo = new (std::nothrow) char[static_cast<size_t>(pedido)];
  if (!nuevo) {
    DString e("Error in TFicheroITVdatos::ActuLenMax tr=");
    e << 1 << " siz= " << static_cast<int>(pedido) << " nuevo= " << 0 << " tamany= "
      << tamanyo;
    throw e;
  }
  // A buffer handed out by Cierra_Retornando_Ptr is gone: nothing to keep.
  if (buffer_datos && tamanyo > 0)
    std::memcpy(nuevo, buffer_datos, static_cast<size_t>(tamanyo));
  else if (tamanyo > 0)
    std::memset(nuevo, 0, static_cast<size_t>(tamanyo));
  delete[] buffer_datos;
  buffer_datos = nuevo;
  entregado = false;
  capacidad = static_cast<int>(pedido);
}

bool TFicheroITVdatos::PonTokenBin(const void* buf, int n, TMonitorProc*, int) {
  if (n < 0) {
    AnotaError(EINVAL);
    return false;
  }
  long long fin = static_cast<long long>(posicion) + n;
  if (fin > 0x7fffffffLL) {
    AnotaError(EFBIG);
    return false;
  }
  ActuLenMax(static_cast<int>(fin));
  if (n > 0) std::memcpy(buffer_datos + posicion, buf, static_cast<size_t>(n));
  posicion = static_cast<int>(fin);
  if (tamanyo < posicion) tamanyo = posicion;
  return true;
}

bool TFicheroITVdatos::LeeTokenBin(void* buf, int n, TMonitorProc*, int) {
  if (n < 0) {
    AnotaError(EINVAL);
    return false;
  }
  if (buffer_datos && static_cast<long long>(posicion) + n <= tamanyo) {
    if (n > 0) std::memcpy(buf, buffer_datos + posicion, static_cast<size_t>(n));
    posicion += n;
    return true;
  }
  if (n > 0) std::memset(buf, 0, static_cast<size_t>(n));
  AnotaError(0);  // the content ended: no system error
  return false;
}

int TFicheroITVdatos::fgetc_dir() {
  if (buffer_datos && posicion + 1 <= tamanyo) return static_cast<signed char>(buffer_datos[posicion++]);
  // Reading at the end is what sets the end-of-file condition.
  if (posicion == tamanyo) posicion = tamanyo + 1;
  return 0;
}

bool TFicheroITVdatos::Posicionate(int p) {
  // Positions beyond the content (or before it) are ignored.
  if (p >= 0 && p <= tamanyo) posicion = p;
  return true;
}

void TFicheroITVdatos::Set_Datos_Lectura(void* data, int n, bool propio_) {
  if (propio && !entregado && buffer_datos != data) delete[] buffer_datos;
  entregado = false;
  buffer_datos = static_cast<char*>(data);
  tamanyo = n < 0 ? 0 : n;
  propio = propio_;
  capacidad = 0;
  posicion = 0;
}

char* TFicheroITVdatos::Cierra_Retornando_Ptr(int& n) {
  n = tamanyo;
  char* p = buffer_datos;
  buffer_datos = nullptr;
  capacidad = 0;
  return p;
}

char* TFicheroITVdatos::Vacia_Retornando_Ptr(int& n) {
  n = tamanyo;
  tamanyo = posicion = 0;
  entregado = buffer_datos != nullptr;
  return buffer_datos;
}

int TFicheroITVdatos::IncreTamanyo(int n) {
  long long nuevo = static_cast<long long>(posicion) + n;
  if (nuevo < 0) nuevo = 0;
  if (nuevo > 0x7fffffffLL) nuevo = 0x7fffffffLL;
  // The size never reaches past the memory that holds it.
  if (nuevo > tamanyo) ActuLenMax(static_cast<int>(nuevo));
  tamanyo = static_cast<int>(nuevo);
  posicion = tamanyo;
  return tamanyo;
}

int TFicheroITVdatos::IncrePosicion(int n) {
  long long nuevo = static_cast<long long>(posicion) + n;
  if (nuevo < 0) nuevo = 0;
  if (nuevo > 0x7fffffffLL) nuevo = 0x7fffffffLL;
  int antes = static_cast<int>(nuevo);
  posicion = antes > tamanyo ? tamanyo : antes;
  return antes;
}

char* TFicheroITVdatos::Ptr(int n) {
  tamanyo = posicion = 0;
  ActuLenMax(n);
  return buffer_datos;
}

char* TFicheroITVdatos::PtrPos(int n) {
  ActuLenMax(posicion + n);
  return buffer_datos + posicion;
}

int TFicheroITVdatos::Lee(TFicheroITVdatos& origen, int desde, int n) {
  if (desde < 0) desde = 0;
  if (desde > origen.tamanyo || !origen.buffer_datos) desde = origen.tamanyo;
  int disponibles = origen.buffer_datos ? origen.tamanyo - desde : 0;
  if (n < 0 || n > disponibles) n = disponibles;
  ActuLenMax(posicion + n);
  // The source may be this very file: take its buffer after any growth.
  if (n > 0) std::memmove(buffer_datos + posicion, origen.buffer_datos + desde, static_cast<size_t>(n));
  posicion += n;
  if (tamanyo < posicion) tamanyo = posicion;
  return posicion;
}
