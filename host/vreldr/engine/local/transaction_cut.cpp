#include "engine/local/transaction_cut.h"

#include <algorithm>
#include <system_error>

#include "base/fail_point.h"
#include "engine/local/directory.h"
#include "engine/local/subvolume.h"
#include "engine/support/watch.h"

namespace VrelDR::Local {

namespace {

using Clock = std::chrono::steady_clock;

// Nearly always the first try does it, and after one that did not nothing is left to be written.
// Where the machine is too full for all threads to come in time, more tries do not help.
constexpr int kMostTries = 16;
constexpr std::chrono::seconds kMostTime(5);

// A longer window costs a little, so the first is as long as that many threads need as a rule.
constexpr int kFilesForEach = 4;
constexpr int kMostFiles = 1024;

int FilesOfFirstTry(std::size_t parts) {
  return std::min(kMostFiles, kFilesForEach * static_cast<int>(parts));
}

Status Of(const TransactionCut::Part& part, Status status) {
  return InContext("target " + Quoted(part.target_id), std::move(status));
}

}  // namespace

Status TransactionCut::Prepare() {
  if (parts_.size() == 1) return {};
  try {
    if (const int error = window_.Prepare(FilesOfFirstTry(parts_.size()))) {
      return StatusOfErrno(error, {});
    }
    at_work_ = static_cast<int>(parts_.size());
    for (Part& part : parts_) threads_.emplace_back([this, &part] { Work(part); });
  } catch (const std::system_error& error) {
    return StatusOfErrno(error.code().value(),
                         "a thread for each of " + std::to_string(parts_.size()) + " targets");
  }
  for (int left = 0; (left = at_work_) != 0;) at_work_.wait(left);
  return {};
}

void TransactionCut::Make(Part& part) {
  part.is_made = false;
  part.status = FailPoint(kFailCut, part.target_id);
  if (!part.status.IsOk()) return;
  int error = SnapshotAtOnce(part.source.Get(), part.parent.Get(), part.name);
  part.is_made = error == 0;
  const Fd snapshot = error == 0 ? OpenDir(part.parent.Get(), part.name) : Fd();
  if (error == 0) {
    error = snapshot ? ReadSnapshotTransaction(snapshot.Get(), part.transaction) : errno;
  }
  if (error != 0) part.status = StatusOfErrno(error, {});
}

void TransactionCut::Work(Part& part) {
  for (int round = 0;; ++round) {
    if (--at_work_ == 0) at_work_.notify_one();
    round_.wait(round);
    if (is_over_) return;
    Make(part);
  }
}

Status TransactionCut::Try(int files, CutOutcome& outcome) {
  const bool isAlone = threads_.empty();
  const int error = isAlone ? 0 : window_.Open(files);
  if (error != 0) return StatusOfErrno(error, {});
  outcome.begin = Clock::now();
  if (isAlone) {
    Make(parts_.front());
  } else {
    at_work_ = static_cast<int>(parts_.size());
    ++round_;
    round_.notify_all();
    for (int left = 0; (left = at_work_) != 0;) at_work_.wait(left);
  }
  outcome.end = Clock::now();
  ++outcome.tries;
  return GetStatus();
}

Status TransactionCut::GetStatus() const {
  for (const Part& each : parts_) {
    if (!each.status.IsOk()) return Of(each, each.status);
  }
  return {};
}

bool TransactionCut::IsOneTransaction() const {
  return std::ranges::all_of(
      parts_, [this](const Part& each) { return each.transaction == parts_.front().transaction; });
}

Status TransactionCut::Take(Watcher& watcher, CutOutcome& outcome) {
  outcome.method = "btrfs transaction";
  Watch watch(watcher);
  const Clock::time_point last = Clock::now() + kMostTime;
  Status status = Try(FilesOfFirstTry(parts_.size()), outcome);
  while (status.IsOk() && !IsOneTransaction() && outcome.tries < kMostTries &&
         Clock::now() < last) {
    if (!watch.GoesOn()) status = Watch::Stopped();
    if (status.IsOk()) status = Remove();
    if (status.IsOk()) status = Try(kMostFiles, outcome);
  }
  EndThreads();
  outcome.is_one_instant = status.IsOk() && IsOneTransaction();
  // What cannot be removed now is removed by whoever removes the snapshots that failed.
  if (!status.IsOk()) (void)Remove();
  return status;
}

Status TransactionCut::Remove() {
  Status status;
  for (Part& each : parts_) {
    if (!each.is_made) continue;
    const int error = RemoveSubvolume(each.parent.Get(), each.name);
    each.is_made = error != 0;
    if (error != 0) status = Of(each, StatusOfErrno(error, {}));
  }
  return status;
}

void TransactionCut::EndThreads() {
  is_over_ = true;
  ++round_;
  round_.notify_all();
  threads_.clear();
}

}  // namespace VrelDR::Local
