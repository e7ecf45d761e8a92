#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>

#include "ThreadTestSupport.h"
#include "thread/MonitorProc.h"

namespace {

TEST(TMonitorProc, FreshMonitor) {
  TMonitorProc m;
  EXPECT_EQ(m.actual, -1);
  EXPECT_EQ(m.npasos, 10);
  EXPECT_FALSE(m.stop);
  EXPECT_TRUE(m.texto.IsEmpty());
  EXPECT_TRUE(m.subtexto.IsEmpty());
  EXPECT_TRUE(m.inicio.Es_NULL());
  EXPECT_EQ(m.reservado, 0);
  EXPECT_EQ(m.padre, nullptr);
  EXPECT_EQ(m.hijo, nullptr);
  EXPECT_EQ(m.peso, 0);
  EXPECT_EQ(m.marca, 43981);
  EXPECT_TRUE(m.VersionFuncCancel());
  EXPECT_EQ(m.func_cancel, nullptr);
  EXPECT_FLOAT_EQ(m.Porcentaje(), 0.0f);
  EXPECT_TRUE(m.Incre(1));
  EXPECT_EQ(m.actual, 0);
}

TEST(TMonitorProc, PercentageWithAChildShare) {
  TMonitorProc m;
  m.Start(200);
  EXPECT_TRUE(m.Incre(50));
  EXPECT_FLOAT_EQ(m.Porcentaje(), 25.0f);
  {
    TMonitorProcHijo child(&m, 100);
    EXPECT_EQ(m.hijo, &child);
    EXPECT_EQ(child.padre, &m);
    // A fresh child (count -1) adds nothing, never less than nothing.
    EXPECT_FLOAT_EQ(m.Porcentaje(), 25.0f);
    child.Start(10);
    EXPECT_TRUE(child.Incre(5));
    EXPECT_FLOAT_EQ(child.Porcentaje(), 50.0f);
    EXPECT_FLOAT_EQ(m.Porcentaje(), 50.0f);
    {
      TMonitorProcHijo grandchild(&child, 4);
      grandchild.Start(2);
      grandchild.Incre(1);
      // The child is at (5 + 2) / 10, so the root at (50 + 70) / 200.
      EXPECT_FLOAT_EQ(m.Porcentaje(), 60.0f);
    }
  }
  // The child handed over its whole weight.
  EXPECT_EQ(m.actual, 150);
  EXPECT_EQ(m.hijo, nullptr);
  EXPECT_FLOAT_EQ(m.Porcentaje(), 75.0f);
}

TEST(TMonitorProc, PercentageIsNotClampedAbove) {
  TMonitorProc m;
  m.Start(10);
  m.Incre(15);
  EXPECT_FLOAT_EQ(m.Porcentaje(), 150.0f);
  m.SetNpasos(0);
  EXPECT_FLOAT_EQ(m.Porcentaje(), 0.0f);
  m.npasos = -3;
  EXPECT_FLOAT_EQ(m.Porcentaje(), 0.0f);
  m.npasos = 10;
  m.actual = -20;
  EXPECT_FLOAT_EQ(m.Porcentaje(), 0.0f);
}

TEST(TMonitorProc, CancelOfTheRootStopsAGrandchild) {
  TMonitorProc root;
  root.Start(10);
  TMonitorProcHijo child(&root, 5);
  TMonitorProcHijo grandchild(&child, 2);
  grandchild.Start(100);
  EXPECT_TRUE(grandchild.Incre(1));
  EXPECT_FALSE(grandchild.HayStop());
  root.Cancelar();
  EXPECT_TRUE(root.stop);
  EXPECT_TRUE(child.stop);
  EXPECT_TRUE(grandchild.stop);
  EXPECT_FALSE(grandchild.Incre(1));
  EXPECT_EQ(grandchild.actual, 2);  // counted even so
  // Restarting the grandchild clears only its own flag; the ancestors' stop
  // still reaches it.
  grandchild.Start(100);
  EXPECT_FALSE(grandchild.stop);
  EXPECT_TRUE(grandchild.HayStop());
  EXPECT_FALSE(grandchild.Incre(1));
}

TEST(TMonitorProc, ChildOfAStoppedParentStartsStopped) {
  TMonitorProc root;
  root.stop = true;
  TMonitorProcHijo child(&root, 5);
  EXPECT_TRUE(child.stop);
  TMonitorProcHijo orphan(nullptr, 5);
  EXPECT_FALSE(orphan.stop);
  EXPECT_EQ(orphan.padre, nullptr);
  EXPECT_EQ(orphan.peso, 5);
  EXPECT_TRUE(orphan.Incre(1));
}

struct CancelLog {
  int calls = 0;
  static void Note(void* ctx) { ++static_cast<CancelLog*>(ctx)->calls; }
};

TEST(TMonitorProc, CancelCallsTheCallbackOfEveryLevel) {
  CancelLog root_log, child_log;
  TMonitorProc root;
  root.func_cancel = &CancelLog::Note;
  root.contexto_cancel = &root_log;
  TMonitorProcHijo child(&root, 1);
  child.func_cancel = &CancelLog::Note;
  child.contexto_cancel = &child_log;
  root.Cancelar();
  EXPECT_EQ(root_log.calls, 1);
  EXPECT_EQ(child_log.calls, 1);
  // A cancel of the child does not climb.
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
    // The child's stop stays with it while it lives.
    EXPECT_FALSE(root.stop);
    EXPECT_TRUE(root.Incre(0));
  }
  EXPECT_EQ(root.actual, 40);
  EXPECT_EQ(root.hijo, nullptr);
  EXPECT_TRUE(root.stop);
  EXPECT_FALSE(root.Incre(0));
}

