// PrivateDataSHP.h - the plug-in's state for one open map, hung on the host's
// map record from open to close. It owns the two files, the header image and
// the counts; every change to them goes through a method named after what
// happened to the map.
#ifndef VARDA_PLUGIN_PRIVATEDATASHP_H
#define VARDA_PLUGIN_PRIVATEDATASHP_H

#include <cstdint>
#include <cstring>
#include <vector>

#include "VardaPlugIn.h"
#include "file/FicheroITV.h"
#include "plugin/MapJournal.h"
#include "string/DString.h"

// Open modes of the two files.
constexpr int kModoLeerMapa = 4113;         // read, binary, read cache
constexpr int kModoLeerEscribirMapa = 145;  // read, binary, update
constexpr int kModoCrearMapa = 530;         // write, binary, new

// The most a .shp may hold: its header counts its length in a signed 32-bit
// number of 16-bit words.
constexpr long long kMaxBytesMapa = 2LL * 0x7fffffffLL;

// The outcome of one operation of the plug-in; a failure carries one message.
enum class TResultado { kHecho, kFallo };
inline int32_t AlHost(TResultado r) { return r == TResultado::kHecho ? 1 : 0; }

class TPrivateDataSHP {
 public:
  // What stands, or is owed, after the last record of the .shp.
  enum class TMarcaFinal {
    kNinguna,   // the counted length ends with the last record
    kDebida,    // appends to an existing map, held in the journal, owe a
                // 32-bit zero after the last one
    kContada,   // the last word counted in the length is a zero end mark that
                // reading stopped on (a map created here ends so)
    kAlCerrar,  // a map being created: the mark is written once, on closing
  };
  // What the last read made of the map.
  enum class TLectura { kSinLeer, kLeido, kParcial, kRechazado };

  explicit TPrivateDataSHP(const char* path);
  TPrivateDataSHP(const TPrivateDataSHP&) = delete;
  TPrivateDataSHP& operator=(const TPrivateDataSHP&) = delete;

  // ------------------------------------------------ opening and closing
  // Opens the .shp and, if present, the .shx; for reading and writing makes
  // the one-time ".bak" copies first. A journal left by an interrupted
  // session is played before. On failure `msg` holds the text.
  bool Abre(bool escribir, DString& msg);
  // Creates both files, each starting with 100 zero bytes.
  bool Crea(DString& msg);
  // Brings an existing map into write mode: backups, then both files reopened
  // read/write. A failed backup leaves the map open for reading, untouched.
  bool PasaAEscritura(DString& msg);
  // Writes what closing owes (a run of appends) and closes both files, the
  // .shp first. False with `msg` when anything of it failed; appends that
  // could not be written stay in the journal for the next opening.
  bool Cierra(bool escritura, DString& msg);

  // ------------------------------------------------ what the host sees
  TFicheroITV& Shp() { return shp_; }
  TFicheroITV& Shx() { return shx_; }
  bool ShxAbierto() const { return shx_abierto_; }
  const DString& Path() const { return path_; }
  int NumRegistros() const { return num_registros_; }
  // Bytes of the .shp that its length counts.
  long long FinShp() const { return 2LL * static_cast<uint32_t>(long_shp_words_); }
  int32_t PalabrasShp() const { return long_shp_words_; }
  TMarcaFinal Marca() const { return marca_; }
  bool Rechazado() const { return lectura_ == TLectura::kRechazado; }
  bool SinLeer() const { return lectura_ == TLectura::kSinLeer; }

  // ------------------------------------------------ the header image
  const unsigned char* Cabecera() const { return cabecera_; }
  unsigned char* CabeceraParaLeer() { return cabecera_; }
  int32_t TipoMapa() const {
    int32_t t;
    std::memcpy(&t, cabecera_ + 32, 4);
    return t;
  }
  void PonTipoMapa(int32_t tipo) { std::memcpy(cabecera_ + 32, &tipo, 4); }
  // Reading took the header: only Xmin is looked at, deliberately, so a box
  // whose Xmin is about zero counts as unset and the next shape replaces it.
  void CabeceraLeida();
  // Widens the box by the points; it never narrows.
  void EnsanchaCaja(int n, const TVectorPointPlugIn* pts);

  // ------------------------------------------------ reading
  void EmpiezaLectura(int32_t palabras);
  int RegistroLeido() { return ++num_registros_; }
  void MarcaFinalLeida() { marca_ = TMarcaFinal::kContada; }
  // Reading stopped before the end of the map (a record that ends reading,
  // a cancellation); the first record it did not count starts at `siguiente`.
  void LecturaParcial(long long siguiente) {
    lectura_ = TLectura::kParcial;
    siguiente_ = siguiente;
  }
  void LecturaTerminada(bool rechazado) {
    if (rechazado)
      lectura_ = TLectura::kRechazado;
    else if (lectura_ != TLectura::kParcial)
      lectura_ = TLectura::kLeido;
  }
  // Before a change that follows a partial read: counts the records that the
  // read did not reach, checking each against its index entry, so that the
  // change lands after, moves and renumbers every record other readers see.
  // False with `msg` when the files disagree past the point where reading
  // stopped: no change can then be made safely.
  bool CompletaRecuento(DString& msg);

