// MapJournal.h - the journal beside a map (<map>.shp.jnl) that makes every
// change of the map all or nothing, whether the process is killed, the power
// fails or a write fails half way.
//
// Two kinds:
// - Before a replace or a delete overwrites anything, the bytes it may
//   overwrite (from the changed record to the end of each file, and both
//   headers) are kept in the journal, or, on a map's first change, the fresh
//   ".bak" copies stand for them. Undoing copies them back and cuts both
//   files to their old sizes.
// - A run of appends writes each new record, with the header it leaves,
//   only into the journal: one write a call. The run's end (closing, or any
//   other operation on the map) writes them all into the map. Redoing writes
//   every whole entry again, from the map as it was before the run.
//
// What is made durable when, and why a cut anywhere recovers:
// 1. The journal's header and pieces are written and synced; only then is
//    its closing mark written. A journal without a valid mark is known to be
//    cut short, and the map was not touched yet: it is thrown away.
// 2. Before the map is touched the mark and the journal's name are synced.
// 3. The change (or the run's entries) goes into the map; both files are
//    synced.
// 4. The journal's magic is overwritten with "done" and synced: from here
//    on the change stands. The file is then removed.
// Playing a journal again is harmless: each play starts from the bytes it
// keeps, never from what the map holds.
#ifndef VARDA_PLUGIN_MAPJOURNAL_H
#define VARDA_PLUGIN_MAPJOURNAL_H

#include <cstdint>
#include <vector>

#include "file/FicheroITV.h"
#include "plugin/MapJournalFormat.h"
#include "string/DString.h"

class TDiarioMapa {
 public:
  // What opening a map found beside it.
  enum class TRecuperado {
    kNada,        // no journal, or one whose change had finished
    kDescartado,  // a journal cut short before the map was touched
    kDeshecho,    // an interrupted replace or delete, undone
    kRehecho,     // the appends of an interrupted session, written again
    kSustituido,  // a change made on copies, put in place of the map
  };

  explicit TDiarioMapa(const DString& path_shp);
  ~TDiarioMapa();
  TDiarioMapa(const TDiarioMapa&) = delete;
  TDiarioMapa& operator=(const TDiarioMapa&) = delete;

  const DString& Nombre() const { return nombre_; }
  // A journal is being written or guards a change that has not ended.
  bool Activo() const { return activo_; }
  diario::TClase Clase() const { return clase_; }

  // ------------------------------------------------ a new journal
  // Starts the journal of a change of a map whose files are `shp` and `shx`
  // and that holds `registros` records; for a run of appends, `inicio` is
  // where the first record goes and `creado` says the map is being created.
  bool Empieza(diario::TClase clase, bool creado, int32_t registros, long long inicio,
               TFicheroITV& shp, TFicheroITV& shx, DString& msg);
  // Starts the run of appends of a map being created, before either of its
  // files exists, and makes it durable at once: from here on an interrupted
  // session leaves the new, empty map (both files hold 100 zero bytes) with
  // the run's appends, never half-made files. `sin_fichero`: the journal
  // could not even be made (the folder takes no new file).
  bool EmpiezaMapaNuevo(DString& msg, bool& sin_fichero);
  // Keeps the bytes [desde, hasta) of `f` (hasta < 0: to its end), as they
  // are now; a range that lies past the end keeps nothing.
  bool Guarda(diario::TPieza pieza, TFicheroITV& f, long long desde, long long hasta,
              DString& msg);
  // Lets a fresh ".bak" copy of `tam` bytes stand for the whole file.
  bool GuardaCopia(diario::TPieza pieza, long long tam, DString& msg);
  // Makes the pieces durable, then writes the closing mark. For a replace or
  // delete the mark and the journal's name are made durable as well: the
  // map may be changed when this returns true.
  bool Confirma(DString& msg);

