#include "plugin/PrivateDataSHP.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "file/SistemaFicheros.h"
#include "filesys/FitxUtils.h"
#include "filesys/StringNomFitx.h"
#include "plugin/MapIO.h"
#include "plugin/ShapeFileLayout.h"
#include "plugin/ShapeWriter.h"

void EnviaError(TStringPlugIn* err, const char* texto) {
  if (err && err->SetStr) err->SetStr(err, texto ? texto : "");
}

TStringPlugIn& Sumidero(TStringPlugIn* err) {
  static TStringPlugIn descarta = {nullptr};  // never written: shared safely
  return err ? *err : descarta;
}

namespace {
// A usable file message has exactly one "%s" and no other conversion but "%%";
// anything else from the host would read arguments that are not there.
bool FormatoValido(const char* f) {
  if (!f) return false;
  int s = 0;
  for (const char* p = f; *p; ++p) {
    if (*p != '%') continue;
    if (p[1] == '%') {
      ++p;
    } else if (p[1] == 's') {
      ++s;
      ++p;
    } else {
      return false;
    }
  }
  return s == 1;
}

TStringNomFitx NombreShx(const DString& path) {
  TStringNomFitx n(path);
  n.Cambia_Ext("shx");
  return n;
}

// Files that are not plain files (a folder, a FIFO, a device) would hang a
// read or take writes without end; they are refused before any open.
bool EsFicheroUsable(const char* nombre, DString& msg) {
  if (SistemaFicheros().Tipo(nombre) != TSistemaFicheros::kOtro) return true;
  msg = "Error: ";
  msg << nombre << " is not a regular file.";
  return false;
}

bool CabeEnLongitud(const char* nombre, DString& msg) {
  const long long tam = SistemaFicheros().Tamanyo(nombre);
  if (tam <= kMaxBytesMapa) return true;
  msg = "Error: ";
  msg << nombre << " is too large for a shapefile: " << tam
      << " bytes, more than its header can count.";
  return false;
}
}  // namespace

DString FormatoFichero(const char* formato, const char* por_defecto, const char* nombre) {
  const char* f = FormatoValido(formato) ? formato : por_defecto;
  // The result is assembled piecewise so that no name is too long for it.
  DString out;
  out = "";
  for (const char* p = f; *p; ++p) {
    if (*p == '%' && p[1] == '%') {
      out << '%';
      ++p;
    } else if (*p == '%' && p[1] == 's') {
      out << nombre;
      ++p;
    } else {
      out << *p;
    }
  }
  return out;
}

TPrivateDataSHP::TPrivateDataSHP(const char* path)
    : path_(path ? path : ""), diario_(path_) {
  // Only the first word is cleared here; opening or reading fills the rest.
  std::memset(cabecera_, 0, 4);
}

bool TPrivateDataSHP::HazBackups(DString& msg) {
  // The backups hold the map as it was before the first change ever made
  // through the plug-in: made once, deliberately never refreshed.
  TStringNomFitx nombre_shp(path_);
  TStringNomFitx nombre_shx = NombreShx(path_);
  TStringNomFitx bak_shp(nombre_shp);
  bak_shp << ".bak";
  TStringNomFitx bak_shx(nombre_shx);
  bak_shx << ".bak";
  if (TFitxUtils::Verifica_Existencia_Archivo(bak_shp)) return true;
  // Without both files the switch to writing fails on its own message.
  if (SistemaFicheros().Tipo(nombre_shp.c_str()) != TSistemaFicheros::kRegular ||
      SistemaFicheros().Tipo(nombre_shx.c_str()) != TSistemaFicheros::kRegular)
    return true;
  const bool habia_shx = TFitxUtils::Verifica_Existencia_Archivo(bak_shx);
  const TStringNomFitx* fallido = nullptr;
  if (!TFitxUtils::Backup_File(nombre_shx, bak_shx))
    fallido = &bak_shx;
  else if (!TFitxUtils::Backup_File(nombre_shp, bak_shp))
    fallido = &bak_shp;
  if (!fallido) {
    copias_frescas_ = !habia_shx;
    return true;
  }
  // A partial backup is worse than none: neither is kept, and the map is not
  // touched. The .shp backup is made last, since its presence means "done".
  const int e = errno;
  SistemaFicheros().Borra(bak_shp.c_str());
  SistemaFicheros().Borra(bak_shx.c_str());
  msg = mapio::Mensaje("make the backup", fallido->c_str(), e, "the copy is incomplete");
  return false;
}

