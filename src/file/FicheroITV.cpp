// FicheroITV.cpp - construction, opening and closing of the file object.

#include "file/FicheroITV.h"

#include <cerrno>

#include "file/MultipleFiles.h"
#include "file/SistemaFicheros.h"
#include "string/DUString.h"

namespace {
const char* fmt_no_encontrado = "Error: %s File not found";
const char* fmt_error_escritura = "Error writing %s file.";

// The message formats are replaceable by the application, so they are not
// handed to printf: every "%s" takes the name, "%%" gives "%", and any other
// conversion is copied as it stands instead of reading a missing argument.
void formatea_con_nombre(DString& out, const char* fmt, const char* name) {
  out = "";
  if (!fmt) return;
  const char* tramo = fmt;
  const char* p = fmt;
  DString trozo;
  while (*p) {
    if (p[0] == '%' && (p[1] == 's' || p[1] == '%')) {
      trozo.strncpy(tramo, static_cast<int>(p - tramo));
      out << trozo.c_str();
      out << (p[1] == 's' ? name : "%");
      p += 2;
      tramo = p;
    } else {
      p++;
    }
  }
  out << tramo;
}
}  // namespace

TFicheroITV::TFicheroITV()
    : separador(' '),
      ancho_longitud(2),
      version(0),
      modo(0),
      codepage(-1),
      hook_escritura(nullptr),
      hook_contexto(nullptr),
      margen_cache(0),
      separadores(" \t\n"),
      num_devueltos(0),
      linea(0),
      xor_datos(false),
      clave(nullptr),
      long_clave(0),
      backend(nullptr),
      anterior(0),
      nombre_temporal(false),
      offset_sub(0),
      long_sub(0),
      duplicado(false),
      cache(nullptr),
      long_fichero_cache(0),
      tam_cache(0),
      base_cache(0),
      off_cache(0),
      ini_cache(0),
      fin_cache(0),
      limite_cache(0),
      error_cache(0),
      errno_sistema(0),
      lim_off(0),
      es_memoria(false),
      codepage_del_fichero(false) {}

TFicheroITV::TFicheroITV(const TStringNomFitx& name, int mode) : TFicheroITV() {
  nombre = name;
  if (!Abre(name, mode, nullptr)) throw "Error al abrir archivo";
}

TFicheroITV::~TFicheroITV() { CierraEx(true, nullptr); }

void TFicheroITV::SetErrMsgs(const char* no_encontrado, const char* error_escritura) {
  fmt_no_encontrado = no_encontrado;
  fmt_error_escritura = error_escritura;
}

void TFicheroITV::ComposeStringError(DString* out, bool writing, const TStringNomFitx& name,
                                     const char* extra) {
  if (!out) return;
  formatea_con_nombre(*out, writing ? fmt_error_escritura : fmt_no_encontrado, name.c_str());
  if (extra) {
    *out << " ";
    *out << extra;
  }
}

bool TFicheroITV::Abierto() const { return backend && backend->Abierto(); }

int TFicheroITV::Flush() {
  if (!backend) return 0;
  int r = backend->Flush();
  if (r != 0) falla_backend(true);
  return r;
}

bool TFicheroITV::SetEndOfFile() { return backend ? backend->SetEndOfFile() : false; }

bool TFicheroITV::falla_backend(bool sin_fin_de_datos) {
  int e = backend ? backend->Errno() : EBADF;
  if (e == 0 && sin_fin_de_datos) e = EIO;
  errno_sistema = e;
  return false;
}

bool TFicheroITV::Sincroniza() {
  if (es_memoria) return true;
  if (!backend) return falla_propio(EBADF);
  return backend->Sincroniza() || falla_backend(true);
}

bool TFicheroITV::Trunca64(long long largo) {
  if (es_memoria || offset_sub > 0 || long_sub > 0 || largo < 0) return falla_propio(EINVAL);
  if (!backend) return falla_propio(EBADF);
  if (!backend->Trunca(largo)) return falla_backend(true);
  if (cache) {
    // The span must not serve bytes that are no longer in the file.
    long long p = pos_cache();
    if (limite_cache > largo) limite_cache = largo;
    if (long_fichero_cache > largo) long_fichero_cache = largo;
    if (fin_cache > largo) fin_cache = largo < ini_cache ? ini_cache : largo;
    pon_pos_cache(p);
  }
  return true;
}

