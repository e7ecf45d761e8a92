#include "plugin/MapJournal.h"

#include <cerrno>
#include <cstring>

#include "file/SistemaFicheros.h"
#include "filesys/Crc32.h"
#include "filesys/StringNomFitx.h"
#include "plugin/MapIO.h"
#include "plugin/ShapeFileLayout.h"

namespace {

constexpr int kModoEscribirDiario = MODO_ESCRIBIR | MODO_BINARIO;
constexpr int kModoLeerDiario = MODO_LEER | MODO_BINARIO | MODO_CACHE;
constexpr int kModoActualizarMapa = MODO_LEER | MODO_BINARIO | MODO_ACTUALIZAR;
constexpr int kModoCopia = MODO_ESCRIBIR | MODO_BINARIO | MODO_ACTUALIZAR;
constexpr long long kBloque = 1 << 20;
constexpr int kTamCabeceraEntrada = 16;
// What follows an entry's record: the map's header after it, then the CRC.
constexpr int kTamColaEntrada = shp::kHeaderSize + 4;

void Pon32(unsigned char* p, uint32_t v) {
  for (int i = 0; i < 4; i++) p[i] = static_cast<unsigned char>(v >> (8 * i));
}
void Pon64(unsigned char* p, long long v) {
  const unsigned long long u = static_cast<unsigned long long>(v);
  for (int i = 0; i < 8; i++) p[i] = static_cast<unsigned char>(u >> (8 * i));
}
uint32_t Toma32(const unsigned char* p) {
  uint32_t v = 0;
  for (int i = 3; i >= 0; i--) v = (v << 8) | p[i];
  return v;
}
long long Toma64(const unsigned char* p) {
  unsigned long long v = 0;
  for (int i = 7; i >= 0; i--) v = (v << 8) | p[i];
  return static_cast<long long>(v);
}

TStringNomFitx NombreShx(const DString& path) {
  TStringNomFitx n(path);
  n.Cambia_Ext("shx");
  return n;
}

// A piece as the journal holds it.
struct Pieza {
  long long offset = 0;
  long long largo = 0;
  uint32_t tipo = 0;
  long long en_diario = 0;  // where its bytes start in the journal
};

// A journal as read back from its file.
struct Leido {
  bool hecho = false;   // its change finished
  bool valido = false;  // header, pieces and closing mark whole
  uint32_t clase = 0;
  bool creado = false;
  long long tam_shp = 0, tam_shx = 0;
  uint32_t registros = 0;
  long long inicio = 0;
  std::vector<Pieza> piezas;
  long long entradas = 0;  // where the entries of a run start
};

// Reads the header, the piece heads and the closing mark. False only when
// the file could not be read; a journal cut short is `valido` false.
bool LeeDiario(TFicheroITV& j, Leido& d, DString& msg) {
  const long long tam = j.FileSize64();
  unsigned char c[diario::kTamCabecera];
  if (tam < diario::kTamCabecera) return true;
  if (!mapio::Lee(j, 0, c, sizeof c, msg)) return false;
  if (std::memcmp(c, diario::kMagiaHecho, 8) == 0) {
    d.hecho = true;
    return true;
  }
  if (std::memcmp(c, diario::kMagia, 8) != 0 || Crc32(0, c, 44) != Toma32(c + 44)) return true;
  d.clase = Toma32(c + 8);
  d.creado = Toma32(c + 12) != 0;
  d.tam_shp = Toma64(c + 16);
  d.tam_shx = Toma64(c + 24);
  d.registros = Toma32(c + 32);
  d.inicio = Toma64(c + 36);
  if ((d.clase != diario::kDeshacer && d.clase != diario::kAnyadidos &&
       d.clase != diario::kSustituye) ||
      d.tam_shp < 0 ||
      d.tam_shx < 0)
    return true;
  uint32_t crc = Crc32(0, c, sizeof c);
  long long pos = diario::kTamCabecera;
  while (pos + diario::kTamFin <= tam) {
    unsigned char p[diario::kTamPieza];
    const long long n = pos + diario::kTamPieza <= tam ? diario::kTamPieza : diario::kTamFin;
    if (!mapio::Lee(j, pos, p, n, msg)) return false;
    if (std::memcmp(p, diario::kMagiaFin, 8) == 0) {
      d.valido = Toma32(p + 8) == d.piezas.size() && Toma32(p + 12) == crc;
      d.entradas = pos + diario::kTamFin;
      return true;
    }
    if (n < diario::kTamPieza || Crc32(0, p, 20) != Toma32(p + 20)) return true;
    Pieza pz;
    pz.offset = Toma64(p);
    pz.largo = Toma64(p + 8);
    pz.tipo = Toma32(p + 16);
    pz.en_diario = pos + diario::kTamPieza;
    if (pz.offset < 0 || pz.largo < 0 || pz.tipo > diario::kCopiaShx) return true;
    const bool en_linea = pz.tipo == diario::kShp || pz.tipo == diario::kShx;
    if (en_linea && pz.largo > tam - pz.en_diario) return true;
    crc = Crc32(crc, p, sizeof p);
    d.piezas.push_back(pz);
    pos = pz.en_diario + (en_linea ? pz.largo : 0);
  }
  return true;
}

// Opens the journal `nombre` into `j` and reads it as LeeDiario does.
bool AbreYLeeDiario(const DString& nombre, TFicheroITV& j, Leido& d, DString& msg) {
  if (!j.Abre(TStringNomFitx(nombre), kModoLeerDiario, nullptr)) {
    msg = mapio::Mensaje("read", nombre.c_str(), j.ErrnoSistema());
    return false;
  }
  return LeeDiario(j, d, msg);
}

// Copies n bytes from `de` at `desde` to `a` at `hacia`, a block at a time.
bool Copia(TFicheroITV& de, long long desde, TFicheroITV& a, long long hacia, long long n,
           std::vector<unsigned char>& buf, DString& msg) {
  buf.resize(static_cast<size_t>(n < kBloque ? n : kBloque));
  for (long long hecho = 0; hecho < n;) {
    const long long b = n - hecho < kBloque ? n - hecho : kBloque;
    if (!mapio::Lee(de, desde + hecho, buf.data(), b, msg) ||
        !mapio::Escribe(a, hacia + hecho, buf.data(), b, msg))
      return false;
    hecho += b;
  }
  return true;
}

bool Trunca(TFicheroITV& f, long long tam, DString& msg) {
  if (f.Trunca64(tam)) return true;
  msg = mapio::Mensaje("write", f.GetNombre().c_str(), f.ErrnoSistema());
  return false;
}

bool Sincroniza(TFicheroITV& f, DString& msg) {
  if (f.Sincroniza()) return true;
  msg = mapio::Mensaje("write", f.GetNombre().c_str(), f.ErrnoSistema(),
                       "the data could not be made durable");
  return false;
}

// Makes the folder of `nombre` durable: the names made, renamed or removed
// in it.
bool SincronizaCarpeta(const char* nombre, DString& msg) {
  if (SistemaFicheros().SincronizaCarpeta(nombre)) return true;
  msg = mapio::Mensaje("write", nombre, errno, "its folder could not be made durable");
  return false;
}

// Puts back every piece and cuts both files to their sizes before the change:
// the map as the journal found it.
bool Restaura(const Leido& d, TFicheroITV& j, TFicheroITV& shp, TFicheroITV& shx,
              const DString& path, std::vector<unsigned char>& buf, DString& msg) {
  for (const Pieza& p : d.piezas) {
    TFicheroITV& f = p.tipo == diario::kShp || p.tipo == diario::kCopiaShp ? shp : shx;
    if (p.tipo == diario::kShp || p.tipo == diario::kShx) {
      if (!Copia(j, p.en_diario, f, p.offset, p.largo, buf, msg)) return false;
      continue;
    }
    TStringNomFitx bak(p.tipo == diario::kCopiaShp ? TStringNomFitx(path) : NombreShx(path));
    bak << ".bak";
    TFicheroITV copia;
    if (!copia.Abre(bak, kModoLeerDiario, nullptr)) {
      msg = mapio::Mensaje("read", bak.c_str(), copia.ErrnoSistema());
      return false;
    }
    if (copia.FileSize64() != p.largo) {
      msg = "Error: ";
      msg << bak.c_str() << " is no longer the copy the interrupted change relied on.";
      return false;
    }
    if (!Copia(copia, 0, f, p.offset, p.largo, buf, msg)) return false;
  }
  return Trunca(shp, d.tam_shp, msg) && Trunca(shx, d.tam_shx, msg);
}

// Writes every whole entry of a run of appends after the map as it was
// before the run, and what closing the map then writes: the zero end mark
// and both headers. A run without entries leaves the map as before it.
bool Rehace(const Leido& d, TFicheroITV& j, TFicheroITV& shp, TFicheroITV& shx,
            std::vector<unsigned char>& buf, DString& msg) {
  const long long tam = j.FileSize64();
  long long pos = d.entradas;
  long long fin = d.inicio;  // where the next record goes
  long long n = d.registros;
  std::vector<unsigned char> registros, indice;
  unsigned char cabecera[shp::kHeaderSize];
  bool alguna = false;
  auto vacia = [&]() {
    if (registros.empty()) return true;
    const long long en_shp = fin - static_cast<long long>(registros.size());
    const long long en_shx = shp::IndexEntryPos(n + 1) - static_cast<long long>(indice.size());
    const bool ok =
        mapio::Escribe(shp, en_shp, registros.data(), static_cast<long long>(registros.size()),
                       msg) &&
        mapio::Escribe(shx, en_shx, indice.data(), static_cast<long long>(indice.size()), msg);
    registros.clear();
    indice.clear();
    return ok;
  };
  while (pos + kTamCabeceraEntrada <= tam) {
    unsigned char h[kTamCabeceraEntrada];
    if (!mapio::Lee(j, pos, h, sizeof h, msg)) return false;
    const long long largo = Toma32(h);
    if (largo < shp::kRecordHeaderSize + 4 || largo % 2 != 0 || Toma64(h + 8) != fin ||
        largo > tam - pos - kTamCabeceraEntrada - kTamColaEntrada ||
        n >= 0x7fffffff)
      break;
    buf.resize(static_cast<size_t>(kTamCabeceraEntrada + largo + kTamColaEntrada));
    std::memcpy(buf.data(), h, sizeof h);
    unsigned char* e = buf.data() + kTamCabeceraEntrada;
    if (!mapio::Lee(j, pos + kTamCabeceraEntrada, e, largo + kTamColaEntrada, msg)) return false;
    const size_t sin_crc = buf.size() - 4;
    if (Crc32(0, buf.data(), sin_crc) != Toma32(buf.data() + sin_crc) ||
        shp::GetBigInt(e, 0) != n + 1 ||
        2LL * shp::GetBigInt(e, 4) + shp::kRecordHeaderSize != largo)
      break;
    registros.insert(registros.end(), e, e + largo);
    unsigned char entrada[shp::kIndexEntrySize];
    shp::PutBigInt(entrada, 0, static_cast<int32_t>(fin / 2));
    shp::PutBigInt(entrada, 4, shp::GetBigInt(e, 4));
    indice.insert(indice.end(), entrada, entrada + sizeof entrada);
    std::memcpy(cabecera, e + largo, sizeof cabecera);
    alguna = true;
    fin += largo;
    n++;
    pos += kTamCabeceraEntrada + largo + kTamColaEntrada;
    if (registros.size() >= static_cast<size_t>(kBloque) && !vacia()) return false;
  }
  if (!alguna) return true;
  if (!vacia()) return false;
  const int32_t cero = 0;
  if (!mapio::Escribe(shp, fin, &cero, 4, msg)) return false;
  // A map being created counts its end mark in its length.
  const long long largo_shp = d.creado ? fin + 4 : fin;
  shp::PutBigInt(cabecera, shp::kHdrFileCode, shp::kFileCode);
  shp::PutInt(cabecera, shp::kHdrVersion, shp::kVersion);
  shp::PutBigInt(cabecera, shp::kHdrFileLength, static_cast<int32_t>(largo_shp / 2));
  if (!mapio::Escribe(shp, 0, cabecera, shp::kHeaderSize, msg)) return false;
  shp::PutBigInt(cabecera, shp::kHdrFileLength,
                 static_cast<int32_t>(shp::IndexEntryPos(n + 1) / 2));
  return mapio::Escribe(shx, 0, cabecera, shp::kHeaderSize, msg);
}

// Plays a whole journal onto the map's files.
bool Reproduce(const Leido& d, TFicheroITV& j, TFicheroITV& shp, TFicheroITV& shx,
               const DString& path, std::vector<unsigned char>& buf, DString& msg) {
  if (!Restaura(d, j, shp, shx, path, buf, msg)) return false;
  return d.clase != diario::kAnyadidos || Rehace(d, j, shp, shx, buf, msg);
}

// The message of a journal that had to be played and could not be.
DString NoRecuperado(const DString& path_shp, const DString& nombre, const DString& porque_msg) {
  const char* porque = porque_msg.c_str();
  if (std::strncmp(porque, "Error: ", 7) == 0) porque += 7;
  DString m("Error: ");
  m << path_shp.c_str() << " was left half changed by an interrupted session and could "
    << "not be put right (" << porque << "); " << nombre.c_str() << " is kept for the next opening.";
  return m;
}

}  // namespace

