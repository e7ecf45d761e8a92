// Fuzz target: the input is split into a .shp and a .shx (the first four
// bytes give the .shp's length; an empty rest means no index), which are then
// opened, read, edited and closed through the plug-in's exports.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "VardaPlugIn.h"

extern "C" {
int32_t VardaPlugIn_Open_Vector_Map(char*, TVectorMapPlugIn*, TStringPlugIn*);
int32_t VardaPlugIn_Read_Vector_Map3(TVectorMapPlugIn*, TReadVectorMapPlugIn*, TStringPlugIn*,
                                     TProgressPlugIn*);
int32_t VardaPlugIn_Add_Poliline_Vector_Map(TVectorMapPlugIn*, TLineAttributesPlugIn*, int32_t,
                                            TVectorPointPlugIn*, TStringPlugIn*);
int32_t VardaPlugIn_Delete_Poliline_Vector_Map(TVectorMapPlugIn*, int32_t, TStringPlugIn*);
int32_t VardaPlugIn_Close_Vector_Map(TVectorMapPlugIn*);
}

namespace {

std::string dir;  // temporary folder of the two files
double suma = 0;

void SetStr(TStringPlugIn*, const char* t) { suma += std::strlen(t); }
int32_t BeginLine(TReadVectorMapPlugIn*, TLineAttributesPlugIn* a) { return a->num_puntos; }
void AddPoint(TReadVectorMapPlugIn*, int32_t, TVectorPointPlugIn* p, int32_t) {
  suma += p->x + p->y + p->z;
}

struct Progreso : TProgressPlugIn {
  void SetTotal(int32_t) override {}
  void Advance(int32_t) override {}
  bool IsCancelled() override { return false; }
};

void Escribe(const std::string& path, const uint8_t* d, size_t n) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) std::abort();
  if (n) std::fwrite(d, 1, n, f);
  std::fclose(f);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // In memory when the machine offers it: every run writes two files.
  std::string plantilla = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  plantilla += "/varda-fuzz-XXXXXX";
  if (!mkdtemp(&plantilla[0])) std::abort();
  dir = plantilla;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 5) return 0;
  uint32_t n;
  std::memcpy(&n, data, 4);
  const uint8_t flags = data[4];
  data += 5;
  size -= 5;
  n = static_cast<uint32_t>(n % (size + 1));
  const std::string shp = dir + "/m.shp", shx = dir + "/m.shx";
  unlink((shp + ".bak").c_str());
  unlink((shx + ".bak").c_str());
  Escribe(shp, data, n);
  if (size > n)
    Escribe(shx, data + n, size - n);
  else
    unlink(shx.c_str());

  TStringPlugIn err{SetStr};
  TVectorMapPlugIn map;
  std::memset(&map, 0, sizeof map);
  std::string path = shp;
  if (!VardaPlugIn_Open_Vector_Map(&path[0], &map, &err)) return 0;
  TReadVectorMapPlugIn reader;
  std::memset(&reader, 0, sizeof reader);
  reader.BeginLine = BeginLine;
  reader.AddPoint = AddPoint;
  reader.opciones = (flags & 1) ? "inpoint=0.5,0.5" : nullptr;
  Progreso progreso;
  int leido = VardaPlugIn_Read_Vector_Map3(&map, &reader, &err, &progreso);
  if (leido && (flags & 6)) {
    // Editing after a successful read: a replacement, a deletion, an append.
    alignas(8) unsigned char mem[sizeof(TLineAttributesPlugIn)];
    TLineAttributesPlugIn* line = new (mem) TLineAttributesPlugIn();
    line->flags = (flags >> 3) & 3;
    TVectorPointPlugIn pts[4];
    std::memset(pts, 0, sizeof pts);
    for (int i = 0; i < 4; i++) {
      pts[i].tamanyo = 40;
      pts[i].x = i;
      pts[i].y = i * 2;
      pts[i].z = i * 3;
    }
    if (flags & 2) {
      line->id_bd = 1 + (flags >> 5);
      VardaPlugIn_Add_Poliline_Vector_Map(&map, line, 1 + (flags & 3), pts, &err);
    }
    if (flags & 4) VardaPlugIn_Delete_Poliline_Vector_Map(&map, 1 + (flags >> 6), &err);
    line->id_bd = 0;
    VardaPlugIn_Add_Poliline_Vector_Map(&map, line, 4, pts, &err);
    VardaPlugIn_Read_Vector_Map3(&map, &reader, &err, &progreso);
  }
  VardaPlugIn_Close_Vector_Map(&map);
  return 0;
}
