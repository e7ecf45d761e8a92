// Deleting a line: its record is cut out of the .shp, its entry out of the
// .shx, and every later record renumbered so that numbers stay consecutive.
#include <cstring>
#include <vector>

#include "VardaPlugIn.h"
#include "plugin/MapDelete.h"
#include "plugin/MapIO.h"
#include "plugin/MapRead.h"
#include "plugin/PrivateDataSHP.h"
#include "plugin/ShapeFileLayout.h"
#include "plugin/exports/Export.h"

namespace {

DString Rechazo(int k, const char* que) {
  DString msg("Error: record ");
  msg << k << " cannot be deleted: " << que << ".";
  return msg;
}

class Borrado {
 public:
  Borrado(TPrivateDataSHP& d, int k, TStringPlugIn* err, int bloque, bool literal)
      : d_(d), F_(d.Shp()), X_(d.Shx()), k_(k), n_(d.NumRegistros()), fin_(d.FinShp()),
        err_(err), bloque_(bloque < 8 ? 8 : bloque), literal_(literal) {}

  TResultado Borra();
  const DString& Mensaje() const { return msg_; }

 private:
  long long Offset(long long j) const {  // old byte offset of record j >= k
    return 2LL * shp::GetBigInt(idx_.data(), (j - k_) * shp::kIndexEntrySize);
  }
  TResultado Falla(const DString& m) {
    msg_ = m;
    return TResultado::kFallo;
  }
  TResultado Falla(const char* m) { return Falla(DString(m)); }
  // A later record that does not carry its expected number: the bytes are
  // already moved, and they stay so; the length counts them cut out.
  TResultado FallaRenumerando(long long S) {
    fatal4_ = true;
    d_.RegistroRecortado(S / 2);
    return Falla("Fatal error 4 deleting item in SHP file");
  }
  // Ends the change that `r` says how it went: a write that failed undoes
  // it; anything else is made to stand.
  TResultado Termina(TResultado r);
  bool LeeNumero(TFicheroITV& f, long long pos, int32_t& v) {
    v = 0;
    if (!mapio::Lee(f, pos, &v, 4, msg_)) return false;
    v = shp::Reverse(v);
    return true;
  }
  bool PonNumero(TFicheroITV& f, long long pos, int32_t v) {
    const int32_t be = shp::Reverse(v);
    return mapio::Escribe(f, pos, &be, 4, msg_);
  }
  bool EnOrden() const;
  TResultado Renumera(long long S);
  TResultado RenumeraLiteral(long long S, long long N);
  TResultado Quitado(long long S) {
    d_.RegistroQuitado(S / 2);
    return TResultado::kHecho;
  }