TDiarioMapa::TDiarioMapa(const DString& path_shp) : path_(path_shp) {
  nombre_ = path_shp;
  nombre_ += diario::kSufijo;
}

TDiarioMapa::~TDiarioMapa() {
  if (f_.Abierto()) f_.CierraEx(true, nullptr);
}

bool TDiarioMapa::EscribeEnDiario(const void* buf, long long n, DString& msg) {
  if (!mapio::Escribe(f_, fin_, buf, n, msg)) return false;
  fin_ += n;
  return true;
}

bool TDiarioMapa::AbreNuevo(DString& msg) {
  // A new journal takes the name of a replacement's: that one must be done.
  if (!CierraPendiente(msg)) return false;
  if (!f_.Abre(TStringNomFitx(nombre_), kModoEscribirDiario, nullptr)) {
    msg = mapio::Mensaje("write", nombre_.c_str(), f_.ErrnoSistema());
    return false;
  }
  activo_ = true;
  carpeta_ = false;
  fin_ = 0;
  piezas_ = 0;
  return true;
}

bool TDiarioMapa::EscribeCabecera(diario::TClase clase, bool creado, long long tam_shp,
                                  long long tam_shx, int32_t registros, long long inicio,
                                  DString& msg) {
  clase_ = clase;
  unsigned char c[diario::kTamCabecera] = {};
  std::memcpy(c, diario::kMagia, 8);
  Pon32(c + 8, clase);
  Pon32(c + 12, creado ? 1 : 0);
  Pon64(c + 16, tam_shp);
  Pon64(c + 24, tam_shx);
  Pon32(c + 32, static_cast<uint32_t>(registros));
  Pon64(c + 36, inicio);
  Pon32(c + 44, Crc32(0, c, 44));
  crc_meta_ = Crc32(0, c, sizeof c);
  return EscribeEnDiario(c, sizeof c, msg);
}

