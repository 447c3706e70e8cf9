// Single decisions about a plan between two nodes; what they are worth together, the model tells.
#include <gtest/gtest.h>

#include "protocol/decide.h"
#include "protocol/driver.h"
#include "protocol/lineage.h"

namespace host_test {
namespace {

using VrelDR::Protocol::Attempt;
using VrelDR::Protocol::Compare;
using VrelDR::Protocol::Decide;
using VrelDR::Protocol::Decision;
using VrelDR::Protocol::Driver;
using VrelDR::Protocol::Move;
using VrelDR::Protocol::NextMove;
using VrelDR::Protocol::Op;
using VrelDR::Protocol::Outcome;
using VrelDR::Protocol::Progress;
using VrelDR::Protocol::PutTerm;
using VrelDR::Protocol::Refusal;
using VrelDR::Protocol::Relation;
using VrelDR::Protocol::Request;
using VrelDR::Protocol::RequestKind;
using VrelDR::Protocol::Side;
using VrelDR::Protocol::SideRecord;
using VrelDR::Protocol::SideState;
using VrelDR::Protocol::Step;
using VrelDR::Protocol::StepKind;

// A side of a plan whose source works on the main side, after its first sync.
SideRecord Synced(Side side) {
  SideRecord record;
  record.side = side;
  record.state = side == Side::kMain ? SideState::kWorks : SideState::kReplica;
  record.facts.term = {2, "first", ""};
  record.line = {record.facts.term};
  record.is_writable = side == Side::kMain;
  record.attempts_heard = 2;
  record.terms_heard = 2;
  record.heads = {{"s1", 1}};
  record.newest_time = 1;
  return record;
}

Attempt Switchover() {
  Attempt attempt;
  attempt.id = "attempt";
  attempt.number = 3;
  attempt.op = Op::kSwitchover;
  attempt.works = Side::kDR;
  attempt.base = "first";
  attempt.snap_id = "last";
  return attempt;
}

SideRecord InAttempt(Side side, Progress progress) {
  SideRecord record = Synced(side);
  record.attempt = Switchover();
  record.attempts_heard = record.attempt->number;
  record.progress = progress;
  if (progress == Progress::kGivenUp) record.is_writable = false;
  return record;
}

SideRecord WithTerm(SideRecord record, const std::string& termId) {
  PutTerm(record, termId);
  return record;
}

Request Asked(RequestKind kind, const SideRecord& other, const Attempt& attempt = Switchover()) {
  Request request;
  request.kind = kind;
  request.attempt = attempt;
  request.other = other;
  return request;
}

std::vector<StepKind> KindsOf(const Decision& decision) {
  std::vector<StepKind> kinds;
  for (const Step& each : decision.steps) kinds.push_back(each.kind);
  return kinds;
}

using Kinds = std::vector<StepKind>;

TEST(TwoSides, TheMainSideMakesEvenTermsAndTheDRSideOddOnes) {
  EXPECT_EQ(WithTerm(Synced(Side::kMain), "next").facts.term.number, 4U);
  EXPECT_EQ(WithTerm(Synced(Side::kDR), "next").facts.term.number, 3U);
  SideRecord heard = Synced(Side::kDR);
  heard.terms_heard = 7;
  EXPECT_EQ(WithTerm(heard, "next").facts.term.number, 9U);
  EXPECT_EQ(WithTerm(heard, "next").facts.term.follows, "first");
}

TEST(TwoSides, ATermThatFollowsByWayOfOthersIsKnownAsLater) {
  const SideRecord mine = Synced(Side::kMain);
  const SideRecord theirs = WithTerm(WithTerm(Synced(Side::kDR), "one"), "two");
  EXPECT_EQ(Compare(mine, theirs), Relation::kOlder);
  EXPECT_EQ(Compare(theirs, mine), Relation::kNewer);
}

TEST(TwoSides, TwoTermsThatFollowTheSameOneStandApart) {
  const SideRecord mine = WithTerm(Synced(Side::kMain), "here");
  const SideRecord theirs = WithTerm(Synced(Side::kDR), "there");
  EXPECT_EQ(Compare(mine, theirs), Relation::kApart);
  EXPECT_EQ(Compare(theirs, mine), Relation::kApart);
}

TEST(TwoSides, ASideThatHasLessThanItHadOnceIsKnown) {
  SideRecord theirs = WithTerm(Synced(Side::kDR), "one");
  VrelDR::Protocol::MarkTold(theirs);
  EXPECT_EQ(Compare(Synced(Side::kMain), theirs), Relation::kMineLess);
  EXPECT_EQ(Compare(theirs, Synced(Side::kMain)), Relation::kTheirsLess);
}

TEST(TwoSides, ALaterTermIsFollowedUnwritableFirst) {
  SideRecord forced = WithTerm(Synced(Side::kDR), "forced");
  forced.facts.works = Side::kDR;
  const Decision decision = Decide(Synced(Side::kMain), Asked(RequestKind::kTell, forced));
  EXPECT_EQ(KindsOf(decision), (Kinds{StepKind::kMakeUnwritable, StepKind::kCommit}));
  EXPECT_EQ(decision.steps.back().record.state, SideState::kFenced);
  EXPECT_EQ(decision.steps.back().record.facts, forced.facts);
}

TEST(TwoSides, OfTwoTermsThatStandApartTheLowerOneIsFencedAndBothSidesNameIt) {
  const SideRecord high = WithTerm(Synced(Side::kMain), "here");
  SideRecord low = WithTerm(Synced(Side::kDR), "there");
  low.facts.works = Side::kDR;
  low.state = SideState::kWorks;
  low.is_writable = true;
  const Decision fenced = Decide(low, Asked(RequestKind::kTell, high));
  EXPECT_EQ(KindsOf(fenced), (Kinds{StepKind::kMakeUnwritable, StepKind::kCommit}));
  EXPECT_EQ(fenced.steps.back().record.state, SideState::kDiverged);
  EXPECT_EQ(fenced.steps.back().record.apart, high.facts);
  const Decision named = Decide(high, Asked(RequestKind::kTell, low));
  EXPECT_EQ(KindsOf(named), (Kinds{StepKind::kCommit}));
  EXPECT_EQ(named.steps.back().record.state, SideState::kWorks);
  EXPECT_EQ(named.steps.back().record.apart, low.facts);
}

TEST(TwoSides, ARequestOfAnAttemptThatIsNotInTheJournalIsRefused) {
  const SideRecord given = InAttempt(Side::kMain, Progress::kGivenUp);
  Attempt other = Switchover();
  other.id = "another";
  for (const RequestKind kind :
       {RequestKind::kPrepareCopy, RequestKind::kSnapshot, RequestKind::kGiveUp,
        RequestKind::kReceive, RequestKind::kCommit, RequestKind::kFinish, RequestKind::kClose,
        RequestKind::kTakeBack}) {
    const SideRecord mine = InAttempt(Side::kDR, Progress::kBegun);
    EXPECT_EQ(Decide(mine, Asked(kind, given, other)).refusal, Refusal::kStale);
    EXPECT_EQ(Decide(Synced(Side::kDR), Asked(kind, given)).refusal, Refusal::kStale);
  }
}

TEST(TwoSides, AnAttemptThatWasHeardOfIsNotBegunOnceMore) {
  SideRecord mine = Synced(Side::kDR);
  mine.attempts_heard = Switchover().number;
  const Request request = Asked(RequestKind::kBegin, Synced(Side::kMain));
  EXPECT_EQ(Decide(mine, request).refusal, Refusal::kStale);
  EXPECT_EQ(Decide(Synced(Side::kDR), request).refusal, Refusal::kNone);
}

TEST(TwoSides, NobodyIsPromotedBeforeTheOtherSideHasGivenUpItsPart) {
  SideRecord mine = InAttempt(Side::kDR, Progress::kBegun);
  mine.heads.push_back({"last", 2});
  const SideRecord begun = InAttempt(Side::kMain, Progress::kBegun);
  EXPECT_EQ(Decide(mine, Asked(RequestKind::kCommit, begun)).refusal, Refusal::kNoEvidence);
  const SideRecord given = InAttempt(Side::kMain, Progress::kGivenUp);
  const Decision decision = Decide(mine, Asked(RequestKind::kCommit, given));
  EXPECT_EQ(KindsOf(decision), (Kinds{StepKind::kCommit, StepKind::kRollTo, StepKind::kCommit,
                                      StepKind::kMakeWritable}));
  EXPECT_FALSE(decision.steps.front().record.is_writable);
}

TEST(TwoSides, NobodyIsPromotedWithoutTheLastSnapshot) {
  const SideRecord given = InAttempt(Side::kMain, Progress::kGivenUp);
  const SideRecord mine = InAttempt(Side::kDR, Progress::kBegun);
  EXPECT_EQ(Decide(mine, Asked(RequestKind::kCommit, given)).refusal, Refusal::kNoEvidence);
}

TEST(TwoSides, WhatWasGivenUpIsHadBackOnlyWhenTheOtherSideHasVoidedTheAttempt) {
  const SideRecord mine = InAttempt(Side::kMain, Progress::kGivenUp);
  const SideRecord open = InAttempt(Side::kDR, Progress::kBegun);
  EXPECT_EQ(Decide(mine, Asked(RequestKind::kTakeBack, open)).refusal, Refusal::kNoEvidence);
  EXPECT_EQ(Decide(mine, Asked(RequestKind::kTakeBack, Synced(Side::kDR))).refusal,
            Refusal::kNoEvidence);
  SideRecord voided = Synced(Side::kDR);
  voided.attempts_heard = Switchover().number;
  EXPECT_EQ(KindsOf(Decide(mine, Asked(RequestKind::kTakeBack, voided))),
            (Kinds{StepKind::kCommit, StepKind::kMakeWritable}));
}

TEST(TwoSides, ACommittedAttemptIsNotVoided) {
  const SideRecord mine = InAttempt(Side::kDR, Progress::kCommitted);
  const Request request = Asked(RequestKind::kVoid, Synced(Side::kMain));
  EXPECT_EQ(Decide(mine, request).refusal, Refusal::kCommitted);
}

TEST(TwoSides, ARecordThatIsMissingIsHeldAndWhatWasDeletedIsNot) {
  SideRecord blank;
  blank.is_writable = true;
  const SideRecord known = Synced(Side::kDR);
  const Decision held = Decide(blank, Asked(RequestKind::kTell, known));
  EXPECT_EQ(KindsOf(held), (Kinds{StepKind::kMakeUnwritable, StepKind::kCommit}));
  EXPECT_EQ(held.steps.back().record.state, SideState::kHeld);
  blank.terms_heard = 2;
  EXPECT_EQ(Decide(blank, Asked(RequestKind::kTell, known)).refusal, Refusal::kUncertain);
}

TEST(TwoSides, ATombstoneGoesOnlyWhenTheOtherSideHasHeardOfIt) {
  SideRecord mine = WithTerm(Synced(Side::kMain), "deleted");
  mine.state = SideState::kGone;
  mine.facts.is_deleted = true;
  Request request;
  request.kind = RequestKind::kForget;
  EXPECT_EQ(Decide(mine, request).refusal, Refusal::kNotAllowed);
  SideRecord blank;
  blank.side = Side::kDR;
  blank.terms_heard = mine.facts.term.number;
  const Decision told = Decide(mine, Asked(RequestKind::kTell, blank));
  ASSERT_EQ(KindsOf(told), (Kinds{StepKind::kCommit}));
  const Decision forgotten = Decide(told.steps.back().record, request);
  ASSERT_EQ(KindsOf(forgotten), (Kinds{StepKind::kCommit}));
  EXPECT_EQ(forgotten.steps.back().record.state, SideState::kNone);
  EXPECT_EQ(forgotten.steps.back().record.terms_heard, mine.facts.term.number);
}

TEST(TwoSides, AHeldReplicaIsForcedToWorkOnlyAtASnapshotThatSomebodyHasFound) {
  SideRecord held = Synced(Side::kDR);
  held.state = SideState::kHeld;
  held.heads.clear();
  Request request;
  request.kind = RequestKind::kForceWork;
  request.attempt.id = "order";
  EXPECT_EQ(Decide(held, request).refusal, Refusal::kUncertain);
  request.attempt.snap_id = "found";
  const Decision decision = Decide(held, request);
  ASSERT_EQ(decision.refusal, Refusal::kNone);
  EXPECT_EQ(decision.steps.front().record.starts_at, "found");
}

TEST(TwoSides, WhatWasGivenUpToResolveIsNotHadBackByTellingOnceMore) {
  SideRecord mine = WithTerm(Synced(Side::kMain), "here");
  const SideRecord theirs = WithTerm(Synced(Side::kDR), "there");
  mine.apart = theirs.facts;
  mine.attempt = Switchover();
  mine.attempt->op = Op::kResolve;
  mine.progress = Progress::kGivenUp;
  mine.is_writable = false;
  for (const auto& each : Decide(mine, Asked(RequestKind::kTell, theirs)).steps) {
    EXPECT_TRUE(VrelDR::Protocol::HasGivenUp(each.record));
  }
}

TEST(TwoSides, ADriverAsksTheOtherSideBeforeAnythingElse) {
  Driver driver;
  driver.attempt = Switchover();
  const Move move = NextMove(driver, Synced(Side::kMain));
  EXPECT_EQ(move.outcome, Outcome::kAsk);
  EXPECT_EQ(move.to, Side::kDR);
  EXPECT_EQ(move.request.kind, RequestKind::kTell);
}

TEST(TwoSides, ADriverBeginsAtTheMainSideWhereverItRuns) {
  for (const Side at : VrelDR::Protocol::kSides) {
    Driver driver;
    driver.at = at;
    driver.attempt = Switchover();
    Move move = NextMove(driver, Synced(at));
    TakeAnswer(driver, move, Refusal::kNone, Synced(VrelDR::Protocol::Other(at)));
    move = NextMove(driver, Synced(at));
    EXPECT_EQ(move.to, Side::kMain);
    EXPECT_EQ(move.request.kind, RequestKind::kBegin);
    EXPECT_EQ(move.request.attempt.number, 3U);
  }
}

}  // namespace
}  // namespace host_test
