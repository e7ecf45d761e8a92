// StringNomFitx.h - a DString that holds a file name ("/" separated) and knows
// how to take it apart and put it together: folder, name, extension, a
// sub-file behind "!", volume names, and a set of well-known base folders.
#ifndef VARDA_FILESYS_STRINGNOMFITX_H
#define VARDA_FILESYS_STRINGNOMFITX_H

#include "string/DString.h"

class TMonitorProc;

// What TStringNomFitx::FileCrc32 does with the CRC once computed. Any value
// other than ADD and CHECK only computes it.
enum FileCheckAction {
  FILECHECK_GENERATE = 0,
  FILECHECK_ADD = 1,    // append the CRC to the file
  FILECHECK_CHECK = 2,  // compare with the CRC stored in the last four bytes
};

class TStringNomFitx : public DString {
 public:
  TStringNomFitx() = default;
  TStringNomFitx(const TStringNomFitx& o) : DString(o) {}
  TStringNomFitx(const char* s) : DString(s) {}
  TStringNomFitx(const DString& s) : DString(s) {}
  // The flag is accepted for source compatibility and has no effect.
  TStringNomFitx(bool, const char* s) : DString(s) {}

  TStringNomFitx& operator=(const TStringNomFitx& o) {
    DString::operator=(o);
    return *this;
  }
  TStringNomFitx& operator=(const DString& o) {
    DString::operator=(o);
    return *this;
  }
  TStringNomFitx& operator=(const CDString& o) {
    DString::operator=(o);
    return *this;
  }
  TStringNomFitx& operator=(const char* s) {
    DString::operator=(s);
    return *this;
  }

  // ------------------------------------------------------------ building
  void Set_Path_y_Fitx(const char* folder, const char* name);
  void Set_Path(const char* folder);
  void Set_nom_fitx_ext(const char* name);
  void Set_nom_fitx_sinext(const char* stem);
  void StrcatNom(const char* suffix);
  void Cambia_Ext(const char* ext);
  void Elimina_Ultima_Extension();
  void Anyade_Ext_sinohay(const char* ext);
  void Anyade_dir_sinotiene(const char* folder);
  bool Anyade_ConPathFitx(const TStringNomFitx& other);
  void Set_Path_del_Fitx(const TStringNomFitx& other);
  bool Separa_Parametros(DString& params);
  void Set_Path_Volume(DString volume);
  void cd(const char* dir, bool keep_name);

  // ------------------------------------------------------------ base folders
  bool Set_Path_Exe();
  bool Set_Path_ExeF();
  bool Set_Path_AppData();
  void Set_Path_Exe_o_AppData();
  void Set_Path_Docs();
  bool Set_Path_Temp();

  static void Set_this_Path_Exe(const char* exe_path);
  static void Set_this_Path_de_AppData(const char* folder);
  static void Set_this_Path_Main_App(const char* folder);
  static void Set_this_Path_MyDocuments(const char* folder);
  static DString Ret_Path_Exe();
  static DString Ret_Path_AppData();
  static void DeleteGlobals();

  // ------------------------------------------------------------ taking apart
  DString npath() const;
  DString Obten_Carpeta() const;
  char Obten_Unidad_c() const;
  const char* nom_fitx_ext() const;
  DString nom_fitx_sinext() const;
  DString extension() const;
  void Separa_Path_Fitx(DString& folder, DString& name) const;
  bool es_extension(const char* ext) const;
  DString extension_intermedia() const;
  bool es_extension_intermedia(const char* ext) const;
  TStringNomFitx MainFile() const;
  TStringNomFitx SubFile() const;
  DString ExtensionInet() const;
  bool Separa_Carpeta_Padre_y_Esta(TStringNomFitx& parent, DString& name);
  bool Path_Absoluto() const;
  DString Obten_Unidad() const;
  DString Obten_Unidad_Formateada() const;
  DString Obten_Unidad_Typo() const;
  bool Es_CDROM() const { return false; }
  bool es_dir_raiz() const;
  bool Es_Archivo_Hijo(const TStringNomFitx& child, int& length) const;
  bool Resta_Path(const char* base);
  bool Quita_Path_ifposible(const TStringNomFitx& base);
  bool Verifica_Existencia_Carpeta(bool folder_of_file) const;

  // ------------------------------------------------------------ comparison
  // File names compare without regard to ASCII case.
  bool operator==(const TStringNomFitx& o) const;
  bool operator!=(const TStringNomFitx& o) const { return !(*this == o); }
  bool operator<(const TStringNomFitx& o) const;
  bool Igual_A(const TStringNomFitx& other, bool exact) const;

  // ------------------------------------------------------------ separators
  void Set_dir_carac_linux() { Sustituye('\\', '/'); }
  void Set_dir_carac_win() { Sustituye('/', '\\'); }
  using DString::Arregla_dir_carac;

  // ------------------------------------------------------------ stored names
  void CodificaNomFitx();
  void DescodificaNomFitx();

  // ------------------------------------------------------------ CRC-32
  // CRC-32 (IEEE 802.3) of the bytes [from, to) of the named file; a negative
  // `to` means the end of the file. See FileCheckAction for what is done
  // with it. False when the file cannot be opened, the range is bad or a
  // read fails; with FILECHECK_CHECK also when the stored value differs.
  bool FileCrc32(unsigned& crc, FileCheckAction action, TMonitorProc* monitor = nullptr,
                 long long from = 0, long long to = -1) const;

  // ------------------------------------------------------------ statics
  static DString dir_exe;
  static DString nom_exe;
  static DString app_path;
  static DString global_path_app_data;
  static DString dir_mydocs;
  static DString main_app_path;
  static DString CurrentDir;
  // Placeholder for the main application folder in stored names.
  static const char* VardaGPSApp;
};

#endif