bool TDiarioMapa::EscribeMarca(DString& msg) {
  unsigned char m[diario::kTamFin];
  std::memcpy(m, diario::kMagiaFin, 8);
  Pon32(m + 8, piezas_);
  Pon32(m + 12, crc_meta_);
  return EscribeEnDiario(m, sizeof m, msg);
}

// The journal's bytes and its name in the folder.
bool TDiarioMapa::SincronizaDiario(DString& msg) {
  return Sincroniza(f_, msg) && SincronizaCarpeta(nombre_.c_str(), msg);
}

bool TDiarioMapa::Empieza(diario::TClase clase, bool creado, int32_t registros,
                          long long inicio, TFicheroITV& shp, TFicheroITV& shx, DString& msg) {
  return AbreNuevo(msg) && EscribeCabecera(clase, creado, shp.FileSize64(), shx.FileSize64(),
                                           registros, inicio, msg);
}

bool TDiarioMapa::EmpiezaMapaNuevo(DString& msg, bool& sin_fichero) {
  sin_fichero = !AbreNuevo(msg);
  if (sin_fichero) return false;
  // No piece to vouch for: header and mark are made durable together, and a
  // torn pair fails its checks, when neither file exists yet.
  if (!EscribeCabecera(diario::kAnyadidos, true, shp::kHeaderSize, shp::kHeaderSize, 0,
                       shp::kHeaderSize, msg) ||
      !EscribeMarca(msg) || !SincronizaDiario(msg)) {
    Abandona();
    return false;
  }
  carpeta_ = true;
  return true;
}

