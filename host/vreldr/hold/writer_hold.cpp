#include "hold/writer_hold.h"

#include <sys/stat.h>

#include <algorithm>
#include <set>
#include <system_error>
#include <utility>

#include "base/kill_point.h"
#include "hold/ask.h"
#include "hold/control_group.h"
#include "hold/means.h"

namespace VrelDR {

namespace {

std::chrono::milliseconds Between(std::int64_t begin, std::int64_t end) {
  return std::chrono::ceil<std::chrono::milliseconds>(
      std::chrono::nanoseconds(std::max<std::int64_t>(end - begin, 0)));
}

std::string Explain(const GuardOutcome& outcome, const std::string& verb) {
  const std::string said(outcome.tail, std::min(outcome.tail_size, GuardOutcome::kMostTail));
  switch (outcome.kind) {
    case GuardOutcome::kErrno:
      return "could not be " + verb + ": " + StatusOfErrno(outcome.number, {}).message;
    case GuardOutcome::kStatus:
      return "could not be " + verb + ": " + DescribeEnd(outcome.number, said);
    case GuardOutcome::kForeign:
      return "is frozen already, by somebody else; have it thawed and run it again";
    case GuardOutcome::kLate: {
      const std::string last = LastLine(said);
      return "was not " + verb + " in time" + (last.empty() ? "" : ", last said " + Quoted(last));
    }
    default:
      return {};
  }
}

// Whether both are the same control group.
bool IsSame(const HeldWriter& one, const HeldWriter& other) {
  struct stat a = {};
  struct stat b = {};
  return one.control && other.control && fstat(one.control.Get(), &a) == 0 &&
         fstat(other.control.Get(), &b) == 0 && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace

void WriterHold::Add(const Status& status, HeldWriter writer) {
  if (!status.IsOk()) {
    faults_.push_back(status.message);
    return;
  }
  const bool isThere = std::any_of(writers_.begin(), writers_.end(),
                                   [&](const HeldWriter& each) { return IsSame(each, writer); });
  if (!isThere) writers_.push_back(std::move(writer));
}

Status WriterHold::Check() {
  guardian_.reset();  // what it holds is about to be closed
  faults_.clear();
  writers_.clear();
  is_checked_ = true;
  const std::string problem = means_.FindProblem();
  if (!problem.empty()) {
    faults_.push_back("the means of holding the writers: " + problem + "; correct them");
    return {kErrBadArgument, faults_.front()};
  }
  const auto add = [&](auto&& open) {
    HeldWriter writer;
    const Status status = open(writer);
    Add(status, std::move(writer));
  };
  for (const QuiesceCommand& each : means_.commands) {
    add([&](HeldWriter& writer) { return OpenCommand(each, writer); });
  }
  for (const std::string& each : means_.domains) {
    add([&](HeldWriter& writer) { return OpenDomain(each, writer); });
  }
  for (const std::string& each : means_.units) {
    add([&](HeldWriter& writer) { return OpenUnit(each, writer); });
  }
  for (const std::string& each : means_.control_groups) {
    add([&](HeldWriter& writer) {
      return OpenControlGroup(each, "control group " + Quoted(each), writer);
    });
  }
  return faults_.empty() ? Status() : Status{kErrNotHeld, faults_.front()};
}

// What stood still, or may have, and could not be thawed.
std::vector<std::string> WriterHold::FindTroubles() const {
  std::vector<std::string> troubles;
  for (std::size_t at = 0; at < writers_.size(); ++at) {
    const GuardSlot& slot = guardian_->GetSlot(at);
    const bool mayStand = slot.freeze.kind == GuardOutcome::kGood ||
                          slot.freeze.kind == GuardOutcome::kLate ||
                          slot.freeze.kind == GuardOutcome::kGaveUp;
    const std::string text = Explain(slot.thaw, "thawed");
    if (!text.empty() && mayStand) {
      troubles.push_back(writers_[at].name + " " + text);
    } else if (slot.progress == GuardSlot::kThawing && mayStand) {
      troubles.push_back(writers_[at].name + " was being thawed by a process that was killed");
    }
  }
  return troubles;
}

// Why the guardian has not frozen everything.
std::string WriterHold::WhyNotHeld() const {
  if (guardian_->WasLost()) return "the process that froze them was killed; run it again";
  std::string why;
  for (std::size_t at = 0; at < writers_.size(); ++at) {
    const std::string text = Explain(guardian_->GetSlot(at).freeze, "frozen");
    if (!text.empty()) why += (why.empty() ? "" : "; ") + writers_[at].name + " " + text;
  }
  if (guardian_->GetBoard().reason == GuardBoard::kDeadline) {
    why += (why.empty() ? "" : "; ") + std::string("the deadline of ") +
           std::to_string(means_.deadline_ms) + " ms has passed";
  }
  for (const std::string& each : FindTroubles()) why += "; " + each;
  return why;
}

Status WriterHold::Hold() {
  const Guardian::Clock::time_point begun = Guardian::Clock::now();
  Status status = is_checked_ ? Status() : Check();
  if (status.IsOk() && !faults_.empty()) status = {kErrNotHeld, faults_.front()};
  is_checked_ = false;  // what is open serves one hold
  if (!status.IsOk() || writers_.empty()) return status;
  guardian_ = std::make_unique<Guardian>();
  status = guardian_->Start(writers_, begun, begun + std::chrono::milliseconds(means_.deadline_ms));
  if (!status.IsOk()) return {kErrNotHeld, "the writers cannot be held: " + status.message};
  KillPoint(kHoldGuarded);
  if (guardian_->Freeze()) {
    KillPoint(kHoldFrozen);
    return {};
  }
  return {kErrNotHeld, "the writers were not held: " + WhyNotHeld()};
}

Status WriterHold::Release(HoldEnd& end) {
  end = {};
  if (!guardian_) return {};
  guardian_->Thaw();
  KillPoint(kHoldThawed);
  const GuardBoard& board = guardian_->GetBoard();
  end.frozen_after = Between(board.begun, board.frozen);
  end.held = Between(board.begun, board.thawed);
  end.troubles = FindTroubles();
  std::string why;
  if (guardian_->WasLost()) {
    why = "the process that held the writers was killed";
  } else if (board.reason == GuardBoard::kDeadline) {
    why = "the deadline of " + std::to_string(means_.deadline_ms) + " ms has passed";
  } else if (board.reason != GuardBoard::kReleased) {
    why = "they were thawed by accident";
  } else if (board.was_undone != 0) {
    why = "somebody else has thawed a control group";
  }
  if (why.empty()) return {};
  return {kErrNotHeld, "the writers did not stand still until the end: " + why +
                           "; run it again, with a longer deadline if it takes longer"};
}

}  // namespace VrelDR
