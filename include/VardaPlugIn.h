// VardaPlugIn.h - the host-side contract of the SHP vector-map plug-in.
//
// A host loads VardaPlugIn_SHP.so with dlopen, resolves the exports below by
// name and drives them with the records declared here. The records are a
// fixed binary contract with hosts built separately: on i386 every offset is
// the 32-bit x86 layout (4-byte alignment of doubles); on x86-64 the same
// declarations are compiled with 4-byte packing, so pointers take 8 bytes and
// the fields after a pointer move by 4. The point and line-attribute records
// hold no pointer and keep their 32-bit layout on both.
#ifndef VARDA_PLUGIN_H
#define VARDA_PLUGIN_H

#include <stddef.h>
#include <stdint.h>

#pragma pack(push, 4)

class TPrivateDataSHP;
struct TLineAttributesPlugIn;
struct TVectorPointPlugIn;

// One map, allocated by the host; the plug-in keeps its state behind `privado`.
struct TVectorMapPlugIn {
  unsigned char host_0[12];   // host-owned
  int32_t modo_escritura;     // 1 while both files are open for writing
  int32_t crear;              // set by the host: create a new, empty map
  int32_t shx_abierto;        // set by open: the .shx index was found
  unsigned char host_24[4];   // host-owned
  TPrivateDataSHP* privado;   // the plug-in's state; opaque to the host
};

// Error sink: the plug-in calls SetStr(sink, text) with one message.
struct TStringPlugIn {
  void (*SetStr)(TStringPlugIn* self, const char* text);
};

// Reader of a map: one BeginLine per shape, then one AddPoint per point.
struct TReadVectorMapPlugIn {
  unsigned char host_0[16];   // host-owned
  int32_t (*BeginLine)(TReadVectorMapPlugIn* self, TLineAttributesPlugIn* line);
  void (*AddPoint)(TReadVectorMapPlugIn* self, int32_t line, TVectorPointPlugIn* point,
                   int32_t last);
  unsigned char host_24[4];   // host-owned
  const char* opciones;       // reading options ("inpoint=x,y") or null
};

// Progress and cancellation: a host object whose first word points to its
// table of virtual functions. Slot 2 exists in the table but is never called.
class TProgressPlugIn {
 public:
  virtual void SetTotal(int32_t bytes) = 0;
  virtual void Advance(int32_t bytes) = 0;
  virtual void Reserved() {}
  virtual bool IsCancelled() = 0;

 protected:
  ~TProgressPlugIn() = default;
};

// Attributes of one line (196 bytes). Most fields are the host's display and
// classification data: the plug-in only gives them their defaults.
struct TLineAttributesPlugIn {
  int32_t tamanyo;            //   0: size of the record, 196
  int32_t attr_4;             //   4
  int32_t id_bd;              //   8: database id, the 1-based record number
  int32_t attr_12;            //  12
  int32_t attr_16;            //  16
  int32_t flags;              //  20: 0 open line, 1 closed, 3 point; +0x80 without Z
  int32_t attr_24;            //  24
  int32_t attr_28;            //  28
  float attr_32;              //  32
  int32_t attr_36;            //  36
  int32_t num_puntos;         //  40: number of points of the line
  int32_t attr_44;            //  44
  int32_t attr_48;            //  48
  float attr_52;              //  52
  int32_t attr_56;            //  56
  int32_t attr_60;            //  60
  int32_t attr_64;            //  64
  float attr_68;              //  68
  int32_t attr_72;            //  72
  int32_t attr_76;            //  76
  int32_t attr_80;            //  80
  float attr_84;              //  84
  float attr_88;              //  88
  int32_t attr_92;            //  92
  int32_t attr_96;            //  96
  int32_t attr_100;           // 100
  unsigned char host_104[4];  // 104: host-owned, not set
  unsigned char attr_108;     // 108
  unsigned char host_109[4];  // 109: host-owned, not set
  unsigned char attr_113[40]; // 113
  unsigned char attr_153[32]; // 153
  unsigned char attr_185;     // 185
  unsigned char host_186[10]; // 186: host-owned, not set

  // The plug-in's own constructor: the defaults of every field it owns; the
  // host-owned stretches are left as they were.
  TLineAttributesPlugIn();
};

// One point (40 bytes); arrays of points have a stride of 40.
struct TVectorPointPlugIn {
  int32_t tamanyo;            //  0: 40
  double x;                   //  4
  double y;                   // 12
  double z;                   // 20: 0.0 when the shape has none
  double m;                   // 28: -1.0 in delivered points
  unsigned char host_36[4];   // 36: host-owned
};

#pragma pack(pop)