bool TDiarioMapa::Guarda(diario::TPieza pieza, TFicheroITV& f, long long desde, long long hasta,
                         DString& msg) {
  const long long tam = f.FileSize64();
  if (hasta < 0 || hasta > tam) hasta = tam;
  if (desde < 0 || desde >= hasta) return true;
  unsigned char p[diario::kTamPieza];
  Pon64(p, desde);
  Pon64(p + 8, hasta - desde);
  Pon32(p + 16, pieza);
  Pon32(p + 20, Crc32(0, p, 20));
  crc_meta_ = Crc32(crc_meta_, p, sizeof p);
  piezas_++;
  if (!EscribeEnDiario(p, sizeof p, msg)) return false;
  if (!Copia(f, desde, f_, fin_, hasta - desde, buf_, msg)) return false;
  fin_ += hasta - desde;
  return true;
}

bool TDiarioMapa::GuardaCopia(diario::TPieza pieza, long long tam, DString& msg) {
  unsigned char p[diario::kTamPieza];
  Pon64(p, 0);
  Pon64(p + 8, tam);
  Pon32(p + 16, pieza);
  Pon32(p + 20, Crc32(0, p, 20));
  crc_meta_ = Crc32(crc_meta_, p, sizeof p);
  piezas_++;
  return EscribeEnDiario(p, sizeof p, msg);
}

