#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "engine/cut.h"
#include "target/cut_writers.h"
#include "target/host.h"
#include "vreldr/cut.h"

namespace VrelDR {

// A cut of targets of the host, for one thread: the records, the locks, the engines' cuts of all
// domains, and in the end the parts to be taken up. As long as it lives it keeps what was not taken
// up; then that goes.
//
// Writers are held unless the snapshots prove to be of one instant without that; to have
// applications write their state they always are.
class TargetCut {
 public:
  explicit TargetCut(std::shared_ptr<Host> host) : host_(std::move(host)) {}
  ~TargetCut();
  TargetCut(const TargetCut&) = delete;
  TargetCut& operator=(const TargetCut&) = delete;

  // May be called once. A failure leaves nothing, as far as that can be removed; the rest is not
  // listed, and goes with the next change of its target.
  Status Prepare(std::vector<std::string> targetIds, CutWriters& writers);
  const CutInfo& GetInfo() const { return info_; }
  // The cut's snapshot of a target; null when it is none of its targets.
  const Operation::Snapshot* FindSnapshot(const std::string& targetId) const;

 private:
  struct Member {
    std::unique_ptr<HostTarget> opened;
    Operation::Snapshot snapshot;
  };
  using Cuts = std::vector<std::unique_ptr<EngineCut>>;  // one for each domain

  Status Open(const std::vector<std::string>& targetIds);
  // The time that all snapshots are going to have, if they are begun now.
  Status ChooseTime(std::uint32_t& time) const;
  Status Record();
  Status Make(CutWriters& writers);
  Status PrepareEngines(Cuts& cuts) const;
  // Makes the snapshots. `held` is null when nobody was held for that.
  Status TakeAll(CutWriters& writers, Cuts& cuts, std::vector<CutOutcome>& outcomes,
                 const CutWriters*& held);
  // While this runs nothing is logged, recorded or asked of another process: whoever is held may be
  // what that waits for.
  Status TakeOnce(const Cuts& cuts, CutWriters& writers, std::vector<CutOutcome>& outcomes);
  Status RemoveAll() const;
  void Judge(const std::vector<CutOutcome>& outcomes, const CutWriters* held);
  void Offer();
  // Removes what the members have that is not whole.
  void Drop();

  std::shared_ptr<Host> host_;
  std::vector<Member> members_;
  CutInfo info_;
};

}  // namespace VrelDR
