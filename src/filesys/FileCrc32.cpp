// CRC-32 of a file or of a byte range of it: the standard reflected CRC of
// IEEE 802.3 (polynomial 0xEDB88320, initial value and final XOR all ones).
#include <climits>
#include <cstdint>

#include "file/FicheroITV.h"
#include "filesys/Crc32.h"
#include "filesys/StringNomFitx.h"
#include "thread/MonitorProc.h"

namespace {

// Eight tables: the first is the classic byte table; table k gives the CRC
// of a byte followed by k zero bytes, so that eight bytes are folded in one
// step (slicing by 8) with the same result as eight single-byte steps.
struct CrcTable {
  uint32_t v[8][256];
  CrcTable() {
    for (uint32_t i = 0; i < 256; i++) {
      uint32_t c = i;
      for (int k = 0; k < 8; k++) c = (c & 1) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
      v[0][i] = c;
    }
    for (uint32_t i = 0; i < 256; i++)
      for (int t = 1; t < 8; t++) v[t][i] = (v[t - 1][i] >> 8) ^ v[0][v[t - 1][i] & 0xFF];
  }
};

// Built on first use and shared by every later call (thread-safe static).
const CrcTable& crc_table() {
  static const CrcTable table;
  return table;
}

int clamp_int(long long n) { return n > INT_MAX ? INT_MAX : static_cast<int>(n); }

// The running (not yet inverted) CRC over n more bytes.
unsigned crc_sigue(unsigned crc, const unsigned char* p, size_t n) {
  const CrcTable& t = crc_table();
  uint32_t c = crc;
  for (; n >= 8; n -= 8, p += 8) {
    // Little-endian by construction: the bytes are combined one by one.
    const uint32_t lo = c ^ (uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 |
                             uint32_t(p[3]) << 24);
    c = t.v[7][lo & 0xFF] ^ t.v[6][(lo >> 8) & 0xFF] ^ t.v[5][(lo >> 16) & 0xFF] ^
        t.v[4][lo >> 24] ^ t.v[3][p[4]] ^ t.v[2][p[5]] ^ t.v[1][p[6]] ^ t.v[0][p[7]];
  }
  for (; n > 0; n--, p++) c = (c >> 8) ^ t.v[0][(c ^ *p) & 0xFF];
  return c;
}

}  // namespace

uint32_t Crc32(uint32_t crc, const void* datos, size_t n) {
  return ~crc_sigue(~crc, static_cast<const unsigned char*>(datos), n);
}

bool TStringNomFitx::FileCrc32(unsigned& crc, FileCheckAction action, TMonitorProc* monitor,
                               long long from, long long to) const {
  crc = 0xFFFFFFFFu;
  if (monitor) {
    monitor->SetTexto(action == FILECHECK_ADD     ? "Adding CRC 32"
                      : action == FILECHECK_CHECK ? "Checking CRC 32"
                                                  : "Generating CRC 32");
    monitor->SetSubtexto(c_str());
  }
  struct ClearTexts {
    TMonitorProc* m;
    ~ClearTexts() {
      if (m) {
        m->SetTexto("");
        m->SetSubtexto("");
      }
    }
  } clear_texts{monitor};

  // Adding needs to read the range and then write after it at a chosen
  // place: an update open ("r+b"), since an append stream can neither read
  // nor write anywhere but at the end.
  int mode = action == FILECHECK_ADD ? (MODO_LEER | MODO_BINARIO | MODO_ACTUALIZAR)
                                     : (MODO_LEER | MODO_BINARIO | MODO_MULTIPLE);
  TFicheroITV f;
  if (!f.Abre(*this, mode, nullptr)) return false;

  if (to < 0) to = f.FileSize64();
  if (action == FILECHECK_CHECK) to -= 4;  // the stored CRC is not summed
  if (to < from || from < 0) {
    f.CierraEx(true, nullptr);
    return false;
  }
  if (from > 0) f.Posicionate64(from);

  long long total = to - from;
  if (monitor) {
    monitor->actual = 0;
    monitor->npasos = clamp_int(total);
  }
  unsigned char buf[4096];
  long long left = total;
  long long done = 0;
  bool read_ok = true;
  while (left > 0) {
    int n = left > 4096 ? 4096 : static_cast<int>(left);
    read_ok = f.LeeTokenBin(buf, n, nullptr, -1);
    if (!read_ok) break;
    crc = crc_sigue(crc, buf, static_cast<size_t>(n));
    left -= n;
    done += n;
    if (monitor) monitor->actual = clamp_int(done);
  }
  crc = ~crc;

  bool result = read_ok;
  if (action == FILECHECK_CHECK) {
    unsigned stored = 0;
    result = read_ok && f.LeeTokenBin(&stored, 4, nullptr, -1) && stored == crc;
  } else if (action == FILECHECK_ADD && read_ok) {
    // A stream switching from reading to writing must be positioned first.
    f.Posicionate64(to);
    // The raw little-endian bytes, as the binary stream operator writes
    // them, but with the outcome known.
    result = f.PonTokenBin(&crc, 4, nullptr, -1) && f.Flush() == 0;
  }
  f.CierraEx(true, nullptr);
  return result;
}