bool TDiarioMapa::Confirma(DString& msg) {
  // The mark goes down only after everything it vouches for.
  if (!Sincroniza(f_, msg) || !EscribeMarca(msg)) return false;
  // A run's mark and entries are made durable together when the run ends,
  // before they are written into the map.
  return clase_ == diario::kAnyadidos || SincronizaDiario(msg);
}

DString TDiarioMapa::NombreCopia(const char* nombre) {
  DString n(nombre);
  n += diario::kSufijoCopia;
  return n;
}

namespace {

bool AbreMapa(TFicheroITV& f, const TStringNomFitx& nombre, DString& msg) {
  if (f.Abre(nombre, kModoActualizarMapa, nullptr)) return true;
  msg = mapio::Mensaje("write", nombre.c_str(), f.ErrnoSistema());
  return false;
}

bool CierraFichero(TFicheroITV& f, DString& msg) {
  if (!f.Abierto() || f.CierraEx(true, nullptr)) return true;
  msg = mapio::Mensaje("close", f.GetNombre().c_str(), f.ErrnoSistema(),
                       "the system refused to close it");
  return false;
}

}  // namespace

bool TDiarioMapa::EmpiezaSustitucion(TFicheroITV& shp, TFicheroITV& shx, long long libre_desde,
                                     long long libre_hasta, DString& msg) {
  if (!CierraPendiente(msg)) return false;
  const TStringNomFitx nombres[2] = {TStringNomFitx(path_), NombreShx(path_)};
  TFicheroITV* ficheros[2] = {&shp, &shx};
  for (int i = 0; i < 2; i++) {
    const DString copia_n = NombreCopia(nombres[i].c_str());
    TFicheroITV copia;
    bool ok = copia.Abre(TStringNomFitx(copia_n), kModoCopia, nullptr);
    if (!ok) msg = mapio::Mensaje("write", copia_n.c_str(), copia.ErrnoSistema());
    const long long tam = ficheros[i]->FileSize64();
    long long a = tam, b = tam;  // the bytes the change writes itself
    if (i == 0 && libre_desde >= 0 && libre_desde < libre_hasta && libre_desde <= tam) {
      a = libre_desde;
      b = libre_hasta < tam ? libre_hasta : tam;
    }
    ok = ok && Copia(*ficheros[i], 0, copia, 0, a, buf_, msg) &&
         Copia(*ficheros[i], b, copia, b, tam - b, buf_, msg);
    if (!CierraFichero(copia, ok ? msg : buf_msg_) && ok) ok = false;
    if (!ok) {
      for (int k = 0; k <= i; k++) SistemaFicheros().Borra(NombreCopia(nombres[k].c_str()).c_str());
      return false;
    }
  }
  // From here on the change is made on the copies.
  sustituyendo_ = true;
  if (!origen_.Abre(nombres[0], kModoLeerDiario & ~MODO_CACHE, nullptr)) {
    msg = mapio::Mensaje("read", nombres[0].c_str(), origen_.ErrnoSistema());
    DString m;
    DeshazSustitucion(shp, shx, m);
    return false;
  }
  for (int i = 0; i < 2; i++) {
    ficheros[i]->CierraEx(true, nullptr);
    if (!AbreMapa(*ficheros[i], TStringNomFitx(NombreCopia(nombres[i].c_str())), msg)) {
      DString m;
      DeshazSustitucion(shp, shx, m);
      return false;
    }
  }
  return true;
}

