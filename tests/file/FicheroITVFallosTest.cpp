// Failures of the disk backend reach the caller: writes, seeks, reads,
// closes, with the operating system's error number.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "EnHijo.h"
#include "support/TempDir.h"
#include "file/FicheroITVdatos.h"

namespace {

TStringNomFitx N(const std::string& s) { return TStringNomFitx(s.c_str()); }

class FicheroITVFallosTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(tmp.ok()); }
  TempDir tmp;
};

TEST_F(FicheroITVFallosTest, WritesToAFullDeviceFailWithENOSPC) {
  if (::access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full";
  TFicheroITV f;
  ASSERT_TRUE(f.Abre(N("/dev/full"), MODO_ESCRIBIR | MODO_BINARIO, nullptr));
  EXPECT_EQ(f.ErrnoSistema(), 0);
  EXPECT_FALSE(f.PonTokenBin("abcd", 4, nullptr, -1));
  EXPECT_EQ(f.ErrnoSistema(), ENOSPC);
  EXPECT_EQ(f.CierraEx(), 1);
  // A copy into it fails, and the destination tells why.
  ASSERT_TRUE(tmp.Write("ok.bin", "abcd"));
  TFicheroITV src, dst;
  ASSERT_TRUE(src.Abre(N((tmp / "ok.bin")), MODO_LEER | MODO_BINARIO, nullptr));
  ASSERT_TRUE(dst.Abre(N("/dev/full"), MODO_ESCRIBIR | MODO_BINARIO, nullptr));
  EXPECT_FALSE(src.CopyFileData(dst, 4, nullptr, false));
  EXPECT_EQ(dst.ErrnoSistema(), ENOSPC);
  EXPECT_EQ(src.ErrnoSistema(), 0);
}

TEST_F(FicheroITVFallosTest, WritesPastTheFileSizeLimitFailWithEFBIG) {
  std::string nombre = (tmp / "limit.bin");
  int r = EnHijoConLimite(1000, [&]() {
    TFicheroITV f;
    int modo = MODO_ESCRIBIR | MODO_BINARIO | MODO_ACTUALIZAR;
    if (!f.Abre(N(nombre), modo, nullptr)) return 1;
    std::string datos = Pattern(600);
    if (!f.PonTokenBin(datos.data(), 600, nullptr, -1)) return 2;
    // The second write stops at the limit: part of it is written, and it
    // fails.
    if (f.PonTokenBin(datos.data(), 600, nullptr, -1)) return 3;
    if (f.ErrnoSistema() != EFBIG) return 4;
    if (f.PosActual64() != 1000) return 5;
    // A move whose target lies past the limit fails the same way.
    if (f.MoveBytesEnd64(0, 500, 4096, 900)) return 6;
    if (f.ErrnoSistema() != EFBIG) return 7;
    if (f.CierraEx() != 1) return 8;
    return 0;
  });
  EXPECT_EQ(r, 0);
  EXPECT_EQ(tmp.Read("limit.bin").size(), 1000u);
}

TEST_F(FicheroITVFallosTest, FailedSeeksAndSyncsAreReported) {
  ASSERT_TRUE(tmp.Write("a.bin", Pattern(100)));
  for (int cache : {0, MODO_CACHE}) {
    SCOPED_TRACE(cache);
    TFicheroITV f;
    ASSERT_TRUE(f.Abre(N((tmp / "a.bin")), MODO_LEER | MODO_BINARIO | cache, nullptr));
    EXPECT_FALSE(f.Posicionate64(-5));
    EXPECT_EQ(f.ErrnoSistema(), EINVAL);
    EXPECT_TRUE(f.Posicionate64(40));
    unsigned char c = 0;
    f >> c;
    EXPECT_EQ(c, 40);
  }
  // A pipe cannot seek at all.
  int p[2];
  ASSERT_EQ(::pipe(p), 0);
  ASSERT_EQ(::write(p[1], "xyz", 3), 3);
  TFicheroITV f;
  std::string nombre = "/proc/self/fd/" + std::to_string(p[0]);
  if (f.Abre(N(nombre), MODO_LEER | MODO_BINARIO, nullptr)) {
    EXPECT_FALSE(f.Posicionate64(2));
    EXPECT_EQ(f.ErrnoSistema(), ESPIPE);
    // Nor be made durable.
    EXPECT_FALSE(f.Sincroniza());
    EXPECT_EQ(f.ErrnoSistema(), EINVAL);
    f.CierraEx();
  }
  ::close(p[0]);
  ::close(p[1]);
  // A closed object.
  EXPECT_FALSE(f.Posicionate64(0));
  EXPECT_EQ(f.ErrnoSistema(), EBADF);
  EXPECT_FALSE(f.PonTokenBin("a", 1, nullptr, -1));
  EXPECT_EQ(f.ErrnoSistema(), EBADF);
}

TEST_F(FicheroITVFallosTest, ReadsPastTheEndAndWritesToReadOnlyFiles) {
  ASSERT_TRUE(tmp.Write("a.bin", "abc"));
  TFicheroITV f;
  ASSERT_TRUE(f.Abre(N((tmp / "a.bin")), MODO_LEER | MODO_BINARIO, nullptr));
  char b[8];
  EXPECT_FALSE(f.LeeTokenBin(b, 8, nullptr, -1));
  EXPECT_EQ(f.ErrnoSistema(), 0);  // the data ended: no system error
  EXPECT_TRUE(f.eof());
  EXPECT_EQ(f.PosActual64(), 3);
  EXPECT_FALSE(f.PonTokenBin("x", 1, nullptr, -1));
  EXPECT_EQ(f.ErrnoSistema(), EBADF);
  EXPECT_TRUE(f.Posicionate64(0));  // a seek clears the end of file, as for a stream
  EXPECT_FALSE(f.eof());
  EXPECT_TRUE(f.LeeTokenBin(b, 3, nullptr, -1));
  EXPECT_FALSE(f.eof());  // read exactly to the end: not yet past it
  EXPECT_EQ(tmp.Read("a.bin"), "abc");
}

// Every write has reached the kernel when it returns: a process killed
// right after it loses nothing.
TEST_F(FicheroITVFallosTest, WritesSurviveAKilledProcess) {
  std::string nombre = (tmp / "k.bin");
  pid_t pid = ::fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    TFicheroITV f;
    if (f.Abre(N(nombre), MODO_ESCRIBIR | MODO_BINARIO, nullptr)) {
      f << 1234567 << 2.5;
      f.PonTokenBin("tail", 4, nullptr, -1);
    }
    ::raise(SIGKILL);
  }
  int estado = 0;
  ASSERT_EQ(::waitpid(pid, &estado, 0), pid);
  ASSERT_TRUE(WIFSIGNALED(estado));
  std::string esperado(16, '\0');
  int v = 1234567;
  double d = 2.5;
  std::memcpy(&esperado[0], &v, 4);
  std::memcpy(&esperado[4], &d, 8);
  std::memcpy(&esperado[12], "tail", 4);
  EXPECT_EQ(tmp.Read("k.bin"), esperado);
}

