// Fuzz target: the input is split into a .shp and a .shx (the first four
// bytes give the .shp's length; an empty rest means no index), which are then
// opened, read, edited and closed through the plug-in's exports. The files
// live on a memory disk put in place of the disk for the whole run.
#include <cstdint>
#include <cstring>
#include <new>
#include <string>

#include "VardaPlugIn.h"
#include "support/MemoryDisk.h"

namespace {

MemoryDisk* disco = nullptr;
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

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Kept for the whole process, as the file layer may be used until exit.
  disco = new MemoryDisk;
  CambiaSistemaFicheros(disco);
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
  const std::string shp = "/fuzz/m.shp", shx = "/fuzz/m.shx";
  // Every run starts from these two files alone: no backups, nothing left
  // behind by the run before.
  disco->Clear();
  disco->Put(shp, MemoryDisk::Bytes(data, data + n));
  if (size > n) disco->Put(shx, MemoryDisk::Bytes(data + n, data + size));

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