bool TDiarioMapa::TerminaSustitucion(TFicheroITV& shp, TFicheroITV& shx, DString& msg) {
  const TStringNomFitx nombres[2] = {TStringNomFitx(path_), NombreShx(path_)};
  const long long tam_shp = shp.FileSize64(), tam_shx = shx.FileSize64();
  // 1. The copies whole on the disk, under their names, 2. the journal that
  // names them, under its name: only then may they replace the map.
  if (origen_.Abierto()) origen_.CierraEx(true, nullptr);
  bool ok = Sincroniza(shp, msg) && Sincroniza(shx, msg) && CierraFichero(shp, msg) &&
            CierraFichero(shx, msg);
  ok = ok && SincronizaCarpeta(path_.c_str(), msg);
  if (ok) {
    ok = AbreNuevo(msg) &&
         EscribeCabecera(diario::kSustituye, false, tam_shp, tam_shx, 0, 0, msg) &&
         EscribeMarca(msg) && SincronizaDiario(msg);
    if (!ok) Abandona();
  }
  // Nothing replaced: the caller undoes the change on the copies.
  if (!ok) return false;
  f_.CierraEx(true, nullptr);
  activo_ = false;
  // 3. The renames. The first one failing leaves the map as it was: the
  // journal is withdrawn, and the caller removes the copies. After it the
  // change can only go forward: the second is tried once more, and should
  // it fail again the journal completes it on the next opening.
  TSistemaFicheros& sf = SistemaFicheros();
  const DString copia_shp = NombreCopia(nombres[0].c_str());
  const DString copia_shx = NombreCopia(nombres[1].c_str());
  if (!sf.Renombra(copia_shp.c_str(), nombres[0].c_str())) {
    msg = mapio::Mensaje("rename", copia_shp.c_str(), errno);
    if (sf.Borra(nombre_.c_str()) && SincronizaCarpeta(path_.c_str(), buf_msg_)) return false;
    // The journal could not be withdrawn: the next opening completes the
    // change; until then the map is read as it was.
    sustituyendo_ = false;
    AbreMapa(shp, nombres[0], buf_msg_);
    AbreMapa(shx, nombres[1], buf_msg_);
    return false;
  }
  sustituyendo_ = false;
  pendiente_ = true;
  ok = sf.Renombra(copia_shx.c_str(), nombres[1].c_str()) ||
       sf.Renombra(copia_shx.c_str(), nombres[1].c_str());
  if (!ok) {
    msg = mapio::Mensaje("rename", copia_shx.c_str(), errno);
    pendiente_ = false;
  }
  return AbreMapa(shp, nombres[0], ok ? msg : buf_msg_) &&
         AbreMapa(shx, nombres[1], ok ? msg : buf_msg_) && ok;
}

