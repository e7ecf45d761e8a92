// bench_file - the file layer's hot paths against plain system calls on the
// same file in the same run:
//   * reading a file field by field (4- and 8-byte values) through the read
//     cache, against a read() loop in 64 KiB blocks that takes the same fields
//     out of its buffer;
//   * shifting a file's tail by -48 bytes with MoveBytesEnd, against a
//     pread/pwrite loop in 1 MiB blocks.
// Usage: bench_file [size in MB, default 200] [folder for the scratch file]
// The file is read once before timing so that every column reads from the
// page cache. Times are the process's CPU time (user + system), so that the
// figures hold on a loaded machine; the work is CPU-bound once the file is
// cached.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "file/FicheroITV.h"

namespace {

double TiempoCPU() {
  timespec t;
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

struct Reloj {
  using time_point = double;
  static double now() { return TiempoCPU(); }
};

double Segundos(double desde) { return TiempoCPU() - desde; }

bool CreaFichero(const std::string& path, long long tam) {
  int fd = ::open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0644);
  if (fd < 0) return false;
  std::vector<char> bloque(1 << 20);
  for (size_t i = 0; i < bloque.size(); i++) bloque[i] = static_cast<char>((i * 2654435761u) >> 13);
  bool ok = true;
  for (long long hecho = 0; ok && hecho < tam;) {
    size_t n = static_cast<size_t>(tam - hecho < (1 << 20) ? tam - hecho : (1 << 20));
    ok = ::write(fd, bloque.data(), n) == static_cast<ssize_t>(n);
    hecho += static_cast<long long>(n);
  }
  return ::close(fd) == 0 && ok;
}

// The baseline reader: read() in 64 KiB blocks, fields copied out of the
// block one by one as the file object does (fields never straddle blocks
// since both sizes divide 64 KiB).
template <class T>
__attribute__((noinline, optimize("no-tree-vectorize"))) unsigned long long LeeConRead(
    const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY);
  if (fd < 0) return 0;
  std::vector<char> buf(65536);
  unsigned long long suma = 0;
  ssize_t n;
  while ((n = ::read(fd, buf.data(), buf.size())) > 0) {
    for (ssize_t i = 0; i + static_cast<ssize_t>(sizeof(T)) <= n; i += sizeof(T)) {
      T v;
      std::memcpy(&v, buf.data() + i, sizeof(T));
      unsigned long long u = 0;
      std::memcpy(&u, &v, sizeof(T));
      suma += u;
    }
  }
  ::close(fd);
  return suma;
}

template <class T>
__attribute__((noinline)) unsigned long long LeeConFichero(const std::string& path) {
  TFicheroITV f;
  if (!f.Abre(TStringNomFitx(path.c_str()), MODO_LEER | MODO_BINARIO | MODO_CACHE, nullptr))
    return 0;
  unsigned long long suma = 0;
  long long campos = f.FileSize64() / static_cast<long long>(sizeof(T));
  for (long long i = 0; i < campos; i++) {
    T v;
    f >> v;
    unsigned long long u = 0;
    std::memcpy(&u, &v, sizeof(T));
    suma += u;
  }
  return suma;
}

// The baseline move: the tail from `desde` shifted by `d` (< 0), front to
// back in 1 MiB blocks, the freed end zero-filled.
bool MueveConPread(const std::string& path, long long desde, long long d) {
  int fd = ::open(path.c_str(), O_RDWR);
  if (fd < 0) return false;
  struct stat st;
  ::fstat(fd, &st);
  long long fin = st.st_size;
  std::vector<char> buf(1 << 20);
  bool ok = true;
  for (long long p = desde; ok && p < fin; p += static_cast<long long>(buf.size())) {
    size_t k = static_cast<size_t>(fin - p < static_cast<long long>(buf.size()) ? fin - p : buf.size());
    ok = ::pread(fd, buf.data(), k, p) == static_cast<ssize_t>(k) &&
         ::pwrite(fd, buf.data(), k, p + d) == static_cast<ssize_t>(k);
  }
  std::vector<char> ceros(static_cast<size_t>(-d), 0);
  ok = ok && ::pwrite(fd, ceros.data(), ceros.size(), fin + d) == static_cast<ssize_t>(ceros.size());
  return ::close(fd) == 0 && ok;
}

