// DiscoMemoria.h - a file system held in memory for the tests, put in place
// of the disk with CambiaSistemaFicheros. It records what is asked of it and
// can be told to fail: reads or writes after a number of bytes, closes,
// synchronisations.
#ifndef VARDA_TESTS_FILE_DISCOMEMORIA_H
#define VARDA_TESTS_FILE_DISCOMEMORIA_H

#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "file/FicheroITV.h"
#include "file/SistemaFicheros.h"

class TDiscoMemoria : public TSistemaFicheros {
 public:
  // Contents by name.
  std::map<std::string, std::shared_ptr<std::string>> ficheros;
  // "Verb name" for every request, in order.
  std::vector<std::string> llamadas;
  // Faults: bytes that may still be read / written by all backends together
  // before reads fail with EIO / writes with ENOSPC (-1: no limit).
  long long lecturas_restantes = -1;
  long long escrituras_restantes = -1;
  bool falla_cierre = false;
  bool falla_sincroniza = false;
  // Seeks that reached a backend (a seek to where it stands included).
  int posicionamientos = 0;

  // Installs itself for the lifetime of the object.
  TDiscoMemoria() : anterior(CambiaSistemaFicheros(this)) {}
  ~TDiscoMemoria() override { CambiaSistemaFicheros(anterior); }
  TDiscoMemoria(const TDiscoMemoria&) = delete;
  TDiscoMemoria& operator=(const TDiscoMemoria&) = delete;

  bool Tiene(const std::string& nombre) const { return ficheros.count(nombre) != 0; }
  std::string Contenido(const std::string& nombre) const {
    auto it = ficheros.find(nombre);
    return it == ficheros.end() ? std::string("<none>") : *it->second;
  }
  bool Llamado(const std::string& que) const {
    for (const std::string& l : llamadas)
      if (l == que) return true;
    return false;
  }

  TFicheroITV_Base* NuevoBackend(const TStringNomFitx& nombre, int) override {
    llamadas.push_back(std::string("NuevoBackend ") + nombre.c_str());
    return new Backend(*this);
  }
  TTipo Tipo(const char* nombre) override {
    llamadas.push_back(std::string("Tipo ") + nombre);
    return Tiene(nombre) ? kRegular : kNoExiste;
  }
  long long Tamanyo(const char* nombre) override {
    llamadas.push_back(std::string("Tamanyo ") + nombre);
    return Tiene(nombre) ? static_cast<long long>(ficheros[nombre]->size()) : -1;
  }
  bool Borra(const char* nombre) override {
    llamadas.push_back(std::string("Borra ") + nombre);
    if (ficheros.erase(nombre) == 0) return Falla(ENOENT);
    return true;
  }
  bool Renombra(const char* de, const char* a) override {
    llamadas.push_back(std::string("Renombra ") + de + " " + a);
    auto it = ficheros.find(de);
    if (it == ficheros.end()) return Falla(ENOENT);
    std::shared_ptr<std::string> datos = it->second;
    ficheros.erase(it);
    ficheros[a] = datos;
    return true;
  }
  bool SincronizaCarpeta(const char* nombre) override {
    llamadas.push_back(std::string("SincronizaCarpeta ") + nombre);
    return falla_sincroniza ? Falla(EIO) : true;
  }

 private:
  static bool Falla(int e) {
    errno = e;
    return false;
  }

  class Backend : public TFicheroITV_Base {
   public:
    explicit Backend(TDiscoMemoria& d) : disco(d) {}
    bool Abre(const TStringNomFitx& name, int& mode, DString* err) override {
      nombre = name.c_str();
      auto it = disco.ficheros.find(nombre);
      if (mode & MODO_LEER) {
        if (it == disco.ficheros.end()) {
          TFicheroITV::ComposeStringError(err, false, name, nullptr);
          return Falla(ENOENT);
        }
        datos = it->second;
        if (mode & MODO_ACTUALIZAR) escribible = true;
      } else {
        datos = std::make_shared<std::string>();
        if ((mode & MODO_ANYADIR) && it != disco.ficheros.end()) datos = it->second;
        disco.ficheros[nombre] = datos;
        escribible = true;
        if (mode & MODO_ANYADIR) pos = static_cast<long long>(datos->size());
      }
      return true;
    }
    bool Cierra(DString* err) override {
      bool abierto = datos != nullptr;
      datos.reset();
      if (abierto && disco.falla_cierre) {
        TFicheroITV::ComposeStringError(err, true, TStringNomFitx(nombre.c_str()),
                                        std::strerror(EIO));
        return Falla(EIO);
      }
      return true;
    }
    bool Abierto() const override { return datos != nullptr; }
    bool LeeBytes(void* buf, int n) override {
      if (!datos) return Falla(EBADF);
      long long hay = static_cast<long long>(datos->size()) - pos;
      long long k = n < hay ? n : (hay < 0 ? 0 : hay);
      bool agotado = false;
      if (disco.lecturas_restantes >= 0 && k > disco.lecturas_restantes) {
        k = disco.lecturas_restantes;
        agotado = true;
      }
      if (k > 0) std::memcpy(buf, datos->data() + pos, static_cast<size_t>(k));
      pos += k;
      if (disco.lecturas_restantes >= 0) disco.lecturas_restantes -= k;
      if (agotado) return Falla(EIO);
      if (k < n) {
        fin = true;
        return Falla(0);
      }
      return true;
    }
    bool GuardaBytes(const void* buf, int n) override {
      if (!datos || !escribible) return Falla(EBADF);
      long long k = n;
      bool lleno = false;
      if (disco.escrituras_restantes >= 0 && k > disco.escrituras_restantes) {
        k = disco.escrituras_restantes;
        lleno = true;
      }
      if (static_cast<long long>(datos->size()) < pos + k)
        datos->resize(static_cast<size_t>(pos + k));
      if (k > 0) std::memcpy(&(*datos)[static_cast<size_t>(pos)], buf, static_cast<size_t>(k));
      pos += k;
      if (disco.escrituras_restantes >= 0) disco.escrituras_restantes -= k;
      return lleno ? Falla(ENOSPC) : true;
    }
    bool Posicionate64(long long p) override {
      disco.posicionamientos++;
      if (!datos) return Falla(EBADF);
      if (p < 0) return Falla(EINVAL);
      pos = p;
      fin = false;
      return true;
    }
    bool eof() override { return !datos || fin; }
    long long PosActual64() override { return pos; }
    long long FileSize64() override { return datos ? static_cast<long long>(datos->size()) : 0; }
    int Errno() const override { return error; }
    bool Sincroniza() override {
      disco.llamadas.push_back("Sincroniza " + nombre);
      return disco.falla_sincroniza ? Falla(EIO) : true;
    }
    bool Trunca(long long largo) override {
      if (!datos || largo < 0) return Falla(EINVAL);
      datos->resize(static_cast<size_t>(largo));
      return true;
    }

   private:
    bool Falla(int e) {
      error = e;
      return false;
    }
    TDiscoMemoria& disco;
    std::shared_ptr<std::string> datos;
    std::string nombre;
    long long pos = 0;
    bool fin = false;
    bool escribible = false;
    int error = 0;
  };

  TSistemaFicheros* anterior;
};

#endif