bool TPrivateDataSHP::Abre(bool escribir, DString& msg) {
  TStringNomFitx nombre_shp(path_);
  TStringNomFitx nombre_shx = NombreShx(path_);
  if (!escribir) {
    // What an interrupted session left is put right before anything else
    // looks at the map: a journal (even of a map whose files it must make
    // again), and the backup copies and the copies of a change that it had
    // not finished.
    TDiarioMapa::TRecuperado recuperado;
    if (!TDiarioMapa::Recupera(path_, recuperado, msg)) return false;
    for (const TStringNomFitx* n : {&nombre_shp, &nombre_shx}) {
      DString temporal(n->c_str());
      temporal << ".bak.$$$";
      for (const DString& t : {temporal, TDiarioMapa::NombreCopia(n->c_str())})
        if (SistemaFicheros().Tipo(t.c_str()) == TSistemaFicheros::kRegular)
          SistemaFicheros().Borra(t.c_str());
    }
  }
  if (!EsFicheroUsable(nombre_shp.c_str(), msg) || !EsFicheroUsable(nombre_shx.c_str(), msg))
    return false;
  if (!CabeEnLongitud(nombre_shp.c_str(), msg)) return false;
  if (escribir && !HazBackups(msg)) return false;

  int modo = escribir ? kModoLeerEscribirMapa : kModoLeerMapa;
  if (!shp_.Abre(nombre_shp, modo, nullptr)) {
    msg = escribir ? MensajeSinEscritura(false)
                   : FormatoFichero(fmt_open, "Error: File %s not found.", path_.c_str());
    return false;
  }
  shx_abierto_ = shx_.Abre(nombre_shx, modo, nullptr);
  if (shx_abierto_ || !escribir) return true;
  msg = MensajeSinEscritura(true);
  return false;
}

DString TPrivateDataSHP::MensajeSinEscritura(bool shx) const {
  return shx ? FormatoFichero(fmt_open, "Error: File %s not found.", NombreShx(path_).c_str())
             : FormatoFichero(fmt_save, "Error: Cannot open %s for saving.", path_.c_str());
}

bool TPrivateDataSHP::Crea(DString& msg) {
  TStringNomFitx nombre_shp(path_);
  TStringNomFitx nombre_shx = NombreShx(path_);
  // A journal of an earlier map under this name must not be played on the
  // new one.
  const DString& jnl = diario_.Nombre();
  if (SistemaFicheros().Tipo(jnl.c_str()) != TSistemaFicheros::kNoExiste &&
      !SistemaFicheros().Borra(jnl.c_str())) {
    msg = mapio::Mensaje("remove", jnl.c_str(), errno);
    return false;
  }
  // The new map's run of appends starts, durable, before either file is
  // made: an interruption then leaves the new map, never half-made files.
  // A folder where nothing can be made gets the message of a file that
  // cannot be made.
  bool sin_diario = false;
  if (!diario_.EmpiezaMapaNuevo(msg, sin_diario)) {
    if (sin_diario)
      msg = FormatoFichero(nullptr, "Error writing %s file.", nombre_shp.c_str());
    return false;
  }
  // A new map starts with 100 zero bytes in each file; the real headers are
  // written when the run ends, once something was added.
  std::memset(cabecera_, 0, sizeof cabecera_);
  for (int i = 0; i < 2; i++) {
    TFicheroITV& f = i == 0 ? shp_ : shx_;
    const TStringNomFitx& nombre = i == 0 ? nombre_shp : nombre_shx;
    // Open for reading as well: the run is played from what it wrote.
    if (!f.Abre(nombre, kModoCrearMapa | MODO_ACTUALIZAR, nullptr)) {
      // Deliberate: a .shp made before its index failed stays, empty.
      msg = FormatoFichero(nullptr, "Error writing %s file.", nombre.c_str());
      diario_.Abandona();
      return false;
    }
  }
  if (!mapio::EscribeAqui(shp_, cabecera_, shp::kHeaderSize, msg) ||
      !mapio::EscribeAqui(shx_, cabecera_, shp::kHeaderSize, msg)) {
    // Files that could not even take their headers make no map.
    shp_.CierraEx(true, nullptr);
    shx_.CierraEx(true, nullptr);
    SistemaFicheros().Borra(nombre_shp.c_str());
    SistemaFicheros().Borra(nombre_shx.c_str());
    diario_.Abandona();
    return false;
  }
  num_registros_ = 0;
  long_shp_words_ = shp::kHeaderSize / 2;
  extremos_ = false;
  marca_ = TMarcaFinal::kAlCerrar;
  return true;
}