bool MueveConFichero(const std::string& path, int desde, int d) {
  TFicheroITV f;
  if (!f.Abre(TStringNomFitx(path.c_str()), MODO_LEER | MODO_BINARIO | MODO_ACTUALIZAR, nullptr))
    return false;
  f.MoveBytesEnd(desde, d, 1024, -1);
  return f.CierraEx(true, nullptr) == 1;
}

void Fila(const char* que, double t_fichero, double t_base, const char* base, double mb) {
  std::printf("%-34s %9.3f s %8.0f MB/s   %-18s %9.3f s   x%.2f\n", que, t_fichero,
              mb / t_fichero, base, t_base, t_fichero / t_base);
}

}  // namespace

int main(int argc, char** argv) {
  long long mb = argc > 1 ? std::atoll(argv[1]) : 200;
  if (mb < 1) mb = 1;
  std::string carpeta = argc > 2 ? argv[2] : (std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp");
  std::string plantilla = carpeta + "/bench_file-XXXXXX";
  if (!::mkdtemp(&plantilla[0])) {
    std::perror("mkdtemp");
    return 1;
  }
  std::string path = plantilla + "/data.bin";
  long long tam = mb << 20;
  if (!CreaFichero(path, tam)) {
    std::fprintf(stderr, "cannot write %s\n", path.c_str());
    return 1;
  }
  int fallos = 0;
  std::printf("file of %lld MB (%s)\n\n", mb, path.c_str());
  std::printf("%-34s %11s %13s   %-18s %11s   %s\n", "operation (CPU time)", "file layer", "",
              "baseline", "", "ratio");
  LeeConRead<int>(path);  // into the page cache

  {
    auto t0 = Reloj::now();
    unsigned long long a = LeeConRead<int>(path);
    double tb = Segundos(t0);
    t0 = Reloj::now();
    unsigned long long b = LeeConFichero<int>(path);
    double tf = Segundos(t0);
    Fila("read 4-byte fields, cached", tf, tb, "read() 64 KiB", static_cast<double>(mb));
    if (a != b) {
      std::printf("  checksum mismatch\n");
      fallos++;
    }
  }
  {
    auto t0 = Reloj::now();
    unsigned long long a = LeeConRead<double>(path);
    double tb = Segundos(t0);
    t0 = Reloj::now();
    unsigned long long b = LeeConFichero<double>(path);
    double tf = Segundos(t0);
    Fila("read 8-byte fields, cached", tf, tb, "read() 64 KiB", static_cast<double>(mb));
    if (a != b) {
      std::printf("  checksum mismatch\n");
      fallos++;
    }
  }
  {
    // The same move twice on the same bytes; the results must agree.
    std::string copia = plantilla + "/copy.bin";
    CreaFichero(copia, tam);
    auto t0 = Reloj::now();
    bool ok_b = MueveConPread(copia, 48, -48);
    double tb = Segundos(t0);
    t0 = Reloj::now();
    bool ok_f = tam < 0x7fffffffLL && MueveConFichero(path, 48, -48);
    double tf = Segundos(t0);
    Fila("MoveBytesEnd by -48 (block 1024)", tf, tb, "pread/pwrite 1 MiB", static_cast<double>(mb));
    int fa = ::open(path.c_str(), O_RDONLY), fb = ::open(copia.c_str(), O_RDONLY);
    std::vector<char> ba(1 << 20), bb(1 << 20);
    bool iguales = ok_b && ok_f && fa >= 0 && fb >= 0;
    ssize_t na, nb;
    while (iguales && (na = ::read(fa, ba.data(), ba.size())) > 0) {
      nb = ::read(fb, bb.data(), bb.size());
      iguales = na == nb && std::memcmp(ba.data(), bb.data(), static_cast<size_t>(na)) == 0;
    }
    if (fa >= 0) ::close(fa);
    if (fb >= 0) ::close(fb);
    if (!iguales) {
      std::printf("  moved files differ\n");
      fallos++;
    }
    ::unlink(copia.c_str());
  }
  ::unlink(path.c_str());
  ::rmdir(plantilla.c_str());
  std::printf("\nratio = file layer time / baseline time\n");
  return fallos ? 1 : 0;
}
