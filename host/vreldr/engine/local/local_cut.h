#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/fd.h"
#include "engine/cut.h"
#include "engine/local/transaction_cut.h"
#include "engine/local/write_back.h"
#include "engine/support/side_by_side.h"

namespace VrelDR::Local {

// What a cut has to do for its members. `volume` is of their file system, open from before all that
// the cut writes; `path` names it.
struct CutPlan {
  Fd volume;
  Fd own;  // its ".vreldr"
  std::string path;
  std::vector<TransactionCut::Part> parts;
  std::vector<Job> copies;
  std::string copy_method;
  std::vector<Job> checks;  // that come after
};

// A cut of targets of one file system: subvolumes in one transaction, copies of all others, several
// at a time.
class LocalCut : public EngineCut {
 public:
  explicit LocalCut(CutPlan plan);

  // Does what can be done before Take.
  Status Prepare();
  bool MayBeOneInstant() const override { return transaction_ && plan_.copies.empty(); }
  Status Take(Watcher& watcher, CutOutcome& outcome) override;
  Status Settle(Watcher& watcher) override;

 private:
  CutPlan plan_;
  WriteBack write_back_;
  std::unique_ptr<TransactionCut> transaction_;  // null without a subvolume
};

}  // namespace VrelDR::Local
