// The file utilities that read or write file contents, through the file
// object so that container members and the read cache behave as elsewhere.
#include <sys/stat.h>

#include "file/FicheroITV.h"
#include "file/MultipleFiles.h"
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
  TFicheroITV f;
  if (!f.Abre(name, kModoLeerBin, nullptr)) return 0;
  uint32_t size = static_cast<uint32_t>(f.FileSize64());
  f.CierraEx(true, nullptr);
  return size;
}

bool TFitxUtils::Copy(const TStringNomFitx& src, const TStringNomFitx& dst, DString& error,
                      bool overwrite, TMonitorProc* monitor) {
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

  if (!overwrite && Verifica_Existencia_Archivo(dst)) return true;
  if (!Verifica_Existencia_Archivo(src)) {
    error = "File not found ";
    error += src;
    return false;
  }
  // Opening the destination would truncate the source: a file copied onto
  // itself is already what was asked for.
  if (same_file(src, dst)) return true;

  TFicheroITV in;
  if (!in.Abre(src, kModoLeerBin, nullptr)) {
    error = "Can't open file to read ";
    error += src;
    return false;
  }
  TFicheroITV out;
  if (!out.Abre(dst, kModoEscribirBin, nullptr)) {
    error = "Can't open file to write ";
    error += dst;
    in.CierraEx(true, nullptr);
    return false;
  }
  long long size = in.FileSize64();
  bool large = size > 1000000 || size > 0xFFFFFFFFLL;
  // A copy stopped through the monitor still answers true, as callers of
  // this utility have always been told; they look at the monitor's stop flag
  // to know that the destination holds only part of the source.
  in.CopyFileData(out, size, monitor, large);
  in.CierraEx(true, nullptr);
  out.CierraEx(true, nullptr);
  return true;
}

bool TFitxUtils::Backup_File(const TStringNomFitx& src, const TStringNomFitx& dst) {
  if (Verifica_Existencia_Archivo(dst) && Tamanyo_Archivo_b(dst) == Tamanyo_Archivo_b(src))
    return true;
  DString error;
  return Copy(src, dst, error, true, nullptr);
}
