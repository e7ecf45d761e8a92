// CRC-32 of a file or of a byte range of it: the standard reflected CRC of
// IEEE 802.3 (polynomial 0xEDB88320, initial value and final XOR all ones).
#include <climits>

#include "file/FicheroITV.h"
#include "filesys/Crc32.h"
#include "filesys/StringNomFitx.h"
#include "thread/MonitorProc.h"

namespace {

struct CrcTable {
  unsigned v[256];
  CrcTable() {
    for (unsigned i = 0; i < 256; i++) {
      unsigned c = i;
      for (int k = 0; k < 8; k++) c = (c & 1) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
      v[i] = c;
    }
  }
};

// Built on first use and shared by every later call (thread-safe static).
const unsigned* crc_table() {
  static const CrcTable table;
  return table.v;
}

int clamp_int(long long n) { return n > INT_MAX ? INT_MAX : static_cast<int>(n); }

// The running (not yet inverted) CRC over n more bytes.
unsigned crc_sigue(unsigned crc, const unsigned char* p, size_t n) {
  const unsigned* table = crc_table();
  for (size_t i = 0; i < n; i++) crc = (crc >> 8) ^ table[(crc ^ p[i]) & 0xFF];
  return crc;
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
