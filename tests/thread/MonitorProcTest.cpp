#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>

#include "ThreadTestSupport.h"
#include "thread/MonitorProc.h"

namespace {

TEST(TMonitorProc, Percentages) {
  TMonitorProc m;
  EXPECT_FLOAT_EQ(m.Porcentaje(), 0.0f);  // not yet started: -1 steps done

  m.Start(200);
  EXPECT_TRUE(m.Incre(50));
  EXPECT_FLOAT_EQ(m.Porcentaje(), 25.0f);
  {
    TMonitorProcHijo child(&m, 100);
    EXPECT_TRUE(m.hijo == &child && child.padre == &m);
    EXPECT_FLOAT_EQ(m.Porcentaje(), 25.0f);  // a fresh child adds nothing
    child.Start(10);
    child.Incre(5);
    EXPECT_FLOAT_EQ(m.Porcentaje(), 50.0f);
    TMonitorProcHijo grandchild(&child, 4);
    grandchild.Start(2);
    grandchild.Incre(1);
    EXPECT_FLOAT_EQ(m.Porcentaje(), 60.0f);  // (50 + 100 * 7 / 10) / 200
  }
  // Not clamped above 100.
  m.Incre(150);
  EXPECT_FLOAT_EQ(m.Porcentaje(), 150.0f);
  m.SetNpasos(0);
  EXPECT_FLOAT_EQ(m.Porcentaje(), 0.0f);
}

TEST(TMonitorProc, CancelOfTheRootStopsAGrandchild) {
  TMonitorProc root;
  TMonitorProcHijo child(&root, 5);
  TMonitorProcHijo grandchild(&child, 2);
  grandchild.Start(100);
  EXPECT_TRUE(grandchild.Incre(1));
  root.Cancelar();
  EXPECT_TRUE(root.stop && child.stop && grandchild.stop);
  EXPECT_FALSE(grandchild.Incre(1));
  EXPECT_EQ(grandchild.actual, 2);  // counted even so
  // A restart clears only the grandchild's own flag; the ancestors' stop
  // still reaches it.
  grandchild.Start(100);
  EXPECT_FALSE(grandchild.stop);
  EXPECT_FALSE(grandchild.Incre(1));
  // A child of a stopped parent starts stopped.
  TMonitorProcHijo late(&grandchild, 1);
  EXPECT_FALSE(late.stop);
  TMonitorProcHijo late2(&root, 1);
  EXPECT_TRUE(late2.stop);
}

struct CancelLog {
  int calls = 0;
  static void Note(void* ctx) { ++static_cast<CancelLog*>(ctx)->calls; }
};

TEST(TMonitorProc, CancelCallsTheCallbackOfEveryLevelDownwards) {
  CancelLog root_log, child_log;
  TMonitorProc root;
  root.func_cancel = &CancelLog::Note;
  root.contexto_cancel = &root_log;
  TMonitorProcHijo child(&root, 1);
  child.func_cancel = &CancelLog::Note;
  child.contexto_cancel = &child_log;
  root.Cancelar();
  child.Cancelar();
  EXPECT_EQ(root_log.calls, 1);
  EXPECT_EQ(child_log.calls, 2);
}

TEST(TMonitorProc, DestroyedChildHandsItsWeightAndStopToTheParent) {
  TMonitorProc root;
  root.Start(100);
  root.Incre(10);
  {
    TMonitorProcHijo child(&root, 30);
    child.Start(10);
    child.Incre(3);
    child.Cancelar();
    EXPECT_TRUE(root.Incre(0));  // the child's stop stays with it while it lives
  }
  EXPECT_EQ(root.actual, 40);
  EXPECT_EQ(root.hijo, nullptr);
  EXPECT_FALSE(root.Incre(0));
  // The hand-over is an assignment: a child that cleared its own flag
  // clears the parent's as well.
  {
    TMonitorProcHijo child(&root, 5);
    EXPECT_TRUE(child.stop);
    child.Start(10);
  }
  EXPECT_FALSE(root.stop);
  EXPECT_EQ(root.actual, 45);
}

TEST(TMonitorProc, ResetAndDestructionUnlinkBothWays) {
  TMonitorProc root;
  root.Start(50);
  root.Incre(20);
  root.SetTexto("copying");
  root.SetSubtexto("a.shp");
  root.reservado = 7;
  root.stop = true;
  auto child = std::make_unique<TMonitorProcHijo>(&root, 25);
  root.Reset();
  EXPECT_TRUE(root.actual == -1 && root.npasos == 10 && !root.stop && root.reservado == 0);
  EXPECT_TRUE(root.texto.IsEmpty() && root.subtexto.IsEmpty());
  EXPECT_TRUE(root.hijo == nullptr && child->padre == nullptr);
  child.reset();  // the child of the earlier run no longer counts
  EXPECT_EQ(root.actual, -1);

  child = std::make_unique<TMonitorProcHijo>(&root, 25);
  child->Reset();
  EXPECT_EQ(root.hijo, nullptr);
  child.reset();
  EXPECT_EQ(root.actual, -1);

  auto parent = std::make_unique<TMonitorProc>();
  TMonitorProcHijo orphan(parent.get(), 5);
  parent.reset();
  EXPECT_EQ(orphan.padre, nullptr);
  EXPECT_TRUE(orphan.Incre(1));
}

// A root that counts the refresh requests reaching it.
class RefreshCounter : public TMonitorProc {
 public:
  void Actu() override { ++refreshes; }
  int refreshes = 0;
};

TEST(TMonitorProc, TextsAndRefreshesCrossTheLevels) {
  RefreshCounter root;
  root.SetTexto("A");
  root.SetSubtexto("B");
  TMonitorProcHijo child(&root, 1);
  EXPECT_STREQ(root.Texto_Proceso(true).c_str(), "A  B");
  child.texto = "C";
  EXPECT_STREQ(root.Texto_Proceso(true).c_str(), "A  B C");
  EXPECT_STREQ(root.Texto_Proceso(false).c_str(), "A  B");
  root.DeleteStr();
  EXPECT_STREQ(root.Texto_Proceso(true).c_str(), " C");

  TMonitorProcHijo grandchild(&child, 1);
  grandchild.SetNpasos(40);
  EXPECT_EQ(root.refreshes, 1);
}

TEST(TMonitorProcCritSect, HoldsTheProcessWideRecursiveLock) {
  TMonitorProc m;
  m.Start(4);
  m.Incre(1);
  {
    TMonitorProcCritSect lock;
    EXPECT_FLOAT_EQ(m.Porcentaje(), 25.0f);  // the holder may still use monitors
    EXPECT_FALSE(FreeForOtherThreads(TMonitorProc::CritSect().Mutex()));
  }
  EXPECT_TRUE(FreeForOtherThreads(TMonitorProc::CritSect().Mutex()));
}

TEST(TMonitorProcThreads, CancelFromAnotherThreadStopsAWorkingGrandchild) {
  TMonitorProc root;
  root.Start(3);
  Gate counting;
  std::atomic<bool> stopped{false};
  FnThread worker([&] {
    TMonitorProcHijo child(&root, 2);
    TMonitorProcHijo grandchild(&child, 1000);
    grandchild.Start(1 << 30);
    grandchild.SetTexto("working");
    for (int i = 0; i < (1 << 30) && !stopped; ++i) {
      stopped = !grandchild.Incre(1);
      if (i == 0) counting.Open();
      if (i % 64 == 0) grandchild.SetSubtexto(i % 128 ? "odd" : "even");
    }
  });
  ASSERT_TRUE(worker.Start());
  counting.Wait();
  for (int i = 0; i < 200; ++i) {
    EXPECT_GE(root.Porcentaje(), 0.0f);
    EXPECT_NE(std::strstr(root.Texto_Proceso(true).c_str(), "working"), nullptr);
  }
  root.Cancelar();
  worker.WaitFor();
  EXPECT_TRUE(stopped.load());
  EXPECT_TRUE(root.stop && root.hijo == nullptr && root.actual == 2);
}

// The child's flag is handed up by assignment, so a cancel that lands while
// the child is going may be withdrawn; what must hold is the bookkeeping.
TEST(TMonitorProcThreads, ChildEndingWhileTheRootIsCancelledUnlinksCleanly) {
  for (int round = 0; round < 50; ++round) {
    TMonitorProc root;
    root.Start(10);
    auto child = std::make_unique<TMonitorProcHijo>(&root, 4);
    child->Start(5);
    Gate go;
    FnThread ender([&] {
      go.Wait();
      child->Incre(5);
      child.reset();
    });
    ASSERT_TRUE(ender.Start());
    go.Open();
    root.Cancelar();
    ender.WaitFor();
    EXPECT_TRUE(root.actual == 4 && root.hijo == nullptr);
  }
}

}  // namespace
