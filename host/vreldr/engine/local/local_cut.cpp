#include "engine/local/local_cut.h"

#include <utility>

namespace VrelDR::Local {

namespace {

using Clock = std::chrono::steady_clock;

// More get in each other's way at the disk.
constexpr std::size_t kMostCopies = 4;

}  // namespace

LocalCut::LocalCut(CutPlan plan)
    : plan_(std::move(plan)), write_back_(plan_.volume.Get(), plan_.path) {
  if (plan_.parts.empty()) return;
  transaction_ = std::make_unique<TransactionCut>(plan_.own.Get(), std::move(plan_.parts));
}

Status LocalCut::Prepare() {
  return transaction_ ? transaction_->Prepare() : Status();
}

Status LocalCut::Take(Watcher& watcher, CutOutcome& outcome) {
  Status status = transaction_ ? transaction_->Take(watcher, outcome) : Status();
  if (!status.IsOk() || plan_.copies.empty()) return status;
  const Clock::time_point begun = Clock::now();
  status = RunSideBySide(plan_.copies, kMostCopies, watcher);
  if (!transaction_) outcome.begin = begun;
  outcome.end = Clock::now();
  outcome.is_one_instant = false;
  outcome.method += (outcome.method.empty() ? "" : ", ") + plan_.copy_method;
  outcome.tries = transaction_ ? outcome.tries : 1;
  return status;
}

Status LocalCut::Settle(Watcher& watcher) {
  // What was written before and never reached the disk would be missing from the snapshots.
  Status status = write_back_.Sync();
  for (const Job& check : plan_.checks) {
    if (status.IsOk()) status = check(watcher);
  }
  return status;
}

}  // namespace VrelDR::Local
