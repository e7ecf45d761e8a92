// Deleting a line: its record is cut out of the .shp, its entry out of the
// .shx, and every later record renumbered so that numbers stay consecutive.
#include <cstring>
#include <vector>

#include "VardaPlugIn.h"
#include "plugin/MapDelete.h"
#include "plugin/PrivateDataSHP.h"
#include "plugin/ShapeFileLayout.h"
#include "plugin/exports/Export.h"

namespace {

void Rechaza(TStringPlugIn* err, int k, const char* que) {
  DString msg("Error: record ");
  msg << k << " cannot be deleted: " << que << ".";
  EnviaError(err, msg.c_str());
}

int32_t LeeNumero(TFicheroITV& f, long long pos) {
  int32_t v = 0;
  f.Posicionate64(pos);
  f.LeeTokenBin(&v, 4, nullptr, -1);
  return shp::Reverse(v);
}

void PonNumero(TFicheroITV& f, long long pos, int32_t v) {
  int32_t be = shp::Reverse(v);
  f.Posicionate64(pos);
  f.PonTokenBin(&be, 4, nullptr, -1);
}

void Ceros(TFicheroITV& f, long long pos, long long n) {
  std::vector<unsigned char> ceros(static_cast<size_t>(n), 0);
  f.Posicionate64(pos);
  if (n > 0) f.PonTokenBin(ceros.data(), static_cast<int>(n), nullptr, -1);
}

class Borrado {
 public:
  Borrado(TPrivateDataSHP& d, int k, TStringPlugIn* err, int bloque, bool literal)
      : d_(d), k_(k), n_(d.num_registros), fin_(2LL * d.long_shp_words), err_(err),
        bloque_(bloque < 8 ? 8 : bloque), literal_(literal) {}

  int Borra();

 private:
  long long Offset(long long j) const {  // old byte offset of record j >= k
    return 2LL * shp::GetBigInt(idx_.data(), (j - k_) * shp::kIndexEntrySize);
  }
  bool Creciente() const;
  int Renumera(long long S);
  int RenumeraLiteral(long long S, long long N);
  int Termina() {
    d_.num_registros = static_cast<int>(n_ - 1);
    d_.modificado = true;
    return 1;
  }