TEST(TMonitorProc, ChildThatWasRestartedDoesNotWithdrawTheParentsStop) {
  TMonitorProc root;
  root.Start(100);
  {
    TMonitorProcHijo child(&root, 30);
    root.Cancelar();
    child.Start(10);  // clears the child's own flag
    EXPECT_FALSE(child.stop);
  }
  EXPECT_TRUE(root.stop);
  EXPECT_EQ(root.actual, 30);
}

TEST(TMonitorProc, ResetClearsStateAndUnlinksBothWays) {
  TMonitorProc root;
  root.Start(50);
  root.Incre(20);
  root.SetTexto("copying");
  root.SetSubtexto("a.shp");
  root.reservado = 7;
  root.stop = true;
  auto child = std::make_unique<TMonitorProcHijo>(&root, 25);
  root.Reset();
  EXPECT_EQ(root.actual, -1);
  EXPECT_EQ(root.npasos, 10);
  EXPECT_FALSE(root.stop);
  EXPECT_TRUE(root.texto.IsEmpty());
  EXPECT_TRUE(root.subtexto.IsEmpty());
  EXPECT_EQ(root.reservado, 0);
  EXPECT_EQ(root.hijo, nullptr);
  EXPECT_EQ(child->padre, nullptr);
  EXPECT_EQ(child->peso, 25);
  EXPECT_EQ(root.marca, 43981);
  // The child of the earlier run no longer counts into the parent.
  child.reset();
  EXPECT_EQ(root.actual, -1);

  // A child that is reset leaves its parent, which forgets it.
  auto child2 = std::make_unique<TMonitorProcHijo>(&root, 25);
  child2->Reset();
  EXPECT_EQ(root.hijo, nullptr);
  EXPECT_EQ(child2->padre, nullptr);
  child2.reset();
  EXPECT_EQ(root.actual, -1);
}

TEST(TMonitorProc, ParentDestroyedFirstIsForgottenByTheChild) {
  auto root = std::make_unique<TMonitorProc>();
  TMonitorProcHijo child(root.get(), 5);
  root.reset();
  EXPECT_EQ(child.padre, nullptr);
  EXPECT_TRUE(child.Incre(1));
}

TEST(TMonitorProc, ProcessTextJoinsTheLevels) {
  TMonitorProc root;
  root.SetTexto("A");
  root.SetSubtexto("B");
  EXPECT_STREQ(root.Texto_Proceso(false).c_str(), "A  B");
  TMonitorProcHijo child(&root, 1);
  EXPECT_STREQ(root.Texto_Proceso(true).c_str(), "A  B");
  child.texto = "C";
  EXPECT_STREQ(root.Texto_Proceso(true).c_str(), "A  B C");
  EXPECT_STREQ(root.Texto_Proceso(false).c_str(), "A  B");
  root.subtexto = "";
  EXPECT_STREQ(root.Texto_Proceso(true).c_str(), "A C");
  root.DeleteStr();
  EXPECT_TRUE(root.texto.IsEmpty());
  EXPECT_STREQ(root.Texto_Proceso(true).c_str(), " C");
}

