#pragma once

#include <memory>
#include <string>

#include "command/verb.h"
#include "groups/history.h"
#include "output/failure.h"

namespace drgroupctl {

// One run of a verb, in the history of the group that it acts on, if it is one that is recorded
// (Verb::kind): that it began, and how it ended. What only looks, what was not agreed to and what
// another process was in the way of is no run. The history is kept as far as it can be: at most a
// warning tells that it could not.
class RecordedRun {
 public:
  RecordedRun(const Verb& verb, const Arguments& args, Warnings& warnings);

  // Runs the verb, once; throws what it throws.
  Report Run();

 private:
  void Begin();

  const Verb& verb_;
  const Arguments& args_;
  Warnings& warnings_;
  std::string kind_;  // empty for what is not recorded
  std::string group_id_;
  std::unique_ptr<HistoryEntry> entry_;
};

}  // namespace drgroupctl