bool TPrivateDataSHP::PasaAEscritura(DString& msg) {
  // Files that cannot be opened for writing are refused with the format's
  // own messages first (opening them changes nothing); then the backups,
  // while the map is still open for reading: if they cannot be made the
  // edit is refused and the map stays as it was.
  const TStringNomFitx nombres[2] = {TStringNomFitx(path_), NombreShx(path_)};
  for (int i = 0; i < 2; i++) {
    TFicheroITV prueba;
    if (prueba.Abre(nombres[i], kModoLeerEscribirMapa, nullptr)) {
      if (prueba.CierraEx(true, nullptr)) continue;
      msg = mapio::Mensaje("close", nombres[i].c_str(), prueba.ErrnoSistema(),
                           "the system refused to close it");
      return false;
    }
    msg = MensajeSinEscritura(i == 1);
    return false;
  }
  if (!HazBackups(msg)) return false;
  shp_.CierraEx(true, nullptr);
  shx_.CierraEx(true, nullptr);
  return Abre(true, msg);
}

void TPrivateDataSHP::CabeceraLeida() {
  if (std::fabs(shp::GetDouble(cabecera_, shp::kHdrXmin)) > 1e-05) extremos_ = true;
}

void TPrivateDataSHP::EnsanchaCaja(int n, const TVectorPointPlugIn* pts) {
  unsigned char* c = cabecera_;
  double xmin = shp::GetDouble(c, shp::kHdrXmin), ymin = shp::GetDouble(c, shp::kHdrYmin);
  double xmax = shp::GetDouble(c, shp::kHdrXmax), ymax = shp::GetDouble(c, shp::kHdrYmax);
  // Deliberate: the Z range stands greatest first in the header of these maps.
  double zmax = shp::GetDouble(c, shp::kHdrZmaxSlot), zmin = shp::GetDouble(c, shp::kHdrZminSlot);
  Incre_ExtremosS(n, pts, extremos_, xmin, ymin, xmax, ymax, zmax, zmin);
  shp::PutDouble(c, shp::kHdrXmin, xmin);
  shp::PutDouble(c, shp::kHdrYmin, ymin);
  shp::PutDouble(c, shp::kHdrXmax, xmax);
  shp::PutDouble(c, shp::kHdrYmax, ymax);
  shp::PutDouble(c, shp::kHdrZmaxSlot, zmax);
  shp::PutDouble(c, shp::kHdrZminSlot, zmin);
}

void TPrivateDataSHP::EmpiezaLectura(int32_t palabras) {
  long_shp_words_ = palabras;
  num_registros_ = 0;
  lectura_ = TLectura::kSinLeer;
  if (marca_ != TMarcaFinal::kAlCerrar) marca_ = TMarcaFinal::kNinguna;
}

bool TPrivateDataSHP::CompletaRecuento(DString& msg) {
  if (lectura_ != TLectura::kParcial) return true;
  const long long fin = FinShp();
  const long long tam = shp_.FileSize64();
  const long long tam_x = shx_abierto_ ? shx_.FileSize64() : 0;
  long long P = siguiente_;
  long long n = num_registros_;
  bool marca = false;
  // The same ends as reading's: the end of the file or of the counted length,
  // or a zero record number (an end mark).
  while (P + 4 <= tam && P < fin) {
    unsigned char cab[8];
    if (!mapio::Lee(shp_, P, cab, P + 8 <= tam ? 8 : 4, msg)) return false;
    if (shp::GetInt(cab, 0) == 0) {
      marca = P + 4 == fin;
      break;
    }
    const long long C = shp::GetBigInt(cab, 4);
    bool de_acuerdo = P + 8 <= tam && C >= 2 && P + 8 + 2 * C <= tam;
    if (de_acuerdo && shx_abierto_) {
      int32_t e[2] = {0, 0};
      de_acuerdo = shp::IndexEntryPos(n + 2) <= tam_x &&
                   mapio::Lee(shx_, shp::IndexEntryPos(n + 1), e, 8, msg) &&
                   2LL * shp::Reverse(e[0]) == P && shp::Reverse(e[1]) == C;
    }
    if (!de_acuerdo || n >= 0x7fffffff) {
      msg = "Error: ";
      msg << path_.c_str() << " cannot be changed safely: after record " << n
          << ", where reading stopped, its records and its index disagree.";
      return false;
    }
    n++;
    P += 8 + 2 * C;
  }
  num_registros_ = static_cast<int32_t>(n);
  if (marca) marca_ = TMarcaFinal::kContada;
  lectura_ = TLectura::kLeido;
  return true;
}

// The length field is the file's 32-bit word: a length taken from a damaged
// header wraps like it instead of overflowing.
static int32_t SumaPalabras(int32_t w, long long delta) {
  return static_cast<int32_t>(static_cast<uint32_t>(w) + static_cast<uint32_t>(delta));
}