  // ------------------------------------------------ a change on copies
  // A change that would move most of the map is made on copies of both
  // files (MAP.shp.jnlcopy, MAP.shx.jnlcopy) that replace the map when it ends: each
  // byte is then written and made durable once, where keeping the bytes it
  // overwrites would write them twice. Opens `shp` and `shx` on the copies.
  // The .shp's bytes [libre_desde, libre_hasta) are not copied: the change
  // writes them all, reading the map through Origen().
  bool EmpiezaSustitucion(TFicheroITV& shp, TFicheroITV& shx, long long libre_desde,
                          long long libre_hasta, DString& msg);
  // The map's .shp as it was before the change on copies (else `shp`).
  TFicheroITV& Origen(TFicheroITV& shp) { return origen_.Abierto() ? origen_ : shp; }
  bool Sustituyendo() const { return sustituyendo_; }
  // Makes the copies durable, then a journal that names them (the change
  // stands from here), renames them over the map and opens `shp` and `shx`
  // on it. The journal stays until the new names are known durable
  // (CierraPendiente). On failure Sustituyendo() tells whether the map is
  // still as before (the copies are then undone by DeshazSustitucion).
  bool TerminaSustitucion(TFicheroITV& shp, TFicheroITV& shx, DString& msg);
  // Removes the copies and opens `shp` and `shx` on the map, untouched.
  bool DeshazSustitucion(TFicheroITV& shp, TFicheroITV& shx, DString& msg);
  // Makes the folder durable and removes the journal of a replacement that
  // ended; done before any other journal is started and on closing.
  bool CierraPendiente(DString& msg);

  // ------------------------------------------------ a run of appends
  // One appended record (`n` bytes, its 8-byte header first) that goes at
  // `offset` of the .shp, with the 100-byte header the map then has. One
  // write; on failure the journal is as before the call.
  bool Anyade(const unsigned char* registro, size_t n, long long offset,
              const unsigned char* cabecera, DString& msg);

  // ------------------------------------------------ the end of a change
  // Writes what the journal holds into the map's open files: the map as it
  // was before a replace or delete, or the map with every appended record.
  // The journal is made durable first. When a run's records cannot all be
  // written, the files are put back as they were before the run (the
  // journal still holds the run, for a later try or the next opening).
  bool Aplica(TFicheroITV& shp, TFicheroITV& shx, DString& msg);
  // The change is complete: both files are synced, the journal is marked
  // done and removed.
  bool Termina(TFicheroITV& shp, TFicheroITV& shx, DString& msg);
  // A journal whose mark was never made durable: the map is untouched, the
  // journal is removed.
  void Abandona();
  // Leaves the journal on the disk for the next opening to play, and
  // forgets it here.
  void Deja();

  // ------------------------------------------------ opening a map
  // Plays a journal left beside the map by an interrupted session. False
  // with `msg` when one had to be played and could not be.
  static bool Recupera(const DString& path_shp, TRecuperado& que, DString& msg);
  // The name of the copy of `nombre` that a change on copies writes.
  static DString NombreCopia(const char* nombre);

 private:
  bool EscribeEnDiario(const void* buf, long long n, DString& msg);
  bool AbreNuevo(DString& msg);
  bool EscribeCabecera(diario::TClase clase, bool creado, long long tam_shp, long long tam_shx,
                       int32_t registros, long long inicio, DString& msg);
  bool EscribeMarca(DString& msg);
  bool SincronizaDiario(DString& msg);

  DString path_;
  DString nombre_;
  TFicheroITV f_;
  bool activo_ = false;
  diario::TClase clase_ = diario::kDeshacer;
  bool carpeta_ = false;
  bool sustituyendo_ = false;  // the change goes to the copies
  bool pendiente_ = false;     // a replacement's journal waits for the folder's sync     // the map's files are new: their names need syncing
  long long fin_ = 0;        // bytes written so far
  uint32_t crc_meta_ = 0;    // over the header and the piece heads
  uint32_t piezas_ = 0;
  std::vector<unsigned char> buf_;
  DString buf_msg_;  // the message of a second failure, not reported
  TFicheroITV origen_;  // the map's .shp while a change is made on copies
};

#endif
