// HostLineAttributes.h - the defaults of a line-attribute record, written by
// a host program byte by byte. The plug-in's own constructor is not exported,
// so a host that adds lines fills the 196 bytes itself; these are the values
// that constructor gives, and zeros where the record belongs to the host.
#ifndef VARDA_TOOLS_HOSTLINEATTRIBUTES_H
#define VARDA_TOOLS_HOSTLINEATTRIBUTES_H

#include <cstdint>
#include <cstring>

namespace host {

constexpr int kLineAttributesSize = 196;

inline void LineAttributeDefaults(unsigned char (&bytes)[kLineAttributesSize]) {
  auto put_i = [&bytes](int at, int32_t v) { std::memcpy(bytes + at, &v, 4); };
  auto put_f = [&bytes](int at, float v) { std::memcpy(bytes + at, &v, 4); };
  std::memset(bytes, 0, kLineAttributesSize);
  put_i(0, kLineAttributesSize);
  for (int at : {12, 16, 40, 56, 60, 64, 92, 96}) put_i(at, -1);
  put_f(32, 1.0f);
  put_f(52, -1.0f);
  put_f(68, -1.0f);
  put_i(72, 1);
  put_f(84, -9999.0f);
  put_f(88, -9999.0f);
  std::memset(bytes + 153, 0xFF, 32);
}

}  // namespace host

#endif