  TPrivateDataSHP& d_;
  TFicheroITV& F_;
  TFicheroITV& X_;
  const int k_;
  const long long n_;
  const long long fin_;
  TStringPlugIn* err_;
  const long long bloque_;
  const bool literal_;
  long long tam_ = 0;               // the .shp's size on disk
  bool fatal4_ = false;
  std::vector<unsigned char> idx_;  // entries k .. n as read from the index
  DString msg_;
};

TResultado Borrado::Borra() {
  if (!d_.PagaMarcaFinal(msg_)) return TResultado::kFallo;
  tam_ = F_.FileSize64();
  // Whatever the files hold, nothing is changed unless every position the
  // deletion will use lies inside them. Records are measured against the
  // file on disk: the counted length may fall a few words short of it.
  if (X_.FileSize64() < shp::IndexEntryPos(n_ + 1))
    return Falla(Rechazo(k_, "the SHX index is shorter than the number of records"));
  if (fin_ > tam_)
    return Falla(Rechazo(k_, "the SHP header gives a length beyond the end of the file"));
  idx_.resize(static_cast<size_t>(n_ - k_ + 1) * shp::kIndexEntrySize);
  if (!mapio::Lee(X_, shp::IndexEntryPos(k_), idx_.data(), static_cast<long long>(idx_.size()),
                  msg_))
    return TResultado::kFallo;
  const long long O = Offset(k_);
  const long long S = 2LL * shp::GetBigInt(idx_.data(), 4) + shp::kRecordHeaderSize;
  if (O < shp::kHeaderSize || S < shp::kRecordHeaderSize || O + S > tam_)
    return Falla(Rechazo(k_, "its SHX entry points outside the SHP file"));
  int32_t numero;
  if (!LeeNumero(F_, O, numero)) return TResultado::kFallo;
  // Deliberate: a wrong number here only warns; the deletion goes on.
  if (numero != k_) EnviaError(err_, "Fatal error 1 deleting item in SHP file");

  if (k_ == n_) {
    // The last record is zero-filled in place; its index entry stays in the
    // file but falls outside the index length written in the header.
    if (!d_.EmpiezaCambio(O, O + S, -1, -1, msg_)) return TResultado::kFallo;
    if (!mapio::Ceros(F_, O, S, msg_)) return Termina(TResultado::kFallo);
    return Termina(Quitado(S));
  }
  const long long N = Offset(k_ + 1);
  if (N < shp::kHeaderSize || N + 4 > tam_)
    return Falla(Rechazo(k_, "the next SHX entry points outside the SHP file"));
  if (!LeeNumero(F_, N, numero)) return TResultado::kFallo;
  if (numero != k_ + 1) return Falla("Fatal error 2 deleting item in SHP file");
  if (N - O != S) return Falla("Fatal error 3 deleting item in SHP file");
  // The checks above are the format's own; before anything moves, every later
  // record must also lie inside the file.
  for (long long j = k_ + 2; j <= n_; j++) {
    const long long o = Offset(j);
    if (o < shp::kHeaderSize || o + 4 > tam_)
      return Falla(Rechazo(k_, "a later SHX entry points outside the SHP file"));
  }
  // The move in order rewrites every byte from O to the end of the records,
  // reading them as they were.
  const bool en_orden = !literal_ && EnOrden();
  if (!d_.EmpiezaCambio(O, -1, shp::IndexEntryPos(k_), -1, msg_, en_orden ? fin_ : -1))
    return TResultado::kFallo;
  return Termina(en_orden ? Renumera(S) : RenumeraLiteral(S, N));
}

TResultado Borrado::Termina(TResultado r) {
  if (r == TResultado::kFallo && !fatal4_) return d_.DeshazCambio();
  DString m;
  if (d_.TerminaCambio(m) == TResultado::kFallo) return Falla(m);
  return r;
}

// Later records that follow one another in file order, each at least a
// record header apart and all inside the moved range, can be renumbered
// while the tail moves.
bool Borrado::EnOrden() const {
  for (long long j = k_ + 1; j <= n_; j++) {
    if (Offset(j) + 4 > fin_) return false;
    if (j > k_ + 1 && Offset(j) < Offset(j - 1) + shp::kRecordHeaderSize) return false;
  }
  return true;
}

// The tail moves towards the start in large blocks; each later record's
// number is checked and rewritten in the block while it passes through
// memory. The result is that of moving first and renumbering after, the
// outcome of a failed check included.
TResultado Borrado::Renumera(long long S) {
  const long long N = Offset(k_ + 1);
  const long long D = S / 2;

  std::vector<unsigned char>& buf = d_.Bloque();
  buf.resize(static_cast<size_t>(bloque_));
  long long j = k_;     // next record to renumber: old number j + 1
  long long fallo = 0;  // record whose check failed, or 0
  for (long long a = N; a < fin_;) {
    long long b = a + bloque_ < fin_ ? a + bloque_ : fin_;
    // A number word cut by the block's end goes whole into the next block.
    if (!fallo) {
      long long jj = j;
      while (jj < n_ && Offset(jj + 1) + 4 <= b) jj++;
      if (jj < n_ && Offset(jj + 1) < b && Offset(jj + 1) > a) b = Offset(jj + 1);
    }
    if (!mapio::Lee(d_.Origen(), a, buf.data(), b - a, msg_)) return TResultado::kFallo;
    while (!fallo && j < n_) {
      const long long o = Offset(j + 1);
      if (o + 4 > b) break;
      if (shp::GetBigInt(buf.data(), o - a) != j + 1) {
        fallo = j;
        break;
      }
      shp::PutBigInt(buf.data(), o - a, static_cast<int32_t>(j));
      j++;
    }
    if (!mapio::Escribe(F_, a - S, buf.data(), b - a, msg_)) return TResultado::kFallo;
    a = b;
  }
  if (!mapio::Ceros(F_, fin_ - S, S, msg_)) return TResultado::kFallo;

  // The index loses entry k; the entries after it move down one place, their
  // offsets lowered as far as the renumbering got, and 8 zero bytes end it.
  const long long hasta = fallo ? fallo : n_ - 1;  // last entry whose offset is lowered
  const size_t cuantos = static_cast<size_t>(n_ - k_) * shp::kIndexEntrySize;
  std::vector<unsigned char> nuevo(cuantos + shp::kIndexEntrySize, 0);
  std::memcpy(nuevo.data(), idx_.data() + shp::kIndexEntrySize, cuantos);
  for (long long e = k_; e <= hasta; e++) {
    const long long at = (e - k_) * shp::kIndexEntrySize;
    shp::PutBigInt(nuevo.data(), at, static_cast<int32_t>(shp::GetBigInt(nuevo.data(), at) - D));
  }
  if (!mapio::Escribe(X_, shp::IndexEntryPos(k_), nuevo.data(),
                      static_cast<long long>(nuevo.size()), msg_))
    return TResultado::kFallo;
  if (fallo) return FallaRenumerando(S);
  return Quitado(S);
}

// Records out of file order: move first, then renumber entry by entry.
TResultado Borrado::RenumeraLiteral(long long S, long long N) {
  if (!mapio::Mueve(F_, N, -S, fin_, msg_) ||
      !mapio::Mueve(X_, shp::IndexEntryPos(k_ + 1), -shp::kIndexEntrySize,
                    shp::IndexEntryPos(n_ + 1), msg_))
    return TResultado::kFallo;
  const long long D = S / 2;
  for (long long j = k_; j <= n_ - 1; j++) {
    const long long pos = shp::IndexEntryPos(j);
    int32_t off, numero;
    if (!LeeNumero(X_, pos, off)) return TResultado::kFallo;
    const long long nuevo = off - D;
    if (!PonNumero(X_, pos, static_cast<int32_t>(nuevo))) return TResultado::kFallo;
    if (nuevo < 0 || 2 * nuevo + 4 > tam_ || !LeeNumero(F_, 2 * nuevo, numero) ||
        numero != j + 1)
      return FallaRenumerando(S);
    if (!PonNumero(F_, 2 * nuevo, static_cast<int32_t>(j))) return TResultado::kFallo;
  }
  return Quitado(S);
}

}  // namespace

