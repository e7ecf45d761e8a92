// The test file systems, through real file objects: the memory disk answers
// every open mode and operation as the disk does, and the fault disk fails,
// crashes and logs as its tests ask of it.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "file/FicheroITV.h"
#include "file/SistemaFicheros.h"
#include "filesys/FitxUtils.h"
#include "filesys/StringNomFitx.h"
#include "support/FaultDisk.h"
#include "support/MemoryDisk.h"
#include "support/TempDir.h"

namespace {

using Bytes = MemoryDisk::Bytes;

std::string S(const Bytes& b) { return std::string(b.begin(), b.end()); }

TStringNomFitx N(const std::string& s) { return TStringNomFitx(s.c_str()); }

bool Write(TFicheroITV& f, const std::string& s) {
  return f.PonTokenBin(s.data(), static_cast<int>(s.size()), nullptr, -1);
}

// Bytes as text, zeros shown as ".".
std::string Show(const char* p, size_t n) {
  std::string s(p, n);
  for (char& c : s)
    if (c == '\0') c = '.';
  return s;
}

// One script of operations on a file object; what each answered, in text.
std::string Script(TFicheroITV& f, const std::string& name, int mode) {
  std::ostringstream out;
  DString err;
  const bool open = f.Abre(N(name), mode, &err);
  out << "open " << open;
  if (!open) {
    out << " errno " << f.ErrnoSistema();
    return out.str();
  }
  out << " pos " << f.PosActual64();
  char buf[8] = {};
  out << " | read3 " << f.LeeTokenBin(buf, 3, nullptr, -1) << " " << Show(buf, 3);
  const bool wrote = Write(f, "XY");
  out << " | write " << wrote << " errno " << (wrote ? 0 : f.ErrnoSistema());
  out << " | pos " << f.PosActual64() << " size " << f.FileSize64();
  out << " | seek1 " << f.Posicionate64(1);
  std::memset(buf, 0, sizeof buf);
  out << " read3 " << f.LeeTokenBin(buf, 3, nullptr, -1) << " " << Show(buf, 3);
  out << " | seek10 write " << f.Posicionate64(10) << Write(f, "Z");
  out << " | seek-1 " << f.Posicionate64(-1) << " errno " << f.ErrnoSistema();
  out << " | seek8 read8 " << f.Posicionate64(8) << f.LeeTokenBin(buf, 8, nullptr, -1)
      << " " << Show(buf, 8) << " eof " << f.eof() << " errno " << f.ErrnoSistema();
  out << " | trunc4 " << f.Trunca64(4) << " size " << f.FileSize64();
  out << " | sync " << f.Sincroniza() << " | close " << f.CierraEx(true, nullptr);
  return out.str();
}

struct ModeCase {
  const char* what;
  int mode;
  bool existing;
};

const ModeCase kModes[] = {
    {"r", MODO_LEER | MODO_BINARIO, true},
    {"r missing", MODO_LEER | MODO_BINARIO, false},
    {"r+", MODO_LEER | MODO_ACTUALIZAR | MODO_BINARIO, true},
    {"r+ missing", MODO_LEER | MODO_ACTUALIZAR | MODO_BINARIO, false},
    {"w", MODO_ESCRIBIR | MODO_BINARIO, true},
    {"w missing", MODO_ESCRIBIR | MODO_BINARIO, false},
    {"w+", MODO_ESCRIBIR | MODO_ACTUALIZAR | MODO_BINARIO, true},
    {"a", MODO_ANYADIR | MODO_BINARIO, true},
    {"a missing", MODO_ANYADIR | MODO_BINARIO, false},
    {"a+", MODO_ANYADIR | MODO_ACTUALIZAR | MODO_BINARIO, true},
};

TEST(MemoryDisk, EveryOpenModeAnswersAsTheDisk) {
  TempDir tmp;
  ASSERT_TRUE(tmp.ok());
  for (const ModeCase& c : kModes) {
    SCOPED_TRACE(c.what);
    const std::string on_disk = tmp / "f.bin";
    std::remove(on_disk.c_str());
    if (c.existing) {
      ASSERT_TRUE(tmp.Write("f.bin", "abcdef"));
    }
    std::string disk_answers;
    {
      TFicheroITV f;
      disk_answers = Script(f, on_disk, c.mode);
    }
    MemoryDisk mem;
    if (c.existing) mem.Put("m/f.bin", "abcdef");
    std::string memory_answers;
    {
      ScopedFileSystem use(mem);
      TFicheroITV f;
      memory_answers = Script(f, "m/f.bin", c.mode);
    }
    EXPECT_EQ(memory_answers, disk_answers);
    EXPECT_EQ(mem.Exists("m/f.bin"), tmp.Exists("f.bin"));
    EXPECT_EQ(mem.GetString("m/f.bin"), tmp.Read("f.bin"));
  }
}

TEST(MemoryDisk, NamesFilesAndReadOnlyFolder) {
  MemoryDisk mem;
  ScopedFileSystem use(mem);
  TSistemaFicheros& fs = SistemaFicheros();
  ASSERT_EQ(&fs, &mem);
  mem.Put("d/a", "12345");
  EXPECT_EQ(fs.Tipo("d/a"), TSistemaFicheros::kRegular);
  EXPECT_EQ(fs.Tipo("d/b"), TSistemaFicheros::kNoExiste);
  EXPECT_EQ(fs.Tamanyo("d/a"), 5);
  EXPECT_EQ(fs.Tamanyo("d/b"), -1);

  // Renamed and removed while open: the open file lives on.
  TFicheroITV f;
  ASSERT_TRUE(f.Abre(N("d/a"), MODO_LEER | MODO_ACTUALIZAR | MODO_BINARIO, nullptr));
  ASSERT_TRUE(fs.Renombra("d/a", "d/b"));
  EXPECT_TRUE(Write(f, "AB"));
  EXPECT_EQ(mem.GetString("d/b"), "AB345");
  ASSERT_TRUE(fs.Borra("d/b"));
  EXPECT_TRUE(Write(f, "C"));
  EXPECT_EQ(f.FileSize64(), 5);
  EXPECT_EQ(f.CierraEx(true, nullptr), 1);
  EXPECT_TRUE(mem.Names().empty());
  errno = 0;
  EXPECT_FALSE(fs.Borra("d/b"));
  EXPECT_EQ(errno, ENOENT);

  mem.Put("d/kept", "x");
  mem.SetReadOnly(true);
  TFicheroITV g;
  EXPECT_FALSE(g.Abre(N("d/new"), MODO_ESCRIBIR | MODO_BINARIO, nullptr));
  EXPECT_EQ(g.ErrnoSistema(), EACCES);
  EXPECT_FALSE(fs.Renombra("d/kept", "d/other"));
  EXPECT_EQ(errno, EACCES);
  EXPECT_FALSE(fs.Borra("d/kept"));
  // Files already there stay writable.
  ASSERT_TRUE(g.Abre(N("d/kept"), MODO_ESCRIBIR | MODO_BINARIO, nullptr));
  EXPECT_TRUE(Write(g, "yy"));
  g.CierraEx(true, nullptr);
  EXPECT_EQ(mem.Names(), std::vector<std::string>{"d/kept"});
  EXPECT_EQ(mem.GetString("d/kept"), "yy");
}

class FaultDiskTest : public ::testing::Test {
 protected:
  FaultDiskTest() : faults(mem), use(faults) {}
  // Opens `name` for writing (created or truncated).
  void Create(TFicheroITV& f, const std::string& name) {
    ASSERT_TRUE(f.Abre(N(name), MODO_ESCRIBIR | MODO_BINARIO, nullptr));
  }
  MemoryDisk mem;
  FaultDisk faults;
  ScopedFileSystem use;
};

TEST_F(FaultDiskTest, FailsTheNthWriteOnceOrFromThenOnPerFile) {
  faults.Fail(FaultDisk::kWrite, 2, ENOSPC);
  TFicheroITV f;
  Create(f, "a");
  EXPECT_TRUE(Write(f, "11"));
  EXPECT_FALSE(Write(f, "22"));
  EXPECT_EQ(f.ErrnoSistema(), ENOSPC);
  EXPECT_TRUE(Write(f, "33"));
  f.CierraEx(true, nullptr);
  EXPECT_EQ(mem.GetString("a"), "1133");  // nothing of the failed write landed
  EXPECT_EQ(faults.Count(FaultDisk::kWrite), 3);
  EXPECT_EQ(faults.Injected(), 1);

  // Named: counted by the part after the last "/", so "b" is not "bb" nor
  // "sub/b.bak"; from then on, every later write to it fails.
  faults.Reset();
  faults.Fail(FaultDisk::kWrite, 2, EIO, "b", true);
  TFicheroITV a, b, bb;
  Create(a, "sub/a");
  Create(b, "sub/b");
  Create(bb, "sub/bb");
  EXPECT_TRUE(Write(a, "1") && Write(bb, "1") && Write(b, "1") && Write(a, "2") && Write(bb, "2"));
  EXPECT_FALSE(Write(b, "2"));
  EXPECT_FALSE(Write(b, "3"));
  EXPECT_EQ(b.ErrnoSistema(), EIO);
  EXPECT_TRUE(Write(a, "3"));
  EXPECT_EQ(faults.Injected(), 2);
}

// Each kind fails once with its error, and the same call then succeeds.
TEST_F(FaultDiskTest, FailsEveryKindOfOperation) {
  mem.Put("f", "abcdef");
  mem.Put("x", "1");
  TFicheroITV f, g;
  ASSERT_TRUE(f.Abre(N("f"), MODO_LEER | MODO_ACTUALIZAR | MODO_BINARIO, nullptr));
  TSistemaFicheros& fs = SistemaFicheros();
  auto De = [](TFicheroITV& h, bool ok) { return ok ? 0 : h.ErrnoSistema(); };
  auto Sys = [](bool ok) { return ok ? 0 : errno; };
  const struct {
    FaultDisk::Op op;
    int error;
    std::function<int()> call;
  } casos[] = {
      {FaultDisk::kOpen, EMFILE,
       [&] {
         const int e = De(g, g.Abre(N("x"), MODO_LEER | MODO_BINARIO, nullptr));
         g.CierraEx();
         return e;
       }},
      {FaultDisk::kSeek, EINVAL, [&] { return De(f, f.Posicionate64(3)); }},
      {FaultDisk::kWrite, ENOSPC, [&] { return De(f, Write(f, "X")); }},
      {FaultDisk::kSync, EIO, [&] { return De(f, f.Sincroniza()); }},
      {FaultDisk::kSync, ENOSPC, [&] { return De(f, f.Flush() == 0); }},
      {FaultDisk::kTruncate, EPERM, [&] { return De(f, f.Trunca64(6)); }},
      {FaultDisk::kRemove, EBUSY, [&] { return Sys(fs.Borra("x") && (mem.Put("x", "1"), true)); }},
      {FaultDisk::kRename, EXDEV,
       [&] { return Sys(fs.Renombra("x", "y") && fs.Renombra("y", "x")); }},
  };
  for (const auto& c : casos) {
    SCOPED_TRACE(c.op);
    faults.Reset();
    faults.Fail(c.op, 1, c.error);
    errno = 0;
    EXPECT_EQ(c.call(), c.error);
    EXPECT_EQ(c.call(), 0);
  }
  EXPECT_EQ(mem.Names(), (std::vector<std::string>{"f", "x"}));
  faults.Fail(FaultDisk::kClose, 1, EDQUOT);
  DString err;
  EXPECT_EQ(f.CierraEx(true, &err), 0);
  EXPECT_EQ(f.ErrnoSistema(), EDQUOT);
  EXPECT_NE(std::string(err.c_str()).find(std::strerror(EDQUOT)), std::string::npos) << err.c_str();
  // The file is closed all the same, and what was written is there.
  EXPECT_FALSE(f.Abierto());
  EXPECT_EQ(mem.GetString("f"), "abcXef");
}

TEST_F(FaultDiskTest, CrashTearsTheWriteAtTheLimitAndDropsEverythingAfter) {
  mem.Put("keep", "kkkk");
  faults.CrashAfterBytes(10);
  TFicheroITV f;
  Create(f, "f");
  EXPECT_TRUE(Write(f, "012345"));
  EXPECT_FALSE(faults.Crashed());
  EXPECT_TRUE(Write(f, "6789AB"));  // torn: "6789" lands
  EXPECT_TRUE(faults.Crashed());
  // The process goes on believing every call, positions included.
  EXPECT_EQ(f.PosActual64(), 12);
  EXPECT_TRUE(Write(f, "CD"));
  EXPECT_TRUE(f.Trunca64(2));
  EXPECT_TRUE(f.Sincroniza());
  EXPECT_EQ(f.CierraEx(true, nullptr), 1);
  TFicheroITV g;
  Create(g, "keep");  // would truncate: left alone
  EXPECT_TRUE(Write(g, "new"));
  g.CierraEx(true, nullptr);
  Create(g, "born");  // would create: never appears
  EXPECT_TRUE(Write(g, "new"));
  g.CierraEx(true, nullptr);
  TSistemaFicheros& fs = SistemaFicheros();
  EXPECT_TRUE(fs.Renombra("f", "g"));
  EXPECT_TRUE(fs.Borra("keep"));
  EXPECT_EQ(mem.Names(), (std::vector<std::string>{"f", "keep"}));
  EXPECT_EQ(mem.GetString("f"), "0123456789");
  EXPECT_EQ(mem.GetString("keep"), "kkkk");
  // Counted in write calls instead.
  faults.Reset();
  faults.CrashAfterWrites(2);
  Create(f, "w");
  EXPECT_TRUE(Write(f, "ab") && Write(f, "cd"));
  EXPECT_TRUE(faults.Crashed());
  EXPECT_TRUE(Write(f, "ef"));
  f.CierraEx(true, nullptr);
  EXPECT_EQ(mem.GetString("w"), "abcd");
}

TEST_F(FaultDiskTest, LogRebuildsTheFilesAsAPowerCutLeavesThem) {
  mem.Put("d/map", "0000000000");
  const FileImages before = mem.Files();
  TFicheroITV f;
  ASSERT_TRUE(f.Abre(N("d/map"), MODO_LEER | MODO_ACTUALIZAR | MODO_BINARIO, nullptr));
  ASSERT_TRUE(Write(f, "AA"));        // 0: synced below
  ASSERT_TRUE(f.Sincroniza());        // 1
  ASSERT_TRUE(f.Posicionate64(8));
  ASSERT_TRUE(Write(f, "BB"));        // 2: never synced
  f.CierraEx(true, nullptr);
  TFicheroITV t;
  Create(t, "d/new.tmp");             // 3: create
  ASSERT_TRUE(Write(t, "new"));       // 4
  ASSERT_TRUE(t.Sincroniza());        // 5
  t.CierraEx(true, nullptr);
  TSistemaFicheros& fs = SistemaFicheros();
  ASSERT_TRUE(fs.Renombra("d/new.tmp", "d/new"));  // 6
  ASSERT_TRUE(fs.SincronizaCarpeta("d/new"));       // 7
  ASSERT_TRUE(fs.Renombra("d/new", "d/moved"));     // 8: folder never synced

  const std::vector<FaultDisk::Event>& log = faults.Log();
  ASSERT_EQ(log.size(), 9u);
  EXPECT_EQ(log[2].kind, FaultDisk::Event::kWrite);
  EXPECT_EQ(log[2].offset, 8);
  EXPECT_EQ(S(log[2].bytes), "BB");
  EXPECT_EQ(log[3].kind, FaultDisk::Event::kCreate);
  EXPECT_EQ(log[8].to, "d/moved");
  EXPECT_EQ(log[8].file, log[4].file);  // a file keeps its identity through renames
  EXPECT_EQ(Volatile(log), (std::vector<size_t>{2, 8}));

  FileImages lost = AfterPowerLoss(before, log);
  EXPECT_EQ(S(lost["d/map"]), "AA00000000");
  EXPECT_EQ(S(lost["d/new"]), "new");
  EXPECT_EQ(lost.size(), 2u);

  FileImages kept = AfterPowerLoss(before, log, {2, 8});
  EXPECT_EQ(kept, mem.Files());
  EXPECT_EQ(S(kept["d/map"]), "AA000000BB");
  EXPECT_EQ(S(kept["d/moved"]), "new");
}

TEST_F(FaultDiskTest, DurableBackupIsWholeOrAbsentAfterAnyPowerCut) {
  // The copy that backups are made with, cut at every point: the source is
  // never touched and the backup is never partial.
  const std::string data = Pattern(3000);
  mem.Put("d/m.shp", data);
  const FileImages before = mem.Files();
  ASSERT_TRUE(TFitxUtils::Backup_File(N("d/m.shp"), N("d/m.shp.bak")));
  ASSERT_EQ(mem.GetString("d/m.shp.bak"), data);
  ASSERT_GE(faults.Log().size(), 5u);  // create, write, sync, rename, folder sync
  // Once made, no power cut can take it back.
  EXPECT_TRUE(Volatile(faults.Log()).empty());
  int cuts = 0, with_backup = 0;
  ForEachPowerCut(before, faults.Log(), [&](const FileImages& after, const std::string& what) {
    cuts++;
    EXPECT_EQ(S(after.at("d/m.shp")), data) << what;
    auto bak = after.find("d/m.shp.bak");
    if (bak == after.end()) return;
    with_backup++;
    EXPECT_EQ(S(bak->second), data) << what;
  });
  EXPECT_GT(with_backup, 0);
  EXPECT_GT(cuts, with_backup);

  // A plain copy is not: some cut leaves it partial, which the rebuild shows.
  faults.Reset();
  DString error;
  ASSERT_TRUE(TFitxUtils::Copy(N("d/m.shp"), N("d/plain"), error, true, nullptr));
  int partial = 0;
  ForEachPowerCut(before, faults.Log(), [&](const FileImages& after, const std::string&) {
    auto copy = after.find("d/plain");
    partial += copy != after.end() && S(copy->second) != data;
  });
  EXPECT_GT(partial, 0);
}

TEST(FaultDiskOverTheDisk, FailsAndLogsRealFiles) {
  TempDir tmp;
  ASSERT_TRUE(tmp.ok());
  FaultDisk faults(SistemaFicheros());
  ScopedFileSystem use(faults);
  faults.Fail(FaultDisk::kWrite, 1, ENOSPC);
  TFicheroITV f;
  ASSERT_TRUE(f.Abre(N(tmp / "f"), MODO_ESCRIBIR | MODO_BINARIO, nullptr));
  EXPECT_FALSE(Write(f, "lost"));
  EXPECT_EQ(f.ErrnoSistema(), ENOSPC);
  EXPECT_TRUE(Write(f, "kept"));
  EXPECT_TRUE(f.Sincroniza());
  EXPECT_EQ(f.CierraEx(true, nullptr), 1);
  EXPECT_EQ(tmp.Read("f"), "kept");
  ASSERT_EQ(faults.Log().size(), 3u);
  EXPECT_EQ(faults.Log()[0].kind, FaultDisk::Event::kCreate);
  EXPECT_EQ(faults.Log()[1].offset, 0);
  EXPECT_EQ(faults.Log()[2].kind, FaultDisk::Event::kSync);
}

}  // namespace
