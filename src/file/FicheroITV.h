// FicheroITV.h - the file object through which the whole system reads and
// writes: typed binary and text streaming, a 64 KiB read cache, in-place moves
// of bytes, over an interchangeable byte backend.
#ifndef VARDA_FILE_FICHEROITV_H
#define VARDA_FILE_FICHEROITV_H

#include <cstring>

#include "file/FicheroITVBase.h"
#include "filesys/StringNomFitx.h"
#include "string/DString.h"

class TMonitorProc;
template <class T>
class Vector;

// Open mode bits. The values are a contract with every caller.
constexpr int MODO_LEER = 0x0001;        // read
constexpr int MODO_ESCRIBIR = 0x0002;    // write (creates or truncates)
constexpr int MODO_ANYADIR = 0x0004;     // append
constexpr int MODO_TEXTO = 0x0008;       // typed values as text tokens
constexpr int MODO_BINARIO = 0x0010;     // typed values as raw little-endian bytes
constexpr int MODO_VERSION = 0x0040;     // a 32-bit version is read on opening
constexpr int MODO_ACTUALIZAR = 0x0080;  // update: read and write
constexpr int MODO_TEMPORAL = 0x0100;    // the file lives under its name + ".$$$"
constexpr int MODO_NUEVO = 0x0200;       // kept in the mode, tested by nobody
constexpr int MODO_MULTIPLE = 0x0400;    // the file is a member of a container
constexpr int MODO_CACHE = 0x1000;       // read through the cache
constexpr int MODO_SIN_BOM = 0x4000;     // no byte-order mark on new text files

// Observer called by PonTokenBin before every write.
typedef void (*THookEscrituraITV)(void* contexto, const void* buf, int n);

class TFicheroITV {
 public:
  TFicheroITV();
  // Opens at once; throws "Error al abrir archivo" when the open fails.
  TFicheroITV(const TStringNomFitx& name, int mode);
  virtual ~TFicheroITV();
  TFicheroITV(const TFicheroITV&) = delete;
  TFicheroITV& operator=(const TFicheroITV&) = delete;

  // ------------------------------------------------ virtual byte operations
  // One byte past the push-back buffer, as a signed char; 0 when none.
  virtual int fgetc_dir();
  virtual bool Posicionate(int pos);
  virtual int PosActual();
  virtual long long PosActual64();
  virtual int FileSize();
  virtual bool eof();
  virtual bool PonTokenBin(const void* buf, int n, TMonitorProc* monitor = nullptr,
                           int chunk = -1);
  virtual bool LeeTokenBin(void* buf, int n, TMonitorProc* monitor = nullptr,
                           int chunk = -1);

  // ------------------------------------------------ opening and closing
  bool Abre(const TStringNomFitx& name, int mode, DString* err);
  // The first argument is ignored. 1, or 0 when the backend's close failed
  // (ErrnoSistema then tells why; `err`, when given, holds the message).
  int CierraEx(bool = true, DString* err = nullptr);
  bool Abierto() const;
  bool IsFilePersistent() const { return !nombre.IsEmpty(); }
  // Replace the not-found and write-error formats; the texts are not copied.
  static void SetErrMsgs(const char* no_encontrado, const char* error_escritura);
  static void ComposeStringError(DString* out, bool writing, const TStringNomFitx& name,
                                 const char* extra);
  static void DeleteGlobals() {}
  int Flush();
  bool SetEndOfFile();
  // The operating system's error number of the last operation of this object
  // that failed (its backend's, or the object's own: EBADF when closed,
  // EINVAL for a request that cannot be met). 0 when that failure was no
  // system error, such as data that ended before a read was complete.
  // Successful operations leave it as it was.
  int ErrnoSistema() const { return errno_sistema; }
  // Makes what was written durable (fdatasync on disk). A memory file is
  // as durable as it gets: true.
  bool Sincroniza();
  // Sets the file's length to `largo`; the position does not move. Not for
  // memory files or container members (false, EINVAL).
  bool Trunca64(long long largo);
  void Crea_Bak(const TStringNomFitx&, bool) const {}
  void SetOffsets(long long offset, long long longitud) {
    offset_sub = offset;
    long_sub = longitud;
  }

  // ------------------------------------------------ cache and positioning
  void SetCache(bool on);
  bool LoadCache(long long pos);
  bool PosicionateCache(long long pos);
  bool Posicionate64(long long pos);
  long long FileSize64();
  void Skip(int n);
  // The next n bytes when they lie wholly inside the loaded span of the read
  // cache: a pointer into the span, valid until the next read or seek, with
  // the position moved past them exactly as LeeTokenBin would move it. Null
  // when they are not there (cache off, or outside the span): the caller then
  // reads them with LeeTokenBin, which loads spans as needed.
  const char* LeeEnSpan(int n) {
    if (!cache || es_memoria || long_fichero_cache < 0 || base_cache != ini_cache ||
        off_cache < 0 || n < 0 || static_cast<long long>(off_cache) + n > fin_cache - ini_cache)
      return nullptr;
    const char* p = cache + off_cache;
    off_cache += n;
    return p;
  }
  // The loaded span from the current position on, without moving: a pointer
  // and, in `n`, how many bytes follow; null when there is no span to read
  // in place. A reader that walks them itself then moves past what it used
  // with SaltaEnSpan, which must stay within those n bytes.
  const char* VistaSpan(long& n) const {
    if (!cache || es_memoria || long_fichero_cache < 0 || base_cache != ini_cache || off_cache < 0)
      return nullptr;
    n = static_cast<long>(fin_cache - ini_cache) - off_cache;
    return n >= 0 ? cache + off_cache : nullptr;
  }
  void SaltaEnSpan(long n) { off_cache += n; }