bool TDiarioMapa::DeshazSustitucion(TFicheroITV& shp, TFicheroITV& shx, DString& msg) {
  const TStringNomFitx nombres[2] = {TStringNomFitx(path_), NombreShx(path_)};
  if (origen_.Abierto()) origen_.CierraEx(true, nullptr);
  shp.CierraEx(true, nullptr);
  shx.CierraEx(true, nullptr);
  for (const TStringNomFitx& n : nombres) SistemaFicheros().Borra(NombreCopia(n.c_str()).c_str());
  sustituyendo_ = false;
  return AbreMapa(shp, nombres[0], msg) && AbreMapa(shx, nombres[1], msg);
}

bool TDiarioMapa::CierraPendiente(DString& msg) {
  if (!pendiente_) return true;
  if (!SincronizaCarpeta(path_.c_str(), msg)) return false;
  pendiente_ = false;
  // Should the removal be lost, the journal names copies that are gone:
  // playing it does nothing.
  SistemaFicheros().Borra(nombre_.c_str());
  return true;
}

bool TDiarioMapa::Anyade(const unsigned char* registro, size_t n, long long offset,
                         const unsigned char* cabecera, DString& msg) {
  const size_t total = kTamCabeceraEntrada + n + kTamColaEntrada;
  buf_.resize(total);
  unsigned char* e = buf_.data();
  Pon32(e, static_cast<uint32_t>(n));
  Pon32(e + 4, 0);
  Pon64(e + 8, offset);
  std::memcpy(e + kTamCabeceraEntrada, registro, n);
  std::memcpy(e + kTamCabeceraEntrada + n, cabecera, shp::kHeaderSize);
  Pon32(e + total - 4, Crc32(0, e, total - 4));
  if (mapio::EscribeAqui(f_, e, static_cast<long long>(total), msg)) {
    fin_ += static_cast<long long>(total);
    return true;
  }
  // A torn entry fails its CRC, but the next one must start where it did.
  f_.Trunca64(fin_);
  f_.Posicionate64(fin_);
  return false;
}

bool TDiarioMapa::Aplica(TFicheroITV& shp, TFicheroITV& shx, DString& msg) {
  if (clase_ == diario::kAnyadidos && !SincronizaDiario(msg)) return false;
  TFicheroITV j;
  Leido d;
  if (!AbreYLeeDiario(nombre_, j, d, msg)) return false;
  if (!d.valido) {
    msg = mapio::Mensaje("read", nombre_.c_str(), 0, "the journal does not read back whole");
    return false;
  }
  if (Reproduce(d, j, shp, shx, path_, buf_, msg)) return true;
  // The files as the run found them, at once: the calls of the run have
  // all returned, and the journal that holds them stays for a later try.
  DString m;
  if (d.clase == diario::kAnyadidos) Restaura(d, j, shp, shx, path_, buf_, m);
  return false;
}

bool TDiarioMapa::Termina(TFicheroITV& shp, TFicheroITV& shx, DString& msg) {
  if (!Sincroniza(shp, msg) || !Sincroniza(shx, msg)) return false;
  if (carpeta_ && !SincronizaCarpeta(path_.c_str(), msg)) return false;
  carpeta_ = false;
  if (!mapio::Escribe(f_, 0, diario::kMagiaHecho, 8, msg) || !Sincroniza(f_, msg)) {
    // Not known to be done: the journal must read as whole again, so that
    // the change can still be undone or played.
    DString m;
    mapio::Escribe(f_, 0, diario::kMagia, 8, m);
    return false;
  }
  // From here on the change stands: a journal that stays behind is done.
  f_.CierraEx(true, nullptr);
  SistemaFicheros().Borra(nombre_.c_str());
  activo_ = false;
  return true;
}