  TPrivateDataSHP& d_;
  const int k_;
  const long long n_;
  const long long fin_;
  TStringPlugIn* err_;
  const long long bloque_;
  const bool literal_;
  std::vector<unsigned char> idx_;  // entries k .. n as read from the index
};

int Borrado::Borra() {
  d_.Asienta();
  TFicheroITV& F = d_.shp;
  TFicheroITV& X = d_.shx;
  // Whatever the files hold, nothing is changed unless every position the
  // deletion will use lies inside them.
  if (X.FileSize64() < shp::IndexEntryPos(n_ + 1)) {
    Rechaza(err_, k_, "the SHX index is shorter than the number of records");
    return 0;
  }
  if (fin_ > F.FileSize64()) {
    Rechaza(err_, k_, "the SHP header gives a length beyond the end of the file");
    return 0;
  }
  idx_.resize(static_cast<size_t>(n_ - k_ + 1) * shp::kIndexEntrySize);
  X.Posicionate64(shp::IndexEntryPos(k_));
  if (!X.LeeTokenBin(idx_.data(), static_cast<int>(idx_.size()), nullptr, -1)) {
    Rechaza(err_, k_, "the SHX index cannot be read");
    return 0;
  }
  const long long O = Offset(k_);
  const long long S = 2LL * shp::GetBigInt(idx_.data(), 4) + shp::kRecordHeaderSize;
  if (O < shp::kHeaderSize || S < shp::kRecordHeaderSize || O + S > fin_) {
    Rechaza(err_, k_, "its SHX entry points outside the SHP file");
    return 0;
  }
  // A wrong number here only warns; the deletion goes on.
  if (LeeNumero(F, O) != k_) EnviaError(err_, "Fatal error 1 deleting item in SHP file");

  if (k_ == n_) {
    // The last record is zero-filled in place; its index entry stays in the
    // file but falls outside the index length written on closing.
    Ceros(F, O, S);
    d_.long_shp_words -= static_cast<int>(S / 2);
    return Termina();
  }
  const long long N = Offset(k_ + 1);
  if (N < shp::kHeaderSize || N + 4 > fin_) {
    Rechaza(err_, k_, "the next SHX entry points outside the SHP file");
    return 0;
  }
  if (LeeNumero(F, N) != k_ + 1) {
    EnviaError(err_, "Fatal error 2 deleting item in SHP file");
    return 0;
  }
  if (N - O != S) {
    EnviaError(err_, "Fatal error 3 deleting item in SHP file");
    return 0;
  }
  // The checks above are the format's own; before anything moves, every later
  // record must also lie inside the file.
  for (long long j = k_ + 2; j <= n_; j++) {
    const long long o = Offset(j);
    if (o < shp::kHeaderSize || o + 4 > fin_) {
      Rechaza(err_, k_, "a later SHX entry points outside the SHP file");
      return 0;
    }
  }
  return !literal_ && Creciente() ? Renumera(S) : RenumeraLiteral(S, N);
}

// Later records that follow one another in file order, each at least a
// record header apart, can be renumbered while the tail moves.
bool Borrado::Creciente() const {
  for (long long j = k_ + 2; j <= n_; j++)
    if (Offset(j) < Offset(j - 1) + shp::kRecordHeaderSize) return false;
  return true;
}

// The tail moves towards the start in large blocks; each later record's
// number is checked and rewritten in the block while it passes through
// memory. The result is that of moving first and renumbering after, the
// outcome of a failed check included.
int Borrado::Renumera(long long S) {
  TFicheroITV& F = d_.shp;
  const long long N = Offset(k_ + 1);
  const long long D = S / 2;
  d_.long_shp_words -= static_cast<int>(D);

  std::vector<unsigned char>& buf = d_.bloque;
  buf.resize(static_cast<size_t>(bloque_));
  long long j = k_;            // next record to renumber: old number j + 1
  long long fallo = 0;         // record whose check failed, or 0
  for (long long a = N; a < fin_;) {
    long long b = a + bloque_ < fin_ ? a + bloque_ : fin_;
    // A number word cut by the block's end goes whole into the next block.
    if (!fallo) {
      long long jj = j;
      while (jj < n_ && Offset(jj + 1) + 4 <= b) jj++;
      if (jj < n_ && Offset(jj + 1) < b && Offset(jj + 1) > a) b = Offset(jj + 1);
    }
    F.Posicionate64(a);
    F.LeeTokenBin(buf.data(), static_cast<int>(b - a), nullptr, -1);
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
    F.Posicionate64(a - S);
    F.PonTokenBin(buf.data(), static_cast<int>(b - a), nullptr, -1);
    a = b;
  }
  Ceros(F, fin_ - S, S);

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
  d_.shx.Posicionate64(shp::IndexEntryPos(k_));
  d_.shx.PonTokenBin(nuevo.data(), static_cast<int>(nuevo.size()), nullptr, -1);

  if (fallo) {
    EnviaError(err_, "Fatal error 4 deleting item in SHP file");
    return 0;
  }
  return Termina();
}

// Records out of file order: move first, then renumber entry by entry.
int Borrado::RenumeraLiteral(long long S, long long N) {
  TFicheroITV& F = d_.shp;
  TFicheroITV& X = d_.shx;
  F.MoveBytesEnd(static_cast<int>(N), static_cast<int>(-S), 1024, static_cast<int>(fin_));
  X.MoveBytesEnd(static_cast<int>(shp::IndexEntryPos(k_ + 1)), -shp::kIndexEntrySize, 1024,
                 static_cast<int>(shp::IndexEntryPos(n_ + 1)));
  const long long D = S / 2;
  d_.long_shp_words -= static_cast<int>(D);
  for (long long j = k_; j <= n_ - 1; j++) {
    const long long pos = shp::IndexEntryPos(j);
    const long long off = LeeNumero(X, pos) - D;
    PonNumero(X, pos, static_cast<int32_t>(off));
    if (LeeNumero(F, 2 * off) != j + 1) {
      EnviaError(err_, "Fatal error 4 deleting item in SHP file");
      return 0;
    }
    PonNumero(F, 2 * off, static_cast<int32_t>(j));
  }
  return Termina();
}

}  // namespace

int BorraRegistro(TPrivateDataSHP& d, int k, TStringPlugIn* err, int bloque, bool literal) {
  Borrado b(d, k, err, bloque, literal);
  return b.Borra();
}

VARDA_EXPORT int32_t VardaPlugIn_Delete_Poliline_Vector_Map(TVectorMapPlugIn* map,
                                                            int32_t database_id,
                                                            TStringPlugIn* err) {
  TPrivateDataSHP* d = Estado(map);
  if (!d || map->crear || database_id < 1 || database_id > d->num_registros) {
    EnviaError(err, "Error in Line.dababaseid");
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
