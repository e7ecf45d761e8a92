// FitxUtils.h - file-system operations on TStringNomFitx names: existence,
// size, copies and backups, folder creation, deletion, renaming, and the
// recursive deletion, counting and listing of folders.
#ifndef VARDA_FILESYS_FITXUTILS_H
#define VARDA_FILESYS_FITXUTILS_H

#include <cstdint>

#include "core/Vector.h"
#include "filesys/StringNomFitx.h"
#include "string/DString.h"

class TMonitorProc;

// All operations are static and never throw. Only Copy reports a message;
// the others answer by their result. Operations the platform lacks are
// present with fixed answers so that callers need no platform tests.
class TFitxUtils {
 public:
  // A regular file that can be opened for reading (asked without opening
  // anything else: a FIFO is never opened).
  static bool Verifica_Existencia_Archivo_1(const TStringNomFitx& name);
  // As above, or, with a container manager installed and the container file
  // present, the member named after its "!" can be opened from it.
  static bool Verifica_Existencia_Archivo(const TStringNomFitx& name);
  static bool Verifica_Existencia_Carpeta(const TStringNomFitx& name, bool folder_of_file) {
    return name.Verifica_Existencia_Carpeta(folder_of_file);
  }
  // Size in bytes (low 32 bits); 0 when it cannot be had.
  static uint32_t Tamanyo_Archivo_b(const TStringNomFitx& name);

  // Copies src to dst. An existing dst is left alone (true) unless
  // `overwrite`. On failure `error` holds "File not found ", "Can't open file
  // to read ", "Can't open file to write ", "Can't read file " or "Can't
  // write file " followed by the name concerned, errno holds the system's
  // error number, and no destination is left behind (when the destination
  // was there before, it is gone). A copy stopped by the monitor answers
  // true and leaves the partial destination: the stop flag tells.
  static bool Copy(const TStringNomFitx& src, const TStringNomFitx& dst, DString& error,
                   bool overwrite, TMonitorProc* monitor = nullptr);
  // Copies src to dst unless dst already has the same size (then nothing is
  // copied, even if the contents differ: the size is the only test). The
  // copy is written beside dst, made durable and renamed over it, and the
  // folder made durable, before true is returned: after a failure (false,
  // errno set) or a power loss dst is the old file or the complete copy.
  static bool Backup_File(const TStringNomFitx& src, const TStringNomFitx& dst);

  // Creates the folder (with `folder_of_file`, the folder of the file) and
  // every missing parent, each with permissions 0700. True when it exists
  // afterwards. A relative name whose first folder is missing gives false.
  static bool Crea_Carpeta(const TStringNomFitx& name, bool folder_of_file);
  static bool Delete_File(const TStringNomFitx& name);
  // An empty folder is removed like a file.
  static bool Remove_Directory(const TStringNomFitx& name);
  static bool Move_File(const TStringNomFitx& src, const TStringNomFitx& dst);
  // Deletes the folder and everything in it. Stops with false at the first
  // entry that cannot be deleted (what was deleted before stays deleted).
  static bool Borra_Carpeta(const TStringNomFitx& name);
  // Number of files in the folder and all its subfolders.
  static int Num_Files_Carpeta(const TStringNomFitx& name);
  // Deletes the files of one folder that match "folder/prefix*.ext": the
  // extension is compared without case, the prefix with case. True when
  // every deletion tried succeeded.
  static bool Delete_Files(const TStringNomFitx& pattern);
  // Appends to `out` the full paths of the entries of `folder` ("." and ".."
  // excluded). `recursive`: subfolders are listed too, depth first, each
  // after its own contents. `files_only`: folders themselves are not added.
  // Hidden (dot) entries are listed like any other. False when the folder
  // does not exist.
  static bool Files_Carpeta(const TStringNomFitx& folder, Vector<TStringNomFitx>& out,
                            bool recursive, bool files_only);

  // Fixed answers of this platform.
  static bool IsFileReadOnly(const TStringNomFitx&) { return false; }
  static bool IsFileHidden(const TStringNomFitx&) { return false; }
  static bool IsFilePermanentDisk(const TStringNomFitx&) { return true; }
  static bool Copy_File(const TStringNomFitx&, const TStringNomFitx&, bool) { return false; }
  static bool Disk_Free(const TStringNomFitx&, long long& free_bytes) {
    free_bytes = 0;
    return false;
  }
  static bool Allow_Disk_Space(const TStringNomFitx&, unsigned) { return false; }
  static void GetLogicalDriveStrings(Vector<DString>&, DString&) {}
  static void CancelCopy(void*) {}
};

#endif