int BorraRegistro(TPrivateDataSHP& d, int k, TStringPlugIn* err, int bloque, bool literal) {
  Borrado b(d, k, err, bloque, literal);
  const TResultado r = b.Borra();
  if (r == TResultado::kFallo) EnviaError(err, b.Mensaje().c_str());
  return AlHost(r);
}

VARDA_EXPORT int32_t VardaPlugIn_Delete_Poliline_Vector_Map(TVectorMapPlugIn* map,
                                                            int32_t database_id,
                                                            TStringPlugIn* err) {
  TPrivateDataSHP* d = Estado(map);
  // An id that no map can hold is refused before the records a partial read
  // left uncounted are counted; the count is needed only for the upper bound.
  if (!d || map->crear || database_id < 1) {
    EnviaError(err, "Error in Line.dababaseid");
    return 0;
  }
  if (!LeeAntesDeCambiar(*d, err)) return 0;
  DString msg;
  if (!d->Rechazado() && !d->CompletaRecuento(msg)) {
    EnviaError(err, msg.c_str());
    return 0;
  }
  if (database_id > d->NumRegistros()) {
    EnviaError(err, "Error in Line.dababaseid");
    return 0;
  }
  if (d->Rechazado()) {
    EnviaError(err, "Error: the map was refused when it was read; it is not changed.");
    return 0;
  }
  try {
    if (!Set_Archivo_Modo_Leer_Escribir(*map, Sumidero(err))) return 0;
    return BorraRegistro(*d, database_id, err, kBloqueBorrado, false);
  } catch (...) {
    EnviaError(err, "Error: the line could not be deleted (out of memory).");
    return 0;
  }
}
