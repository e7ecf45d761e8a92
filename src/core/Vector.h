// Vector.h - the growable array: elements held by pointer, one heap object per
// element, so that an element's address stays valid while the array grows.
#ifndef VARDA_CORE_VECTOR_H
#define VARDA_CORE_VECTOR_H

#include <cstring>
#include <new>

#include "core/ErrorVectores.h"

template <class T>
class VectorI {
 public:
  VectorI(int capacidad_inicial, int incremento_, bool propietario_)
      : propietario(propietario_), numero(0), capacidad(capacidad_inicial),
        incremento(incremento_), base(0), datos(nullptr) {
    if (capacidad) {
      datos = new (std::nothrow) T*[capacidad];
      Verifica_Ptr(datos, 4, capacidad);
      for (int i = 0; i < capacidad; i++) datos[i] = nullptr;
    }
  }
  VectorI(const VectorI&) = delete;
  VectorI& operator=(const VectorI&) = delete;

  virtual ~VectorI() {
    if (propietario) {
      for (int i = 0; i < numero; i++) {
        delete datos[i];
        datos[i] = nullptr;
      }
    }
    numero = 0;
    delete[] datos;
    datos = nullptr;
  }

  // Makes room for n more elements; the new slots hold null.
  void Incre_Numero(int n) {
    int nuevo = numero + n;
    if (nuevo > capacidad) {
      if (incremento == 0) Error_Vectores_DG_i(6, n);
      int ncap = incremento + 2 + nuevo;
      T** nd = new (std::nothrow) T*[ncap];
      Verifica_Ptr(nd, 4, ncap);
      for (int i = 0; i < ncap; i++) nd[i] = nullptr;
      if (numero > 0) std::memcpy(nd, datos, sizeof(T*) * static_cast<size_t>(numero));
      delete[] datos;
      datos = nd;
      capacidad = ncap;
    }
    numero = nuevo;
  }

  T& operator_clave(long clave) {
    long slot = clave - base;
    if (slot < 0 || slot >= numero) Error_Vectores_DG_i(7, static_cast<int>(slot));
    if (!datos[slot]) Error_Vectores_DG_i(8, static_cast<int>(slot));
    return *datos[slot];
  }
  T& operator[](long clave) { return operator_clave(clave); }

  // Removes the element with key `clave`; keys at or past the end are ignored.
  void Elimina(int clave) {
    int slot = clave - base;
    if (slot >= numero || slot < 0) return;
    if (propietario) delete datos[slot];
    for (int i = slot; i < numero - 1; i++) datos[i] = datos[i + 1];
    numero--;
    datos[numero] = nullptr;
  }

  void Vacia(bool borrar) {
    for (int i = 0; i < numero; i++) {
      if (datos[i]) {
        if (borrar) delete datos[i];
        datos[i] = nullptr;
      }
    }
    numero = 0;
    delete[] datos;
    datos = nullptr;
    // A fixed-size vector may grow once it has been emptied.
    if (incremento < 1) incremento = capacidad;
    capacidad = 0;
  }

  bool propietario;
  int numero;
  int capacidad;
  int incremento;
  int base;
  T** datos;
};

template <class T>
class Vector : public VectorI<T> {
 public:
  Vector(int capacidad_inicial, int incremento_, bool propietario_)
      : VectorI<T>(capacidad_inicial, incremento_, propietario_) {}
  ~Vector() override {}

  // Inserts a copy of `elemento` at `posicion` (-1 appends); returns its slot.
  virtual int Anyade(const T& elemento, int posicion = -1) {
    // A reference bound through a null pointer is refused rather than read.
    const void* volatile direccion = &elemento;
    if (!direccion) Error_Vectores_DG_i(16, posicion);
    int slot = abrir_hueco(posicion, 12);
    T* e = new (std::nothrow) T();
    Verifica_Ptr(e, static_cast<int>(sizeof(T)), 1);
    this->datos[slot] = e;
    *e = elemento;
    return slot;
  }

  // Inserts a new empty element and returns it for the caller to fill.
  T* Anyade(int posicion = -1) {
    int slot = abrir_hueco(posicion, 13);
    T* e = new (std::nothrow) T();
    Verifica_Ptr(e, static_cast<int>(sizeof(T)), 1);
    this->datos[slot] = e;
    return e;
  }

 private:
  int abrir_hueco(int posicion, int code) {
    int antes = this->numero;
    this->Incre_Numero(1);
    if (posicion < 0) return antes;
    int slot = posicion - this->base;
    if (slot < 0) Error_Vectores_DG_i(code, slot);
    // Past the old end the slot would lie outside the array: append instead.
    if (slot > antes) slot = antes;
    if (slot < antes)
      std::memmove(this->datos + slot + 1, this->datos + slot,
                   sizeof(T*) * static_cast<size_t>(antes - slot));
    return slot;
  }
};

#endif