void TDiarioMapa::Abandona() {
  f_.CierraEx(true, nullptr);
  SistemaFicheros().Borra(nombre_.c_str());
  activo_ = false;
}

void TDiarioMapa::Deja() {
  f_.CierraEx(true, nullptr);
  activo_ = false;
}

bool TDiarioMapa::Recupera(const DString& path_shp, TRecuperado& que, DString& msg) {
  que = TRecuperado::kNada;
  DString nombre(path_shp);
  nombre += diario::kSufijo;
  TSistemaFicheros& sf = SistemaFicheros();
  if (sf.Tipo(nombre.c_str()) != TSistemaFicheros::kRegular) return true;
  TFicheroITV j;
  Leido d;
  if (!AbreYLeeDiario(nombre, j, d, msg)) return false;
  if (d.valido && d.clase == diario::kSustituye) {
    // The copies were whole and durable before this journal was: each one
    // still there takes its file's place.
    bool ok = true;
    const TStringNomFitx nombres[2] = {TStringNomFitx(path_shp), NombreShx(path_shp)};
    for (int i = 0; ok && i < 2; i++) {
      const DString copia = NombreCopia(nombres[i].c_str());
      if (sf.Tipo(copia.c_str()) != TSistemaFicheros::kRegular) continue;
      ok = sf.Renombra(copia.c_str(), nombres[i].c_str());
      if (!ok) msg = mapio::Mensaje("rename", copia.c_str(), errno);
    }
    ok = ok && SincronizaCarpeta(path_shp.c_str(), msg);
    if (!ok) {
      msg = NoRecuperado(path_shp, nombre, msg);
      return false;
    }
    que = TRecuperado::kSustituido;
  } else if (d.valido) {
    // Both files are needed, for writing: the map is put back before it is
    // read, or not opened at all.
    TFicheroITV shp, shx;
    std::vector<unsigned char> buf;
    const TStringNomFitx nombres[2] = {TStringNomFitx(path_shp), NombreShx(path_shp)};
    TFicheroITV* ficheros[2] = {&shp, &shx};
    bool ok = true, nuevos = false;
    for (int i = 0; ok && i < 2; i++) {
      const char* n = nombres[i].c_str();
      const TSistemaFicheros::TTipo tipo = sf.Tipo(n);
      if (tipo == TSistemaFicheros::kNoExiste && d.creado) {
        // A map being created whose file never reached the disk: it is
        // made again, as empty as it started.
        TFicheroITV nuevo;
        ok = nuevo.Abre(nombres[i], kModoEscribirDiario, nullptr) &&
             nuevo.CierraEx(true, nullptr);
        if (!ok) msg = mapio::Mensaje("write", n, nuevo.ErrnoSistema());
        nuevos = true;
      } else if (tipo != TSistemaFicheros::kRegular) {
        msg = "Error: ";
        msg << n << " is not a regular file.";
        ok = false;
      }
      if (ok && !ficheros[i]->Abre(nombres[i], kModoActualizarMapa, nullptr)) {
        msg = mapio::Mensaje("write", n, ficheros[i]->ErrnoSistema());
        ok = false;
      }
    }
    ok = ok && Reproduce(d, j, shp, shx, path_shp, buf, msg) && Sincroniza(shp, msg) &&
         Sincroniza(shx, msg) && shp.CierraEx(true, nullptr) && shx.CierraEx(true, nullptr);
    ok = ok && (!nuevos || SincronizaCarpeta(path_shp.c_str(), msg));
    if (!ok) {
      msg = NoRecuperado(path_shp, nombre, msg);
      return false;
    }
    que = d.clase == diario::kAnyadidos ? TRecuperado::kRehecho : TRecuperado::kDeshecho;
  } else if (!d.hecho) {
    que = TRecuperado::kDescartado;
  }
  j.CierraEx(true, nullptr);
  // Once the map is durable the journal may go; should its removal be lost,
  // playing it again gives the same map.
  if (sf.Borra(nombre.c_str())) sf.SincronizaCarpeta(nombre.c_str());
  return true;
}