  // ------------------------------------------------ typed streaming
  TFicheroITV& operator<<(char v);
  TFicheroITV& operator<<(unsigned char v);
  TFicheroITV& operator<<(bool v);
  TFicheroITV& operator<<(short v);
  TFicheroITV& operator<<(unsigned short v);
  TFicheroITV& operator<<(int v);
  TFicheroITV& operator<<(unsigned int v);
  TFicheroITV& operator<<(long v);
  TFicheroITV& operator<<(unsigned long v);
  TFicheroITV& operator<<(long long v);
  TFicheroITV& operator<<(float v);
  TFicheroITV& operator<<(double v);
  TFicheroITV& operator<<(const char* s);

  TFicheroITV& operator>>(char& v) { return lee_rapido(&v, 1) ? *this : lee_char(v); }
  TFicheroITV& operator>>(unsigned char& v) {
    return lee_rapido(&v, 1) ? *this : lee_uchar(v);
  }
  TFicheroITV& operator>>(bool& v);
  TFicheroITV& operator>>(short& v) { return lee_rapido(&v, 2) ? *this : lee_short(v); }
  TFicheroITV& operator>>(unsigned short& v) {
    return lee_rapido(&v, 2) ? *this : lee_ushort(v);
  }
  TFicheroITV& operator>>(int& v) { return lee_rapido(&v, 4) ? *this : lee_int(v); }
  TFicheroITV& operator>>(unsigned int& v) {
    return lee_rapido(&v, 4) ? *this : lee_uint(v);
  }
  TFicheroITV& operator>>(unsigned long& v);
  TFicheroITV& operator>>(long long& v) { return lee_rapido(&v, 8) ? *this : lee_ll(v); }
  TFicheroITV& operator>>(float& v) { return lee_rapido(&v, 4) ? *this : lee_float(v); }
  TFicheroITV& operator>>(double& v) {
    return lee_rapido(&v, 8) ? *this : lee_double(v);
  }
  TFicheroITV& operator>>(DString& s);

  int SetVersion(int v);
  int GetVersion() const { return version; }
  void Guarda_BOM(int codepage);
  bool SetKey(const char* key, int len);

  // ------------------------------------------------ text
  int fgetc();
  void Unget(char c);
  void Unget(const char* s);
  void Skip(const char* conjunto);
  void PonTokenText(const char* s);
  int fprintf(const char* format, ...) __attribute__((format(printf, 2, 3)));
  int get_linea(DString& s, int max);
  bool get_linea_CR(DString& s);
  void get_dato_texto(DString& s);
  bool Lee_Str_Hasta(DString& s, char tope);
  bool Lee_Str_Hasta_alguno(DString& s, const char* topes, char& encontrado);
  void Lee_Todo_Str(DString& s);
  bool Lee_BOM();
  void TransformStrCodepage(DString& s);

  // ------------------------------------------------ in-place editing, copies
  // Moves [desde, fin) by `desplazamiento` (fin < 0: the end of the file)
  // in blocks of `tam_bloque`; results of the reads and writes are not
  // looked at. Always 1.
  int MoveBytesEnd(int desde, int desplazamiento, int tam_bloque, int fin);
  // The same move in 64-bit positions, checked: false at the first seek,
  // read or write that fails (ErrnoSistema tells why), and false without
  // touching the file when the range does not lie inside it or would move
  // before its start (EINVAL). A move towards the start zero-fills the last
  // -desplazamiento bytes before `fin`; the file is never shortened.
  bool MoveBytesEnd64(long long desde, long long desplazamiento, int tam_bloque,
                      long long fin);
  // False when either file is closed, a read or write fails (ErrnoSistema of
  // the file that failed tells why), or the monitor asks to stop (this
  // file's ErrnoSistema is then ECANCELED).
  bool CopyFileData(TFicheroITV& destino, long long n, TMonitorProc* monitor,
                    bool bloque_grande);
  bool CreateDuplicate(TFicheroITV& origen, TStringNomFitx& nombre);
  bool CreateDuplicateWithData(TFicheroITV& origen, TStringNomFitx& nombre, char* datos,
                               int n);

  // ------------------------------------------------ containers
  long long GetMultipleFilePos(TStringNomFitx& nombre, long long& longitud);
  static bool GetMultipleFileList(const TStringNomFitx& contenedor,
                                  Vector<TStringNomFitx>& lista);