void TPrivateDataSHP::RegistroCambiado(long long delta) {
  long_shp_words_ = SumaPalabras(long_shp_words_, delta);
  modificado_ = true;
}

void TPrivateDataSHP::RegistroQuitado(long long palabras) {
  RegistroRecortado(palabras);
  num_registros_--;
  modificado_ = true;
}

void TPrivateDataSHP::RegistroRecortado(long long palabras) {
  long_shp_words_ = SumaPalabras(long_shp_words_, -palabras);
}

void TPrivateDataSHP::AbsorbeMarcaContada() {
  if (marca_ != TMarcaFinal::kContada) return;
  long_shp_words_ = SumaPalabras(long_shp_words_, -2);
  marca_ = TMarcaFinal::kNinguna;
}

TPrivateDataSHP::TFoto TPrivateDataSHP::Foto() const {
  TFoto f;
  std::memcpy(f.cabecera, cabecera_, sizeof cabecera_);
  f.num_registros = num_registros_;
  f.extremos = extremos_;
  f.long_shp_words = long_shp_words_;
  f.marca = marca_;
  f.modificado = modificado_;
  return f;
}

void TPrivateDataSHP::Restablece(const TFoto& f) {
  std::memcpy(cabecera_, f.cabecera, sizeof cabecera_);
  num_registros_ = f.num_registros;
  extremos_ = f.extremos;
  long_shp_words_ = f.long_shp_words;
  marca_ = f.marca;
  modificado_ = f.modificado;
}

bool TPrivateDataSHP::EmpiezaCambio(long long desde_shp, long long hasta_shp, long long desde_shx,
                                    long long hasta_shx, DString& msg,
                                    long long reescrito_hasta) {
  antes_ = Foto();
  // Fresh copies hold the map exactly as it is: nothing needs copying again.
  const bool copias = copias_frescas_;
  copias_frescas_ = false;
  // A change that moves more than half of the .shp is cheaper made on
  // copies of both files than by keeping what it overwrites.
  const long long tam = shp_.FileSize64();
  if (!copias && hasta_shp < 0 && desde_shp >= 0 && 2 * (tam - desde_shp) > tam)
    return diario_.EmpiezaSustitucion(shp_, shx_, desde_shp, reescrito_hasta, msg);
  bool ok = diario_.Empieza(diario::kDeshacer, false, num_registros_, 0, shp_, shx_, msg);
  if (ok && copias) {
    ok = diario_.GuardaCopia(diario::kCopiaShp, shp_.FileSize64(), msg) &&
         diario_.GuardaCopia(diario::kCopiaShx, shx_.FileSize64(), msg);
  } else if (ok) {
    ok = diario_.Guarda(diario::kShp, shp_, 0, shp::kHeaderSize, msg) &&
         diario_.Guarda(diario::kShp, shp_, desde_shp, hasta_shp, msg) &&
         diario_.Guarda(diario::kShx, shx_, 0, shp::kHeaderSize, msg) &&
         diario_.Guarda(diario::kShx, shx_, desde_shx, hasta_shx, msg);
  }
  if (ok && diario_.Confirma(msg)) return true;
  diario_.Abandona();
  return false;
}

TResultado TPrivateDataSHP::TerminaCambio(DString& msg) {
  if (diario_.Sustituyendo()) {
    if ((!modificado_ || EscribeCabeceras(msg)) && diario_.TerminaSustitucion(shp_, shx_, msg))
      return TResultado::kHecho;
    // Once the copies were renamed the change stands, reported or not.
    if (!diario_.Sustituyendo()) return TResultado::kFallo;
    return DeshazCambio();
  }
  if ((!modificado_ || EscribeCabeceras(msg)) && diario_.Termina(shp_, shx_, msg))
    return TResultado::kHecho;
  return DeshazCambio();
}

TResultado TPrivateDataSHP::DeshazCambio() {
  DString m;
  if (diario_.Sustituyendo())
    diario_.DeshazSustitucion(shp_, shx_, m);
  else if (!diario_.Aplica(shp_, shx_, m) || !diario_.Termina(shp_, shx_, m))
    diario_.Deja();
  Restablece(antes_);
  return TResultado::kFallo;
}

