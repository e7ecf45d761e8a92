// FicheroITVdatos.h - a file whose content lives in a memory buffer. Every
// typed operator and text reader of TFicheroITV works on it unchanged.
#ifndef VARDA_FILE_FICHEROITVDATOS_H
#define VARDA_FILE_FICHEROITVDATOS_H

#include "file/FicheroITV.h"

class TFicheroITVdatos : public TFicheroITV {
 public:
  // A growable, owned, empty file; every growth adds `incremento` bytes of
  // headroom on top of 1000.
  TFicheroITVdatos(int mode, int incremento);
  // A read view over foreign memory; writing past n throws.
  TFicheroITVdatos(int mode, void* data, int n);
  ~TFicheroITVdatos() override;

  int fgetc_dir() override;
  bool Posicionate(int p) override;
  int PosActual() override { return posicion; }
  long long PosActual64() override { return posicion; }
  int FileSize() override { return tamanyo; }
  bool eof() override { return posicion > tamanyo; }
  bool PonTokenBin(const void* buf, int n, TMonitorProc* monitor = nullptr,
                   int chunk = -1) override;
  bool LeeTokenBin(void* buf, int n, TMonitorProc* monitor = nullptr,
                   int chunk = -1) override;

  // Point the file at other memory. A buffer owned until now is freed,
  // unless Vacia_Retornando_Ptr handed it out: then the caller has taken it.
  void Set_Datos_Lectura(void* data, int n, bool propio);
  // Hands the buffer over (to be freed with delete[]) and detaches it.
  char* Cierra_Retornando_Ptr(int& n);
  // Returns the buffer but keeps it; the file becomes empty.
  char* Vacia_Retornando_Ptr(int& n);
  void Vacia() { tamanyo = posicion = 0; }
  void SetTamanyo(int n) { tamanyo = posicion = n; }
  int IncreTamanyo(int n);
  int IncrePosicion(int n);
  // Empties the file and returns room for n bytes for the caller to fill.
  char* Ptr(int n);
  // Room for n bytes at the current position.
  char* PtrPos(int n);
  char* cPtr() const { return buffer_datos ? buffer_datos + posicion : nullptr; }
  int Len() const { return tamanyo; }
  int LenQueda() const { return tamanyo - posicion; }
  int Lee(TFicheroITVdatos& origen, int desde, int n);
  void ActuLenMax(int necesario);

  int GetCapacidad() const { return capacidad; }

 private:
  int capacidad;
  int tamanyo;
  int posicion;
  char* buffer_datos;
  bool propio;
  bool entregado = false;  // the buffer was handed out by Vacia_Retornando_Ptr
  int incremento;
};

#endif
