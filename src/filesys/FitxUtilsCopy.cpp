// The file utilities that read or write file contents, through the file
// object so that container members and the read cache behave as elsewhere.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64
#endif

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "file/FicheroITV.h"
#include "file/MultipleFiles.h"
#include "file/SistemaFicheros.h"
#include "filesys/FitxUtils.h"
#include "thread/MonitorProc.h"

namespace {

constexpr int kModoLeerBin = MODO_LEER | MODO_BINARIO;         // 17
constexpr int kModoEscribirBin = MODO_ESCRIBIR | MODO_BINARIO;  // 18

// Both names lead to the same file on disk (same device and inode).
bool same_file(const TStringNomFitx& a, const TStringNomFitx& b) {
  struct stat sa, sb;
  if (stat(a.c_str(), &sa) != 0 || stat(b.c_str(), &sb) != 0) return false;
  return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

// Sets the message and errno of a failed copy; false.
bool fallo(DString& error, const char* texto, const TStringNomFitx& name, int e) {
  error = texto;
  error += name;
  errno = e;
  return false;
}

// A failure after the destination was created: both files are closed, the
// destination (only ever a regular file: a device named as destination is
// not ours to remove) is removed, and the caller's errno is the failure's.
bool abandona(TFicheroITV& in, TFicheroITV& out, const TStringNomFitx& dst, DString& error,
              const char* texto, const TStringNomFitx& name, int e) {
  in.CierraEx(true, nullptr);
  out.CierraEx(true, nullptr);
  TSistemaFicheros& sf = SistemaFicheros();
  if (sf.Tipo(dst.c_str()) == TSistemaFicheros::kRegular) sf.Borra(dst.c_str());
  return fallo(error, texto, name, e);
}

// Copies src to dst. `durable`: the copy is written under dst + ".$$$",
// made durable, renamed to dst and the folder made durable, so that dst is
// either the old file or the complete copy, also after a power loss.
bool copia(const TStringNomFitx& src, const TStringNomFitx& dst, DString& error,
           bool overwrite, TMonitorProc* monitor, bool durable) {
  if (monitor) {
    DString t("Copy file ");
    t += dst.nom_fitx_ext();
    monitor->SetTexto(t.c_str());
  }
  // The monitor's text is cleared on every way out, not only after a copy.
  struct ClearText {
    TMonitorProc* m;
    ~ClearText() {
      if (m) m->SetTexto("");
    }
  } clear_text{monitor};

  if (!overwrite && TFitxUtils::Verifica_Existencia_Archivo(dst)) return true;
  if (!TFitxUtils::Verifica_Existencia_Archivo(src))
    return fallo(error, "File not found ", src, ENOENT);
  // Opening the destination would truncate the source: a file copied onto
  // itself is already what was asked for.
  if (same_file(src, dst)) return true;

  TFicheroITV in;
  if (!in.Abre(src, kModoLeerBin, nullptr))
    return fallo(error, "Can't open file to read ", src, in.ErrnoSistema());
  TStringNomFitx escrito(dst);
  if (durable) escrito += ".$$$";
  TFicheroITV out;
  if (!out.Abre(escrito, kModoEscribirBin, nullptr)) {
    int e = out.ErrnoSistema();
    in.CierraEx(true, nullptr);
    return fallo(error, "Can't open file to write ", dst, e);
  }
  long long size = in.FileSize64();
  bool large = size > 1000000 || size > 0xFFFFFFFFLL;
  if (!in.CopyFileData(out, size, monitor, large)) {
    // A copy stopped through the monitor still answers true, as callers of
    // this utility have always been told; they look at the monitor's stop
    // flag to know that the destination holds only part of the source.
    if (in.ErrnoSistema() == ECANCELED && !durable) {
      in.CierraEx(true, nullptr);
      out.CierraEx(true, nullptr);
      return true;
    }
    if (out.ErrnoSistema() != 0)
      return abandona(in, out, escrito, error, "Can't write file ", dst, out.ErrnoSistema());
    // A source that ends before its size was read has changed under us.
    int e = in.ErrnoSistema() != 0 ? in.ErrnoSistema() : EIO;
    return abandona(in, out, escrito, error, "Can't read file ", src, e);
  }
  if (durable && !out.Sincroniza())
    return abandona(in, out, escrito, error, "Can't write file ", dst, out.ErrnoSistema());
  in.CierraEx(true, nullptr);
  if (!out.CierraEx(true, nullptr))
    return abandona(in, out, escrito, error, "Can't write file ", dst, out.ErrnoSistema());
  if (durable) {
    TSistemaFicheros& sf = SistemaFicheros();
    if (!sf.Renombra(escrito.c_str(), dst.c_str()) || !sf.SincronizaCarpeta(dst.c_str()))
      return abandona(in, out, escrito, error, "Can't write file ", dst, errno);
  }
  return true;
}

}  // namespace

bool TFitxUtils::Verifica_Existencia_Archivo(const TStringNomFitx& name) {
  if (Verifica_Existencia_Archivo_1(name)) return true;
  if (!vMultipleFiles) return false;
  if (!Verifica_Existencia_Archivo_1(name.MainFile())) return false;
  // The manager answers through the file layer: opening the full name for
  // reading asks it whether the container holds the member.
  TFicheroITV f;
  bool ok = f.Abre(name, kModoLeerBin, nullptr);
  f.CierraEx(true, nullptr);
  return ok;
}

uint32_t TFitxUtils::Tamanyo_Archivo_b(const TStringNomFitx& name) {
  long long t = SistemaFicheros().Tamanyo(name.c_str());
  if (t >= 0) return static_cast<uint32_t>(t);
  // A member of a container is measured by opening it through the manager.
  if (!vMultipleFiles || std::strchr(name.c_str(), '!') == nullptr) return 0;
  TFicheroITV f;
  if (!f.Abre(name, kModoLeerBin, nullptr)) return 0;
  uint32_t size = static_cast<uint32_t>(f.FileSize64());
  f.CierraEx(true, nullptr);
  return size;
}

bool TFitxUtils::Copy(const TStringNomFitx& src, const TStringNomFitx& dst, DString& error,
                      bool overwrite, TMonitorProc* monitor) {
  return copia(src, dst, error, overwrite, monitor, false);
}

bool TFitxUtils::Backup_File(const TStringNomFitx& src, const TStringNomFitx& dst) {
  TSistemaFicheros& sf = SistemaFicheros();
  if (sf.Tipo(dst.c_str()) == TSistemaFicheros::kRegular &&
      sf.Tamanyo(dst.c_str()) == sf.Tamanyo(src.c_str()))
    return true;
  DString error;
  return copia(src, dst, error, true, nullptr, true);
}