bool TFicheroITV::Abre(const TStringNomFitx& name, int mode, DString* err) {
  // The name may be this object's own `nombre`: work on a copy.
  TStringNomFitx pedido(name);
  nombre = pedido;
  xor_datos = false;
  if (backend) {
    if (err) *err << " file already oppened.";
    return false;
  }
  duplicado = false;
  modo = mode;
  anterior = 0;
  bool leyendo = (mode & MODO_LEER) != 0;
  bool escribiendo = (mode & MODO_ESCRIBIR) != 0;
  // A code page found in a previous file does not belong to this one.
  if (codepage_del_fichero) {
    codepage = -1;
    codepage_del_fichero = false;
  }

  TStringNomFitx a_abrir(pedido);
  DString miembro;
  if (vMultipleFiles && leyendo && !escribiendo && !(mode & MODO_ANYADIR)) {
    TStringNomFitx principal(pedido.MainFile());
    if (vMultipleFiles->EsContenedor(principal)) {
      miembro = pedido.SubFile();
      a_abrir = principal;
      modo |= MODO_MULTIPLE;
      bool tratado = false;
      bool x = false;
      if (vMultipleFiles->AbreMiembro(principal, miembro, *this, tratado, x, err)) {
        xor_datos = x;
        actualiza_rapido();
        Posicionate64(0);
        if ((modo & MODO_TEXTO) && (modo & MODO_LEER)) {
          if (!Lee_BOM()) codepage = 1;
          codepage_del_fichero = true;
        }
        return true;
      }
      if (tratado) return false;
    }
  }

  offset_sub = 0;
  long_sub = 0;
  nombre_temporal = (modo & MODO_TEMPORAL) != 0;
  if (nombre_temporal) a_abrir << ".$$$";
  if (!backend) backend = SistemaFicheros().NuevoBackend(a_abrir, modo);
  if (!backend) {
    nombre_temporal = false;
    ComposeStringError(err, escribiendo, a_abrir, nullptr);
    return falla_propio(ENOMEM);
  }
  bool abierto;
  try {
    abierto = backend->Abre(a_abrir, modo, err);
  } catch (...) {
    // A bad mode is the caller's error and propagates, but the object must
    // stay closed and usable.
    delete backend;
    backend = nullptr;
    nombre_temporal = false;
    throw;
  }
  if (!abierto) {
    falla_backend(true);
    delete backend;
    backend = nullptr;
    nombre_temporal = false;
    return false;
  }

  if (vMultipleFiles && !miembro.IsEmpty()) {
    Posicionate64(0);
    int guardado = modo;
    modo = MODO_LEER | MODO_BINARIO | MODO_MULTIPLE;
    offset_sub = 0;
    long_sub = 0;
    bool ok = vMultipleFiles->LocalizaMiembro(*this, a_abrir, miembro, offset_sub, long_sub,
                                               xor_datos, err);
    modo = guardado;
    if (!ok) {
      CierraEx(true, nullptr);
      return false;
    }
    Posicionate64(0);
  }

  if (leyendo && (modo & MODO_CACHE) && !(modo & MODO_ACTUALIZAR)) {
    margen_cache = 0;
    SetCache(true);
  }

  if (modo & MODO_TEXTO) {
    bool nuevo = escribiendo;
    bool leer_bom = false;
    if (modo & MODO_ACTUALIZAR) {
      if (FileSize() == 0)
        nuevo = true;
      else
        leer_bom = true;
    } else if (leyendo) {
      leer_bom = true;
    }
    if (leer_bom) {
      if (!Lee_BOM()) codepage = 1;
      codepage_del_fichero = true;
    }
    if (nuevo && !(modo & MODO_SIN_BOM)) Guarda_BOM(DUString::default_codepage);
  }

  actualiza_rapido();
  if (leyendo && (modo & MODO_VERSION)) *this >> version;
  linea = 0;
  return true;
}

int TFicheroITV::CierraEx(bool, DString* err) {
  delete[] cache;
  cache = nullptr;
  actualiza_rapido();
  // Bytes pushed back belong to the file that is being closed.
  num_devueltos = 0;
  if (duplicado) {
    duplicado = false;
    backend = nullptr;
    if (vMultipleFiles) vMultipleFiles->CierraMiembro(nombre);
    return 1;
  }
  int resultado = 1;
  if (backend) {
    resultado = backend->Cierra(err) ? 1 : 0;
    if (!resultado) falla_backend(true);
    delete backend;
    backend = nullptr;
  }
  // The file stays under its ".$$$" name: renaming it is the caller's choice.
  nombre_temporal = false;
  return resultado;
}