// What each open mode reads and writes is compared with the memory disk in
// FaultDiskTest; here, what only the disk has.
TEST_F(FicheroITVFallosTest, NewFilesHonourTheUmaskAndCloseOnExec) {
  mode_t antes = ::umask(027);
  TFicheroITV f;
  ASSERT_TRUE(f.Abre(N((tmp / "perm.bin")), MODO_ESCRIBIR | MODO_BINARIO, nullptr));
  ::umask(antes);
  struct stat st;
  ASSERT_EQ(::stat((tmp / "perm.bin").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  // The descriptor does not leak into programs the host starts.
  bool visto = false;
  for (int fd = 0; fd < 1024; fd++) {
    char enlace[512];
    std::string proc = "/proc/self/fd/" + std::to_string(fd);
    ssize_t n = ::readlink(proc.c_str(), enlace, sizeof enlace - 1);
    if (n <= 0 || std::string(enlace, static_cast<size_t>(n)) != (tmp / "perm.bin")) continue;
    visto = true;
    EXPECT_NE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
  }
  EXPECT_TRUE(visto || ::access("/proc/self/fd", F_OK) != 0);
}

TEST_F(FicheroITVFallosTest, TruncateAndSyncWithAndWithoutTheCache) {
  ASSERT_TRUE(tmp.Write("t.bin", Pattern(1000)));
  TFicheroITV f;
  ASSERT_TRUE(f.Abre(N((tmp / "t.bin")), MODO_LEER | MODO_BINARIO | MODO_ACTUALIZAR, nullptr));
  f.Posicionate64(900);
  EXPECT_TRUE(f.Trunca64(100));
  EXPECT_EQ(f.PosActual64(), 900);  // the position does not move
  EXPECT_EQ(f.FileSize64(), 100);
  EXPECT_TRUE(f.Sincroniza());
  EXPECT_FALSE(f.Trunca64(-1));
  EXPECT_EQ(f.ErrnoSistema(), EINVAL);
  f.CierraEx();
  EXPECT_EQ(tmp.Read("t.bin"), Pattern(100));
  EXPECT_FALSE(f.Sincroniza());
  EXPECT_EQ(f.ErrnoSistema(), EBADF);

  ASSERT_TRUE(f.Abre(N((tmp / "t.bin")), MODO_LEER | MODO_BINARIO | MODO_CACHE, nullptr));
  EXPECT_FALSE(f.Trunca64(10));  // opened for reading only
  EXPECT_EQ(f.ErrnoSistema(), EINVAL);
  f.CierraEx();

  // The cached span shrinks with the file: past the new end nothing of the
  // old content is served.
  ASSERT_TRUE(tmp.Write("s.bin", Pattern(1000)));
  ASSERT_TRUE(f.Abre(N((tmp / "s.bin")), MODO_LEER | MODO_BINARIO | MODO_ACTUALIZAR, nullptr));
  f.SetCache(true);
  f.Posicionate64(10);
  ASSERT_TRUE(f.Trunca64(20));
  char b[8];
  EXPECT_TRUE(f.LeeTokenBin(b, 8, nullptr, -1));
  EXPECT_EQ(std::string(b, 8), Pattern(18).substr(10));
  EXPECT_TRUE(f.LeeTokenBin(b, 8, nullptr, -1));
  EXPECT_EQ(std::string(b, 8), Pattern(20).substr(18) + std::string(6, '\0'));
  f.Posicionate64(500);
  EXPECT_TRUE(f.eof());
  f.CierraEx();

  // A memory file is as durable as it gets, and is not truncated here.
  TFicheroITVdatos m(MODO_LEER | MODO_ESCRIBIR | MODO_BINARIO, 0);
  m << 5;
  EXPECT_TRUE(m.Sincroniza());
  EXPECT_FALSE(m.Trunca64(0));
  EXPECT_EQ(m.ErrnoSistema(), EINVAL);
}

}  // namespace
