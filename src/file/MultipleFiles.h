// MultipleFiles.h - the interface through which an embedding application lets
// the file layer serve files packed inside container files. The file layer
// knows no container format; it only asks the installed manager.
#ifndef VARDA_FILE_MULTIPLEFILES_H
#define VARDA_FILE_MULTIPLEFILES_H

#include "file/FicheroITV.h"

template <class T>
class Vector;

class TVirtualFatMultipleFiles {
 public:
  virtual ~TVirtualFatMultipleFiles() {}
  // The path is a container known to the manager.
  virtual bool EsContenedor(const TStringNomFitx& path) = 0;
  // With the container open in `fichero` (binary, read, at 0), find `miembro`
  // and report where it lies.
  virtual bool LocalizaMiembro(TFicheroITV& fichero, const TStringNomFitx& contenedor,
                               const DString& miembro, long long& offset,
                               long long& longitud, bool& xor_datos, DString* err) = 0;
  // Open the member by the manager's own means; `tratado` false hands the
  // request back to the file layer, which then opens the container itself.
  virtual bool AbreMiembro(const TStringNomFitx& contenedor, const DString& miembro,
                           TFicheroITV& fichero, bool& tratado, bool& xor_datos,
                           DString* err) = 0;
  // A duplicate made by the manager is being closed.
  virtual void CierraMiembro(const TStringNomFitx&) {}
  // Free for the manager's own use; the file layer never calls it.
  virtual bool ActualizaContenedor(const TStringNomFitx&) { return false; }
  virtual bool ListaMiembros(TFicheroITV& fichero, const TStringNomFitx& contenedor,
                             Vector<TStringNomFitx>& lista) = 0;
  // The key given to a member with TFicheroITV::SetKey.
  virtual void PonClave(const TStringNomFitx&, const char*, int) {}
};

// The installed manager, null when none; not owned by the file layer.
extern TVirtualFatMultipleFiles* vMultipleFiles;

// Install (or, with null, remove) the manager.
void Set_MultipleFiles_Manager(TVirtualFatMultipleFiles* m);

#endif