  // ------------------------------------------------ state
  int GetModo() const { return modo; }
  const TStringNomFitx& GetNombre() const { return nombre; }
  int GetCodepage() const { return codepage; }
  void SetCodepage(int cp) { codepage = cp; }
  int GetLinea() const { return linea; }
  char GetSeparador() const { return separador; }
  void SetSeparador(char c) { separador = c; }
  void SetSeparadores(const char* s) { separadores = s ? s : ""; }
  void SetAnchoLongitud(int ancho) { ancho_longitud = ancho; }
  void SetHookEscritura(THookEscrituraITV hook, void* contexto) {
    hook_escritura = hook;
    hook_contexto = contexto;
  }
  bool GetXorDatos() const { return xor_datos; }
  long long GetOffsetSub() const { return offset_sub; }
  long long GetLongSub() const { return long_sub; }
  bool EsDuplicado() const { return duplicado; }
  bool EsNombreTemporal() const { return nombre_temporal; }
  TFicheroITV_Base* GetBackend() const { return backend; }
  bool CacheActiva() const { return cache != nullptr; }
  int GetTamCache() const { return tam_cache; }
  long long GetIniCache() const { return ini_cache; }
  long long GetFinCache() const { return fin_cache; }
  int GetNumDevueltos() const { return num_devueltos; }

 protected:
  // Set by derived classes that replace the byte operations (the memory
  // file): the inline cache path and the backend shortcuts are then unused.
  void MarcaMemoria() { es_memoria = true; }
  void AnotaError(int e) { errno_sistema = e; }

  char separador;
  int ancho_longitud;
  int version;
  int modo;
  int codepage;
  THookEscrituraITV hook_escritura;
  void* hook_contexto;
  int margen_cache;
  DString separadores;
  DString devueltos;
  int num_devueltos;
  int linea;
  bool xor_datos;
  const char* clave;
  int long_clave;
  TFicheroITV_Base* backend;
  char anterior;
  bool nombre_temporal;
  TStringNomFitx nombre;
  long long offset_sub;
  long long long_sub;
  bool duplicado;

  // Read cache.
  char* cache;
  long long long_fichero_cache;
  int tam_cache;
  // The logical position while the cache is on, pos_cache(), is kept as
  // base_cache + off_cache. While it lies inside the span, base_cache is
  // ini_cache and off_cache the offset in the buffer, so that the typed reads
  // below move one machine word only (32 bits on 32-bit targets).
  long long base_cache;
  long off_cache;
  long long ini_cache;
  long long fin_cache;
  long long limite_cache;
  int error_cache;
  int errno_sistema;

 private:
  long long pos_cache() const { return base_cache + off_cache; }
  void pon_pos_cache(long long p);

  // The typed binary read of n bytes when they lie wholly inside the loaded
  // span: exactly what operator>> would do there, without leaving the caller.
  // `lim_off` is the span's length while such reads are allowed (cache on,
  // binary mode, position inside the span), else 0.
  bool lee_rapido(void* v, int n) {
    if (static_cast<unsigned long>(off_cache) + static_cast<unsigned long>(n) >
        static_cast<unsigned long>(lim_off))
      return false;
    std::memcpy(v, cache + off_cache, static_cast<size_t>(n));
    off_cache += n;
    return true;
  }
  // The same for LeeTokenBin, which reads raw bytes in every mode.
  bool lee_span(void* v, int n) {
    const char* p = LeeEnSpan(n);
    if (!p) return false;
    std::memcpy(v, p, static_cast<size_t>(n));
    return true;
  }
  void actualiza_rapido();
  bool carga_span(long long pos, long long& nueva);
  bool lee_cache(void* buf, int n, int chunk);
  bool lee_byte(char& c);
  bool lee_texto_tipo(DString& dato);
  // Record the backend's error number of its last failure (EIO when it gives
  // none for a failure that cannot be the end of the data) or the object's
  // own, and return false.
  bool falla_backend(bool sin_fin_de_datos = false);
  bool falla_propio(int e) {
    errno_sistema = e;
    return false;
  }
  // Seeks the backend to an absolute position unless it stands there.
  bool coloca_backend(long long p);
  bool mover(long long desde, long long d, int tam_bloque, long long fin, bool comprobado);
  bool bloques_grandes_validos(long long desde, long long d, long long fin);
  bool coloca_mover(long long p, bool comprobado);

  TFicheroITV& lee_char(char& v);
  TFicheroITV& lee_uchar(unsigned char& v);
  TFicheroITV& lee_short(short& v);
  TFicheroITV& lee_ushort(unsigned short& v);
  TFicheroITV& lee_int(int& v);
  TFicheroITV& lee_uint(unsigned int& v);
  TFicheroITV& lee_ll(long long& v);
  TFicheroITV& lee_float(float& v);
  TFicheroITV& lee_double(double& v);

  long lim_off;
  bool es_memoria;
  // The code page came from the file itself (byte-order mark or its absence)
  // and is looked for again when the object opens another text file.
  bool codepage_del_fichero;

  friend class TFicheroITVdatos;
};

#endif
