#pragma once

#include <optional>
#include <string>
#include <vector>

#include "protocol/side_record.h"

namespace VrelDR::Protocol {

// What a side is asked to do. It does so while it holds its plan lock, one request at a time.
enum class RequestKind {
  // Of no attempt.
  kTell,    // this is how the other side stands; adopt what follows
  kTake,    // a held record becomes what the other side says, after a look at the bytes
  kForget,  // a tombstone that the other side has acknowledged goes
  kMend,    // finish what a crash has left undone on this side alone
  // Of an attempt that the journal has to have; kBegin and kVoid are told of it.
  kBegin,        // put it into the journal
  kPrepareCopy,  // make the empty copy of kCreate or kEdit
  kSnapshot,     // take the snapshot of kSync
  kGiveUp,       // become unwritable for this attempt, and take the last snapshot of kSwitchover
  kReceive,      // take in the bytes of the attempt's snapshot
  kCommit,       // decide it; only at the side that will work
  kFinish,       // follow what the other side has committed
  kClose,        // the other side has finished
  kVoid,         // never commit it; only at the side that would have
  kTakeBack,     // the other side has voided it: go on as before
  // Of the operator, at the side that he names, without the other one.
  kForceWork,
  kForceDelete,
};

struct Request {
  RequestKind kind = RequestKind::kTell;
  Attempt attempt;                  // of an attempt; kForce*: the identifier of the term to be made
  std::optional<SideRecord> other;  // the other side's record, as it has answered: the evidence
};

// Why a request is refused. Nothing is changed then.
enum class Refusal {
  kNone,
  kStale,        // the attempt was voided, or is an old one
  kBusy,         // another attempt is in the journal
  kTermDiffers,  // the side is not at the term that the attempt goes out from
  kNotAllowed,   // the operation has no sense as the plan stands
  kNoEvidence,   // the other side has not done yet what has to come first
  kCommitted,    // it can only be finished
  kUncertain,    // held or diverged: somebody has to decide first
};

// One durable step of a side, in their order. A crash leaves those before it.
enum class StepKind {
  kMakeUnwritable,
  kKeepBytes,     // what only this copy has, in a snapshot of the plan's own with `id` in its name
  kMakeCopy,      // an empty copy `id` beside the one of the record, if there is one
  kDropCopy,      // the copy `id` that never came to be used
  kTakeSnapshot,  // `id`, over one of the same name that no record has
  kReceiveBytes,  // of the snapshot `id`; the copy is something between until it is done
  kRollTo,        // the copy holds exactly the snapshot `id`
  kCommit,        // `record` takes the place of this side's record, in one transaction
  kMakeWritable,
};

struct Step {
  StepKind kind = StepKind::kCommit;
  std::string id;
  SideRecord record;
};

// What a side does about a request: it is refused, or the steps are done and the record that stands
// then is the answer. No steps and no refusal: all of it was done before.
struct Decision {
  Refusal refusal = Refusal::kNone;
  std::vector<Step> steps;
};

}  // namespace VrelDR::Protocol