  // ------------------------------------------------ replacing and deleting
  // Each change is all or nothing. Before its first write the journal keeps
  // the bytes [desde, hasta) of each file (hasta < 0: to its end; desde < 0:
  // none) that the change may overwrite, and both headers. A change that
  // moves most of the .shp is made on copies instead; `reescrito_hasta`
  // says it writes every byte of the .shp's [desde_shp, reescrito_hasta)
  // itself, reading them from Origen(), so that they need no copying.
  bool EmpiezaCambio(long long desde_shp, long long hasta_shp, long long desde_shx,
                     long long hasta_shx, DString& msg, long long reescrito_hasta = -1);
  // Where a change reads the .shp's bytes as they were before it.
  TFicheroITV& Origen() { return diario_.Origen(shp_); }
  // The change is written: the headers as closing writes them, both files
  // made durable, the journal removed. When any of it fails the change is
  // undone and `msg` tells why.
  TResultado TerminaCambio(DString& msg);
  // A write of the change failed: both files and the state are put back as
  // they were before it (or, when even that fails, at the next opening).
  TResultado DeshazCambio();
  // A replaced record whose contents changed by `delta` words.
  void RegistroCambiado(long long delta);
  // A record of `palabras` words (header included) cut out.
  void RegistroQuitado(long long palabras);
  // A record cut out whose later records could not all be renumbered: the
  // length falls, the count and the modified flag stay as they were.
  void RegistroRecortado(long long palabras);
  void ContenidoCambiado() { modificado_ = true; }

  // ------------------------------------------------ appending
  // Appends the record in `r` (8 bytes left for its header, then its
  // contents) after the last one, widening the box by the points. The record
  // goes into the journal only, in one write; the run's end puts it into the
  // map. Sets `numero` to the new record's number. On failure nothing changed.
  TResultado AnyadeRegistro(std::vector<unsigned char>& r, int n, const TVectorPointPlugIn* pts,
                            bool creado, int32_t& numero, DString& msg);
  // Ends a run of appends: writes them, the end mark they owe and both
  // headers into the map and makes it durable. Every operation other than a
  // further append calls it first.
  bool PagaMarcaFinal(DString& msg);

  // Working storage reused from call to call, never seen by the host.
  std::vector<unsigned char>& Registro() { return registro_; }
  std::vector<unsigned char>& Bloque() { return bloque_; }

 private:
  // What the format says of a map file that cannot be opened for writing.
  DString MensajeSinEscritura(bool shx) const;
  // What a change may alter in memory, put back when it fails.
  struct TFoto {
    unsigned char cabecera[100];
    int32_t num_registros;
    bool extremos;
    int32_t long_shp_words;
    TMarcaFinal marca;
    bool modificado;
  };
  TFoto Foto() const;
  void Restablece(const TFoto& f);
  bool EmpiezaAnyadidos(bool creado, DString& msg);
  bool EscribeCabeceras(DString& msg);
  bool HazBackups(DString& msg);
  // An append to an existing map overwrites a counted end mark, as it
  // overwrites every end mark, instead of leaving it between the records.
  void AbsorbeMarcaContada();

  TFicheroITV shp_;
  TFicheroITV shx_;
  DString path_;
  bool shx_abierto_ = false;
  bool modificado_ = false;
  unsigned char cabecera_[100];  // header image, in file layout
  int32_t num_registros_ = 0;
  bool extremos_ = false;        // the header box holds values
  int32_t long_shp_words_ = 0;   // .shp length in 16-bit words
  TMarcaFinal marca_ = TMarcaFinal::kNinguna;
  TLectura lectura_ = TLectura::kSinLeer;
  long long siguiente_ = 0;  // after a partial read: where counting goes on
  // The .bak copies were made by this very opening, just now: the first
  // change's journal may point at them instead of copying the map again.
  bool copias_frescas_ = false;
  TDiarioMapa diario_;
  TFoto antes_{};  // the state before the change under way
  std::vector<unsigned char> registro_;
  std::vector<unsigned char> bloque_;
};

// Brings an existing map into write mode once; reports through `err` and
// returns false on failure.
bool Set_Archivo_Modo_Leer_Escribir(TVectorMapPlugIn& map, TStringPlugIn& err);

// The host's error sink, or one that drops messages when the host gave none.
TStringPlugIn& Sumidero(TStringPlugIn* err);

// Delivers one message to the host's error sink (nothing when there is none).
void EnviaError(TStringPlugIn* err, const char* texto);

// Formats one of the host-replaceable file messages with a file name.
DString FormatoFichero(const char* formato, const char* por_defecto, const char* nombre);

// The map's state, or null when the map was never opened.
inline TPrivateDataSHP* Estado(TVectorMapPlugIn* map) { return map ? map->privado : nullptr; }

#endif
