#include "world.h"

#include <algorithm>

#include "protocol/decide.h"
#include "protocol/lineage.h"

namespace two_sides {

using VrelDR::Protocol::Other;
using VrelDR::Protocol::RequestKind;
using VrelDR::Protocol::SideState;
using VrelDR::Protocol::StepKind;

const Image* Find(const std::vector<Image>& images, const std::string& id) {
  const auto found =
      std::find_if(images.begin(), images.end(), [&](const Image& each) { return each.id == id; });
  return found == images.end() ? nullptr : &*found;
}

namespace {

void Put(std::vector<Image>& images, const Image& image) {
  std::erase_if(images, [&](const Image& each) { return each.id == image.id; });
  images.push_back(image);
}

bool Follows(const std::vector<Made>& made, const std::string& later, const std::string& earlier) {
  if (later == earlier) return true;
  const auto found =
      std::find_if(made.begin(), made.end(), [&](const Made& each) { return each.id == later; });
  if (found == made.end()) return false;
  return (!found->follows.empty() && Follows(made, found->follows, earlier)) ||
         (!found->follows_apart.empty() && Follows(made, found->follows_apart, earlier));
}

// A record takes the place of another: what an onlooker says about the change.
void LookAtCommit(World& world, const SideRecord& before, const SideRecord& after,
                  const Request& request) {
  Onlooker& onlooker = world.onlooker;
  const std::string& term = after.facts.term.id;
  const bool isNewTerm = term != before.facts.term.id && !term.empty();
  const bool isMade = isNewTerm && after.facts.term.follows == before.facts.term.id &&
                      std::none_of(onlooker.made.begin(), onlooker.made.end(),
                                   [&](const Made& each) { return each.id == term; });
  const bool isForced =
      request.kind == RequestKind::kForceWork || request.kind == RequestKind::kForceDelete;
  if (isMade) {
    Made made = {term, before.facts.term.id, {}};
    if (before.apart.has_value()) made.follows_apart = before.apart->term.id;
    onlooker.made.push_back(made);
    const Op op = isForced ? Op::kNone : request.attempt.op;
    if (isForced) onlooker.was_forced = onlooker.may_both_write = true;
    if (isForced || op == Op::kEdit || op == Op::kDelete || op == Op::kResolve) {
      onlooker.was_synced = false;
    }
    const Image* const start = Find(onlooker.taken, after.starts_at);
    if (op == Op::kFailover && start != nullptr) onlooker.expected = start->bytes;
    if (op == Op::kRevert || op == Op::kResolve) {
      onlooker.expected = world.CopyOf(after.side).bytes;
    }
  } else if (isNewTerm && before.state != SideState::kNone && before.state != SideState::kHeld &&
             after.state != SideState::kHeld &&
             !(before.facts.is_deleted && after.facts.is_deleted) &&
             !Follows(onlooker.made, term, before.facts.term.id)) {
    world.Break("a side took in a term that does not follow its own, and told nobody");
  }
  const bool isAlive = after.state != SideState::kGone && after.state != SideState::kNone;
  bool& wasGone = onlooker.was_gone[static_cast<std::size_t>(after.side)];
  const bool isResolved =
      before.facts.is_deleted && Follows(onlooker.made, term, before.facts.term.id) && isNewTerm;
  if (wasGone && isAlive && !isResolved && after.state != SideState::kDiverged) {
    world.Break("a deleted plan is there again");
  }
  if (isAlive && isResolved) wasGone = false;
  if (after.state == SideState::kGone) wasGone = true;
  const bool isSyncEnd = request.kind == RequestKind::kCommit && request.attempt.op == Op::kSync;
  if (isSyncEnd && !onlooker.was_forced) onlooker.was_synced = true;
}

void CommitRecord(World& world, Side side, const SideRecord& record, const Request& request) {
  const SideRecord before = world.Of(side);
  LookAtCommit(world, before, record, request);
  SideRecord& after = world.Of(side);
  Copy& copy = world.CopyOf(side);
  after = record;
  after.is_writable = before.is_writable;
  if (after.state == SideState::kWorks && after.starts_at.empty() && !before.starts_at.empty()) {
    const Image* const start = Find(world.onlooker.taken, before.starts_at);
    if (start == nullptr || copy.is_torn || start->bytes != copy.bytes) {
      world.Break("a copy does not hold exactly the snapshot that it is to work from");
    }
  }
  if (after.target_id != copy.target_id) {
    if (copy.spare_id != after.target_id) world.Break("a side has a copy that was never made");
    copy.kept |= copy.bytes;
    for (const Image& each : copy.images) copy.kept |= each.bytes;
    const Bytes kept = copy.kept;
    copy = Copy();
    copy.target_id = after.target_id;
    copy.kept = kept;
  }
  // A lock that is given up lets somebody remove the snapshot at once.
  std::erase_if(copy.images, [&](const Image& each) {
    return !VrelDR::Protocol::HasHead(after, each.id) && each.id != after.starts_at;
  });
}

void LookAtSnapshot(World& world, const SideRecord& recorded) {
  if (recorded.heads.empty() || world.onlooker.was_forced || world.onlooker.was_lost) return;
  const std::uint64_t time = recorded.heads.back().time;
  if (time <= world.onlooker.newest_time) {
    world.Break("a snapshot is not later than all before it");
  }
  world.onlooker.newest_time = std::max(world.onlooker.newest_time, time);
}

// One step. False when it cannot be done.
bool DoStep(World& world, Side side, const Step& step, const Request& request, bool isTorn) {
  SideRecord& record = world.Of(side);
  Copy& copy = world.CopyOf(side);
  switch (step.kind) {
    case StepKind::kMakeUnwritable:
      record.is_writable = false;
      return true;
    case StepKind::kKeepBytes:
      copy.kept |= copy.bytes;
      return true;
    case StepKind::kMakeCopy:
      copy.spare_id = step.id;
      return true;
    case StepKind::kDropCopy:
      if (copy.spare_id == step.id) copy.spare_id.clear();
      return true;
    case StepKind::kTakeSnapshot:
      Put(copy.images, {step.id, copy.bytes});
      Put(world.onlooker.taken, {step.id, copy.bytes});
      return true;
    case StepKind::kReceiveBytes: {
      const Image* const sent = Find(world.CopyOf(Other(side)).images, step.id);
      if (sent == nullptr) return false;
      copy.is_torn = isTorn;
      if (isTorn) return true;
      copy.bytes = sent->bytes;
      Put(copy.images, *sent);
      return true;
    }
    case StepKind::kRollTo: {
      const Image* const image = Find(copy.images, step.id);
      if (image == nullptr) {
        world.Break("a copy is to hold a snapshot that it does not have");
        return false;
      }
      copy.bytes = image->bytes;
      copy.is_torn = isTorn;
      return true;
    }
    case StepKind::kCommit:
      if (step.record.newest_time != record.newest_time &&
          step.record.heads.size() > record.heads.size() &&
          (request.kind == RequestKind::kSnapshot || request.kind == RequestKind::kGiveUp)) {
        LookAtSnapshot(world, step.record);
      }
      CommitRecord(world, side, step.record, request);
      return true;
    case StepKind::kMakeWritable:
      if (request.kind == RequestKind::kTell || request.kind == RequestKind::kFinish ||
          request.kind == RequestKind::kTake) {
        world.Break("a copy is made writable by what the other side has said");
      }
      record.is_writable = true;
      return true;
  }
  return false;
}

}  // namespace

void Write(World& world, Side side) {
  const Bytes bit = world.onlooker.acknowledged + 1;  // all bits below it are set
  world.CopyOf(side).bytes |= bit;
  world.onlooker.acknowledged |= bit;
  if (!world.onlooker.was_forced) world.onlooker.expected |= bit;
}

Decision DecideAt(const World& world, Side side, const Request& request, Mutation mutation) {
  SideRecord mine = world.Of(side);
  Request mutated = request;
  MutateRequest(mutation, mine, mutated);
  Decision decision = VrelDR::Protocol::Decide(mine, mutated);
  MutateDecision(mutation, world.Of(side), mutated, decision);
  return decision;
}

Refusal Handle(World& world, Side side, const Request& request, const Fate& fate,
               Mutation mutation) {
  const Decision decision = DecideAt(world, side, request, mutation);
  if (decision.refusal != Refusal::kNone) return decision.refusal;
  Request seen = request;
  if (world.Of(side).attempt.has_value() && seen.attempt.id == world.Of(side).attempt->id) {
    seen.attempt = *world.Of(side).attempt;
  }
  for (std::size_t i = 0; i < decision.steps.size() && i < fate.steps; ++i) {
    if (i == fate.write_before) Write(world, side);
    if (!DoStep(world, side, decision.steps[i], seen, false)) return Refusal::kNoEvidence;
    CheckState(world);
  }
  if (fate.is_torn && fate.steps < decision.steps.size()) {
    (void)DoStep(world, side, decision.steps[fate.steps], seen, true);
  }
  return Refusal::kNone;
}

}  // namespace two_sides
