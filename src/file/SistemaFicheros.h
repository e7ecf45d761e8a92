// SistemaFicheros.h - the one place where file objects get their byte
// backends and where whole files are looked up, removed, renamed and made
// durable. The disk is the default; a test (or the fuzz target) puts a
// memory disk or a fault-injecting one in its place for the whole process,
// so that the product's code runs unchanged over it.
#ifndef VARDA_FILE_SISTEMAFICHEROS_H
#define VARDA_FILE_SISTEMAFICHEROS_H

class TFicheroITV_Base;
class TStringNomFitx;

class TSistemaFicheros {
 public:
  enum TTipo { kNoExiste, kRegular, kOtro };  // kOtro: a folder, FIFO, device...

  virtual ~TSistemaFicheros() {}
  // A new, closed backend for `nombre`, owned by the caller.
  virtual TFicheroITV_Base* NuevoBackend(const TStringNomFitx& nombre, int modo) = 0;
  // What `nombre` is, without opening it (opening a FIFO would block).
  virtual TTipo Tipo(const char* nombre) = 0;
  // Size in bytes, or -1 when it cannot be had.
  virtual long long Tamanyo(const char* nombre) = 0;
  // Each returns false and leaves errno set when the operation failed.
  virtual bool Borra(const char* nombre) = 0;
  virtual bool Renombra(const char* de, const char* a) = 0;
  // Makes the entries of the folder that holds `nombre` durable (a created,
  // removed or renamed file survives a power loss only after this).
  virtual bool SincronizaCarpeta(const char* nombre) = 0;
};

// The file system in use.
TSistemaFicheros& SistemaFicheros();
// Puts `s` in the place of the file system in use (null: the disk again) and
// returns the one it replaces. Files already open keep their backends.
TSistemaFicheros* CambiaSistemaFicheros(TSistemaFicheros* s);

#endif
