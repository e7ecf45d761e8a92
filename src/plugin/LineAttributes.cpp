#include <cstring>

#include "VardaPlugIn.h"

// Every attribute the plug-in owns gets its default; the host-owned stretches
// (104-107, 109-112, 186-195) are left exactly as the host had them.
TLineAttributesPlugIn::TLineAttributesPlugIn() {
  tamanyo = 196;
  attr_4 = 0;
  id_bd = 0;
  attr_12 = -1;
  attr_16 = -1;
  flags = 0;
  attr_24 = 0;
  attr_28 = 0;
  attr_32 = 1.0f;
  attr_36 = 0;
  num_puntos = -1;
  attr_44 = 0;
  attr_48 = 0;
  attr_52 = -1.0f;
  attr_56 = -1;
  attr_60 = -1;
  attr_64 = -1;
  attr_68 = -1.0f;
  attr_72 = 1;
  attr_76 = 0;
  attr_80 = 0;
  attr_84 = -9999.0f;
  attr_88 = -9999.0f;
  attr_92 = -1;
  attr_96 = -1;
  attr_100 = 0;
  attr_108 = 0;
  std::memset(attr_113, 0, sizeof attr_113);
  std::memset(attr_153, 0xFF, sizeof attr_153);
  attr_185 = 0;
}
