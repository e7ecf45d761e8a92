// PrivateDataSHP.h - the plug-in's state for one open map, hung on the host's
// map record from open to close.
#ifndef VARDA_PLUGIN_PRIVATEDATASHP_H
#define VARDA_PLUGIN_PRIVATEDATASHP_H

#include <vector>

#include "VardaPlugIn.h"
#include "file/FicheroITV.h"
#include "file/FicheroITVdatos.h"
#include "string/DString.h"

// Open modes of the two files.
constexpr int kModoLeerMapa = 4113;         // read, binary, read cache
constexpr int kModoLeerEscribirMapa = 145;  // read, binary, update
constexpr int kModoCrearMapa = 530;         // write, binary, new

class TPrivateDataSHP {
 public:
  TPrivateDataSHP();
  TPrivateDataSHP(const TPrivateDataSHP&) = delete;
  TPrivateDataSHP& operator=(const TPrivateDataSHP&) = delete;

  // Opens the .shp and, if present, the .shx; for reading and writing makes
  // the one-time ".bak" copies first. On failure `msg` holds the text.
  bool Abre(bool escribir, DString& msg);
  // Closes both files, the .shp first.
  void Cierra();
  // Writes the end mark still owed by the last append to an existing map;
  // every operation other than a further append calls it first.
  void Asienta();
  // Changes the .shp length in words. The field is the file's 32-bit word,
  // so a length taken from a damaged header wraps like it instead of
  // overflowing.
  void SumaPalabras(long long delta) {
    long_shp_words = static_cast<int>(static_cast<uint32_t>(long_shp_words) +
                                      static_cast<uint32_t>(delta));
  }

  TFicheroITV shp;
  TFicheroITV shx;
  DString path;
  bool shx_abierto;
  bool modificado;
  unsigned char cabecera[100];  // header image, in file layout
  int num_registros;
  bool extremos;                // the header box holds values
  int long_shp_words;           // .shp length in 16-bit words

  // Appends to an existing map end the .shp with a 32-bit zero that the next
  // append overwrites. Consecutive appends defer it (and skip re-seeking both
  // files to where they already stand): the bytes at every other operation
  // and at closing are the same, with a seek and a flush less per shape.
  bool terminador_pendiente = false;
  bool anyadiendo = false;
  // The last word counted in the .shp length is the zero end mark that
  // reading stopped on (a map closed after being created ends so). Deletions
  // and replacements keep it last; the next append overwrites it, as appends
  // overwrite every end mark, instead of leaving it between the records.
  bool marca_final = false;

  // Working storage reused from call to call, so that reading and writing do
  // not allocate per record. Never seen by the host.
  std::vector<unsigned char> registro;
  std::vector<unsigned char> bloque;
};

// Brings an existing map into write mode once (closing and reopening both
// files read/write); reports through `err` and returns false on failure.
bool Set_Archivo_Modo_Leer_Escribir(TVectorMapPlugIn& map, TStringPlugIn& err);

// Delivers one message to the host's error sink (nothing when there is none).
void EnviaError(TStringPlugIn* err, const char* texto);

// The host's error sink, or one that drops messages when the host gave none.
TStringPlugIn& Sumidero(TStringPlugIn* err);

// Formats one of the host-replaceable file messages with a file name.
DString FormatoFichero(const char* formato, const char* por_defecto, const char* nombre);

// The map's state, or null when the map was never opened.
inline TPrivateDataSHP* Estado(TVectorMapPlugIn* map) { return map ? map->privado : nullptr; }

#endif