bool TPrivateDataSHP::EmpiezaAnyadidos(bool creado, DString& msg) {
  // The records go where the header's length ends: a header that counts
  // past the end of the file would put them beyond a gap no reader crosses.
  if (FinShp() > shp_.FileSize64()) {
    msg = "Error: a line cannot be added to ";
    msg << path_.c_str() << ": the SHP header gives a length beyond the end of the file.";
    return false;
  }
  // What the run overwrites: the headers, and whatever stands where its
  // records and index entries go.
  copias_frescas_ = false;
  const bool ok =
      diario_.Empieza(diario::kAnyadidos, creado, num_registros_, FinShp(), shp_, shx_, msg) &&
      diario_.Guarda(diario::kShp, shp_, 0, shp::kHeaderSize, msg) &&
      diario_.Guarda(diario::kShp, shp_, FinShp(), -1, msg) &&
      diario_.Guarda(diario::kShx, shx_, 0, shp::kHeaderSize, msg) &&
      diario_.Guarda(diario::kShx, shx_, shp::IndexEntryPos(num_registros_ + 1), -1, msg) &&
      diario_.Confirma(msg);
  if (!ok) diario_.Abandona();
  return ok;
}

TResultado TPrivateDataSHP::AnyadeRegistro(std::vector<unsigned char>& r, int n,
                                           const TVectorPointPlugIn* pts, bool creado,
                                           int32_t& numero, DString& msg) {
  const TFoto antes = Foto();
  if (!creado) AbsorbeMarcaContada();
  if (!diario_.Activo() && !EmpiezaAnyadidos(creado, msg)) {
    Restablece(antes);
    return TResultado::kFallo;
  }
  const int32_t C = static_cast<int32_t>((r.size() - shp::kRecordHeaderSize) / 2);
  numero = num_registros_ + 1;
  shp::PutBigInt(r.data(), 0, numero);
  shp::PutBigInt(r.data(), 4, C);
  EnsanchaCaja(n, pts);
  if (!diario_.Anyade(r.data(), r.size(), FinShp(), cabecera_, msg)) {
    Restablece(antes);
    return TResultado::kFallo;
  }
  num_registros_++;
  long_shp_words_ = SumaPalabras(long_shp_words_, 4LL + C);
  if (!creado) marca_ = TMarcaFinal::kDebida;
  modificado_ = true;
  return TResultado::kHecho;
}

bool TPrivateDataSHP::PagaMarcaFinal(DString& msg) {
  if (!diario_.Activo()) return true;
  // On failure the run stays open: a later call, or closing, tries again
  // from the journal, which holds every append.
  if (!diario_.Aplica(shp_, shx_, msg) || !diario_.Termina(shp_, shx_, msg)) return false;
  if (marca_ == TMarcaFinal::kDebida) marca_ = TMarcaFinal::kNinguna;
  return true;
}

bool TPrivateDataSHP::EscribeCabeceras(DString& msg) {
  shp::PutBigInt(cabecera_, shp::kHdrFileCode, shp::kFileCode);
  shp::PutInt(cabecera_, shp::kHdrVersion, shp::kVersion);
  shp::PutBigInt(cabecera_, shp::kHdrFileLength, static_cast<int32_t>(FinShp() / 2));
  if (!mapio::Escribe(shp_, 0, cabecera_, shp::kHeaderSize, msg)) return false;
  shp::PutBigInt(cabecera_, shp::kHdrFileLength,
                 static_cast<int32_t>(shp::IndexEntryPos(num_registros_ + 1) / 2));
  return mapio::Escribe(shx_, 0, cabecera_, shp::kHeaderSize, msg);
}

bool TPrivateDataSHP::Cierra(bool escritura, DString& msg) {
  bool ok = !escritura || (PagaMarcaFinal(msg) && diario_.CierraPendiente(msg));
  if (!ok) diario_.Deja();
  // Both files are closed whatever happened; a failed close is reported
  // only when nothing before it failed.
  const bool shp_cerrado = shp_.CierraEx(true, nullptr) != 0 || !escritura;
  const int e_shp = shp_.ErrnoSistema();
  const bool shx_cerrado = shx_.CierraEx(true, nullptr) != 0 || !escritura;
  const int e_shx = shx_.ErrnoSistema();
  if (ok && !shp_cerrado) {
    msg = mapio::Mensaje("close", path_.c_str(), e_shp, "the system refused to close it");
    ok = false;
  } else if (ok && !shx_cerrado) {
    msg = mapio::Mensaje("close", NombreShx(path_).c_str(), e_shx,
                         "the system refused to close it");
    ok = false;
  }
  return ok;
}

bool Set_Archivo_Modo_Leer_Escribir(TVectorMapPlugIn& map, TStringPlugIn& err) {
  if (map.modo_escritura) return true;
  DString msg;
  if (!map.privado->PasaAEscritura(msg)) {
    EnviaError(&err, msg.c_str());
    return false;
  }
  map.modo_escritura = 1;
  return true;
}
