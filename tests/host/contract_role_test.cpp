#include "base/kill_point.h"
#include "contract_fixture.h"

// The contract of engines: the part that a target has in a pair.

namespace host_test {
namespace {

TEST_P(EngineContractTest, ASwitchoverLosesNothingThereAndBackAgainAndAgain) {
  Side* from = &A();
  Side* to = &B();
  std::string base;
  for (int i = 1; i <= 4; ++i) {
    SCOPED_TRACE(i);
    const std::string id = "s" + std::to_string(i);
    WriteFile(from->TargetPath() + "/round", id);
    const Tree bytes = BytesOf(*from);
    SwitchOver(*from, *to, id, base);
    EXPECT_EQ(BytesOf(*to), bytes);
    EXPECT_EQ(BytesOf(*from), bytes);
    std::swap(from, to);
    base = id;
  }
  for (int i = 1; i <= 4; ++i) {
    const std::string id = "s" + std::to_string(i);
    EXPECT_EQ(BytesOf(A(), id), BytesOf(B(), id));
  }
}

TEST_P(EngineContractTest, EachStepOfARoleCanBeMadeTwiceAndKeepsTheBytes) {
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  Write(A(), "later");
  const Tree bytes = BytesOf(A());
  for (int i = 0; i < 2; ++i) ExpectGood(Quiesce(A()));
  EXPECT_EQ(BytesOf(A()), bytes);
  // Quiet, it still is the source.
  Take(A(), "s2");
  EXPECT_EQ(BytesOf(A(), "s2"), bytes);
  for (int i = 0; i < 2; ++i) ExpectGood(DemoteOnly(A()));
  EXPECT_EQ(BytesOf(A()), bytes);
  ExpectGood(Quiesce(A()));
  for (int i = 0; i < 2; ++i) ExpectGood(Promote(B(), "s1", Manner::kOrderly));
  EXPECT_EQ(BytesOf(B()), BytesOf(A(), "s1"));
  // And it is taken back.
  for (int i = 0; i < 2; ++i) {
    ExpectGood(Quiesce(B()));
    ExpectGood(DemoteOnly(B()));
    ExpectGood(Promote(A(), "", Manner::kOrderly));
  }
  EXPECT_EQ(BytesOf(A()), bytes);
  Write(A(), "last");
  Take(A(), "s3");
}

TEST_P(EngineContractTest, APromotionThatFailsOrWasKilledLeavesTheOldBytesOrTheSnapshots) {
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  const Tree wanted = WithoutTop(BytesOf(B(), "s1"));
  int reached = 0;
  for (const std::string_view step :
       Steps{VrelDR::kRestoreCopied, VrelDR::kRestoreSynced, VrelDR::kRestoreExchanged,
             VrelDR::kRestoreDone, VrelDR::kPromoteDone}) {
    SCOPED_TRACE(step);
    ExpectGood(A().Demote());
    ExpectGood(Promote(B(), "", Manner::kOrderly));
    WriteFile(B().TargetPath() + "/of its own", std::string(step));
    ExpectGood(B().Demote());
    const Tree before = WithoutTop(BytesOf(B()));
    EXPECT_EQ(Promote(B(), "none", Manner::kOrderly).code, kErrSnapshotMissing);
    EXPECT_EQ(WithoutTop(BytesOf(B())), before);
    if (IsKilledAt(step, [&] { return Promote(B(), "s1", Manner::kOrderly); })) {
      ++reached;
      const Tree found = WithoutTop(BytesOf(B()));
      EXPECT_TRUE(found == before || found == wanted);
      ExpectGood(B().CleanUp());
      ExpectGood(Promote(B(), "s1", Manner::kOrderly));
    }
    EXPECT_EQ(BytesOf(B()), BytesOf(B(), "s1"));
    Write(B(), "works");
    ExpectGood(B().TakeSnapshot("s2"));
    ExpectGood(B().RemoveSnapshot("s2"));
    ExpectGood(B().Demote());
  }
  EXPECT_GE(reached, 3);
}

TEST_P(EngineContractTest, ADemotionThatWasKilledCanBeMadeAgainOrTakenBack) {
  const Tree bytes = BytesOf(A());
  int reached = 0;
  for (const std::string_view step : Steps{VrelDR::kQuiesceKept, VrelDR::kQuiesceDone}) {
    for (const bool again : {false, true}) {
      SCOPED_TRACE(step);
      if (IsKilledAt(step, [&] { return A().Demote(); })) {
        ++reached;
        EXPECT_EQ(BytesOf(A()), bytes);
      }
      if (again) ExpectGood(A().Demote());
      ExpectGood(Promote(A(), "", Manner::kOrderly));
      EXPECT_EQ(BytesOf(A()), bytes);
      Take(A(), "s1");
      ExpectGood(A().RemoveSnapshot("s1"));
    }
  }
  EXPECT_GE(reached, 2);
}

TEST_P(EngineContractTest, WhoIsForcedNeedsNotTheOtherSide) {
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  for (const Cut cut : CutsOf(A())) {
    ExpectGood(B().Demote());
    CutOff(A(), cut);
    for (int i = 0; i < 2; ++i) ExpectGood(Promote(B(), "s1", Manner::kForced));
    EXPECT_EQ(BytesOf(B()), BytesOf(B(), "s1"));
    Write(B(), "works");
    ExpectGood(B().TakeSnapshot("s2"));
    ExpectGood(B().RemoveSnapshot("s2"));
    CutBack(A(), cut);
  }
}

TEST_P(EngineContractTest, AnOldSourceThatRejoinsKeepsWhatOnlyItHas) {
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  // It thinks that it works; that it is quiet; that it is a replica.
  for (int part = 0; part < 3; ++part) {
    SCOPED_TRACE(part);
    const std::string kept = "kept" + std::to_string(part);
    const std::string newest = "newest" + std::to_string(part);
    WriteFile(A().TargetPath() + "/only here", kept);
    const Tree unsent = BytesOf(A());
    if (part > 0) ExpectGood(Quiesce(A()));
    if (part > 1) ExpectGood(DemoteOnly(A()));
    ExpectGood(Promote(B(), "s1", Manner::kForced));
    WriteFile(B().TargetPath() + "/new life", kept);
    for (int i = 0; i < 2; ++i) {
      ExpectGood(Rejoin(A(), kept));
      EXPECT_EQ(BytesOf(A(), kept), unsent);
      EXPECT_EQ(BytesOf(A()), unsent);
    }
    // It is a replica like any other, and takes over again.
    Take(B(), newest);
    Ship(B(), newest, "s1", A());
    ExpectGood(B().Demote());
    ExpectGood(Promote(A(), newest, Manner::kOrderly));
    EXPECT_EQ(BytesOf(A()), BytesOf(B(), newest));
    EXPECT_EQ(BytesOf(A(), kept), unsent);
  }
}

TEST_P(EngineContractTest, ARejoiningThatFailsOrWasKilledLosesNothing) {
  WriteFile(A().TargetPath() + "/only here", "never sent");
  const Tree unsent = BytesOf(A());
  int reached = 0;
  const Steps steps = {VrelDR::kCopyFile,   VrelDR::kTakeCopied,  VrelDR::kTakeSynced,
                       VrelDR::kTakeFrozen, VrelDR::kTakeRenamed, VrelDR::kQuiesceKept,
                       VrelDR::kQuiesceDone};
  for (const bool wasDemoted : {false, true}) {
    for (const std::string_view step : steps) {
      SCOPED_TRACE(std::string(step) + (wasDemoted ? " of a demoted one" : ""));
      ExpectGood(Promote(A(), "", Manner::kForced));
      if (wasDemoted) ExpectGood(A().Demote());
      setenv("VRELDR_FAIL_POINT", "take@source", 1);
      EXPECT_EQ(Rejoin(A(), "kept").code, kErrIo);
      unsetenv("VRELDR_FAIL_POINT");
      EXPECT_EQ(BytesOf(A()), unsent);
      if (IsKilledAt(step, [&] { return Rejoin(A(), "kept"); })) {
        ++reached;
        EXPECT_EQ(BytesOf(A()), unsent);
        if (A().Snapshots().count("kept") != 0) {
          EXPECT_EQ(BytesOf(A(), "kept"), unsent);
        }
        ExpectGood(A().CleanUp());
        ExpectGood(Rejoin(A(), "kept"));
      }
      EXPECT_EQ(BytesOf(A(), "kept"), unsent);
      EXPECT_EQ(BytesOf(A()), unsent);
      ExpectGood(A().RemoveSnapshot("kept"));
    }
  }
  EXPECT_GE(reached, 2);
}

}  // namespace
}  // namespace host_test