// Layout proofs: every field the plug-in touches, on both targets.
#if defined(__i386__) || defined(__x86_64__)
#define VARDA_PTR_SHIFT (sizeof(void*) - 4)
static_assert(offsetof(TVectorMapPlugIn, modo_escritura) == 12, "map write mode");
static_assert(offsetof(TVectorMapPlugIn, crear) == 16, "map create flag");
static_assert(offsetof(TVectorMapPlugIn, shx_abierto) == 20, "map index flag");
static_assert(offsetof(TVectorMapPlugIn, privado) == 28, "map private state");
static_assert(sizeof(TVectorMapPlugIn) == 32 + VARDA_PTR_SHIFT, "map size");
static_assert(offsetof(TStringPlugIn, SetStr) == 0, "error sink");
static_assert(offsetof(TReadVectorMapPlugIn, BeginLine) == 16, "reader BeginLine");
static_assert(offsetof(TReadVectorMapPlugIn, AddPoint) == 20 + VARDA_PTR_SHIFT, "reader AddPoint");
static_assert(offsetof(TReadVectorMapPlugIn, host_24) == 24 + 2 * VARDA_PTR_SHIFT, "reader host");
static_assert(offsetof(TReadVectorMapPlugIn, opciones) == 28 + 2 * VARDA_PTR_SHIFT, "reader options");
static_assert(sizeof(TReadVectorMapPlugIn) == 32 + 3 * VARDA_PTR_SHIFT, "reader size");
static_assert(sizeof(TProgressPlugIn) == sizeof(void*), "progress object: one table pointer");
static_assert(sizeof(TLineAttributesPlugIn) == 196, "line attributes size");
static_assert(offsetof(TLineAttributesPlugIn, id_bd) == 8, "line database id");
static_assert(offsetof(TLineAttributesPlugIn, flags) == 20, "line flags");
static_assert(offsetof(TLineAttributesPlugIn, attr_32) == 32, "line attr 32");
static_assert(offsetof(TLineAttributesPlugIn, num_puntos) == 40, "line points");
static_assert(offsetof(TLineAttributesPlugIn, attr_52) == 52, "line attr 52");
static_assert(offsetof(TLineAttributesPlugIn, attr_68) == 68, "line attr 68");
static_assert(offsetof(TLineAttributesPlugIn, attr_84) == 84, "line attr 84");
static_assert(offsetof(TLineAttributesPlugIn, attr_100) == 100, "line attr 100");
static_assert(offsetof(TLineAttributesPlugIn, host_104) == 104, "line host 104");
static_assert(offsetof(TLineAttributesPlugIn, attr_108) == 108, "line attr 108");
static_assert(offsetof(TLineAttributesPlugIn, host_109) == 109, "line host 109");
static_assert(offsetof(TLineAttributesPlugIn, attr_113) == 113, "line attr 113");
static_assert(offsetof(TLineAttributesPlugIn, attr_153) == 153, "line attr 153");
static_assert(offsetof(TLineAttributesPlugIn, attr_185) == 185, "line attr 185");
static_assert(offsetof(TLineAttributesPlugIn, host_186) == 186, "line host 186");
static_assert(sizeof(TVectorPointPlugIn) == 40, "point size");
static_assert(offsetof(TVectorPointPlugIn, x) == 4, "point x");
static_assert(offsetof(TVectorPointPlugIn, y) == 12, "point y");
static_assert(offsetof(TVectorPointPlugIn, z) == 20, "point z");
static_assert(offsetof(TVectorPointPlugIn, m) == 28, "point m");
#undef VARDA_PTR_SHIFT
#endif

// The exports, as a host resolves them with dlsym.
extern "C" {
typedef int32_t (*VardaPlugIn_Version_t)(void);
typedef int32_t (*VardaPlugIn_VersionPriv_t)(void);
typedef int32_t (*VardaPlugIn_Init_t)(void);
typedef const char* (*VardaPlugIn_GetTipoArchivos_t)(void);
typedef const char* (*VardaPlugIn_VersionStr_t)(void);
typedef int32_t (*VardaPlugIn_Open_Vector_Map_t)(char* path, TVectorMapPlugIn* map,
                                                 TStringPlugIn* err);
typedef int32_t (*VardaPlugIn_Read_Vector_Map3_t)(TVectorMapPlugIn* map,
                                                  TReadVectorMapPlugIn* reader,
                                                  TStringPlugIn* err,
                                                  TProgressPlugIn* progress);
typedef int32_t (*VardaPlugIn_Add_Poliline_Vector_Map_t)(TVectorMapPlugIn* map,
                                                         TLineAttributesPlugIn* line,
                                                         int32_t num_points,
                                                         TVectorPointPlugIn* points,
                                                         TStringPlugIn* err);
typedef int32_t (*VardaPlugIn_Delete_Poliline_Vector_Map_t)(TVectorMapPlugIn* map,
                                                            int32_t database_id,
                                                            TStringPlugIn* err);
typedef int32_t (*VardaPlugIn_Close_Vector_Map_t)(TVectorMapPlugIn* map);
}

// The same exports as declarations, for programs linked with the plug-in's
// code instead of loading the module. The module defines each of them against
// these declarations, so that a signature cannot drift from the typedefs
// above without failing to build.
extern "C" {
int32_t VardaPlugIn_Version(void);
int32_t VardaPlugIn_VersionPriv(void);
int32_t VardaPlugIn_Init(void);
const char* VardaPlugIn_GetTipoArchivos(void);
const char* VardaPlugIn_VersionStr(void);
int32_t VardaPlugIn_Open_Vector_Map(char* path, TVectorMapPlugIn* map, TStringPlugIn* err);
int32_t VardaPlugIn_Read_Vector_Map3(TVectorMapPlugIn* map, TReadVectorMapPlugIn* reader,
                                     TStringPlugIn* err, TProgressPlugIn* progress);
int32_t VardaPlugIn_Add_Poliline_Vector_Map(TVectorMapPlugIn* map, TLineAttributesPlugIn* line,
                                            int32_t num_points, TVectorPointPlugIn* points,
                                            TStringPlugIn* err);
int32_t VardaPlugIn_Delete_Poliline_Vector_Map(TVectorMapPlugIn* map, int32_t database_id,
                                               TStringPlugIn* err);
int32_t VardaPlugIn_Close_Vector_Map(TVectorMapPlugIn* map);
// Message formats of file errors, each with one %s for the file name;
// replaceable by the host, read when a message is composed.
extern const char* fmt_open;
extern const char* fmt_save;
}

#endif