// A root that counts the refresh requests that reach it.
class RefreshCounter : public TMonitorProc {
 public:
  void Actu() override { ++refreshes; }
  int refreshes = 0;
};

TEST(TMonitorProc, RefreshRequestsClimbToTheRoot) {
  RefreshCounter root;
  TMonitorProcHijo child(&root, 1);
  TMonitorProcHijo grandchild(&child, 1);
  grandchild.SetNpasos(40);
  EXPECT_EQ(grandchild.npasos, 40);
  EXPECT_EQ(root.refreshes, 1);
  root.SetNpasos(5);
  EXPECT_EQ(root.refreshes, 2);
  root.ActualizaBarras();
  TMonitorProcHijo orphan(nullptr, 1);
  orphan.SetNpasos(3);  // no parent to tell
  EXPECT_EQ(root.refreshes, 2);
}

TEST(TMonitorProcCritSect, HoldsTheProcessWideRecursiveLock) {
  TMonitorProc m;
  m.Start(4);
  m.Incre(1);
  {
    TMonitorProcCritSect lock;
    // The same thread may still use the monitors.
    EXPECT_FLOAT_EQ(m.Porcentaje(), 25.0f);
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
    child.Start(1000);
    TMonitorProcHijo grandchild(&child, 1000);
    grandchild.Start(1 << 30);
    grandchild.SetTexto("working");
    bool first = true;
    for (int i = 0; i < (1 << 30); ++i) {
      if (!grandchild.Incre(1)) {
        stopped = true;
        break;
      }
      if (first) {
        counting.Open();
        first = false;
      }
      if (i % 64 == 0) grandchild.SetSubtexto(i % 128 ? "odd" : "even");
    }
  });
  ASSERT_TRUE(worker.Start());
  counting.Wait();
  // Watch while the worker counts, then cancel.
  for (int i = 0; i < 200; ++i) {
    float p = root.Porcentaje();
    EXPECT_GE(p, 0.0f);
    DString t = root.Texto_Proceso(true);
    EXPECT_NE(std::string(t.c_str()).find("working"), std::string::npos);
  }
  root.Cancelar();
  worker.WaitFor();
  EXPECT_TRUE(stopped.load());
  // Both children went and handed their stop and weight up.
  EXPECT_TRUE(root.stop);
  EXPECT_EQ(root.hijo, nullptr);
  EXPECT_EQ(root.actual, 2);
}

TEST(TMonitorProcThreads, ChildEndingWhileTheRootIsCancelledKeepsTheCancel) {
  // Whatever the interleaving, the root ends stopped and counts the child.
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
    EXPECT_TRUE(root.stop);
    EXPECT_EQ(root.actual, 4);
    EXPECT_EQ(root.hijo, nullptr);
  }
}

TEST(TMonitorProcThreads, ChildrenComeAndGoWhileAWatcherReads) {
  TMonitorProc root;
  root.Start(100 * 10);
  std::atomic<bool> done{false};
  FnThread worker([&] {
    for (int i = 0; i < 100; ++i) {
      TMonitorProcHijo child(&root, 10);
      child.Start(10);
      child.SetTexto("step");
      for (int k = 0; k < 10; ++k) child.Incre(1);
    }
    done = true;
  });
  ASSERT_TRUE(worker.Start());
  float last = 0.0f;
  while (!done.load()) {
    TMonitorProcCritSect lock;
    float p = root.Porcentaje();
    EXPECT_GE(p, last - 0.001f);  // progress never goes back
    last = p;
    root.Texto_Proceso(true);
  }
  worker.WaitFor();
  EXPECT_EQ(root.actual, 1000);
  EXPECT_FLOAT_EQ(root.Porcentaje(), 100.0f);
}

}  // namespace
