#pragma once

#include <string>
#include <vector>

#include "protocol/driver.h"

namespace two_sides {

// A rule that is switched off, so that it shows what it is for.
enum class Mutation {
  kNone,
  kPromoteBeforeGivenUp,
  kSayUnwritableOnly,
  kRecordBeforeUnwritable,
  kWritableBeforeCommit,
  kAcceptAnyAttempt,
  kAcceptOldAttempt,
  kTakeBackWithoutVoid,
  kCloseBeforeFinish,
  kForgetTombstone,
  kForgetNumbers,
  kNumbersOfOneKind,
  kAdoptWhateverIsHigher,
  kDoNotHold,
  kDoNotKeepBytes,
  kSnapshotBeforeQuiet,
  kCommitWithoutBytes,
  kRecordBeforeBytes,
  kReleaseBeforeArrival,
  kDoNotRoll,
  kTimesAreNotTold,
  kTellEndsResolving,
};

struct MutationName {
  Mutation mutation;
  const char* name;
};

const std::vector<MutationName>& Mutations();

// The places where a rule can be switched off: what a driver has seen, what a side is told and
// believes of itself, and what it does.
void MutateSeen(Mutation mutation, VrelDR::Protocol::Driver& driver);
void MutateRequest(Mutation mutation, VrelDR::Protocol::SideRecord& mine,
                   VrelDR::Protocol::Request& request);
void MutateDecision(Mutation mutation, const VrelDR::Protocol::SideRecord& mine,
                    const VrelDR::Protocol::Request& request, VrelDR::Protocol::Decision& decision);

}  // namespace two_sides
