#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "action/hook.h"
#include "command/verb.h"
#include "groups/history.h"
#include "output/failure.h"

namespace drgroupctl {

// One run of a verb, in the history of the group that it acts on, if it is one that is recorded
// (Verb::kind): that it began, and how it ended. What only looks, what was not agreed to and what
// another process was in the way of is no run. The history is kept as far as it can be: at most a
// warning tells that it could not.
//
// When it goes it tells the group's hook of a failure, and of the first success after one: that is
// to be when the caller has no lock any more and has said what there is to say.
class RecordedRun {
 public:
  RecordedRun(const Verb& verb, const Arguments& args, Warnings& warnings);
  RecordedRun(const RecordedRun&) = delete;
  RecordedRun& operator=(const RecordedRun&) = delete;
  ~RecordedRun();

  // Runs the verb, once; throws what it throws.
  Report Run();

 private:
  void Begin();
  void End(const HistoryRun& run);

  Report (*run_)(const Arguments&, Warnings&);
  Arguments args_;
  Warnings& warnings_;
  std::string kind_;  // empty for what is not recorded
  std::string group_id_;
  std::unique_ptr<HistoryEntry> entry_;
  std::vector<std::string> hook_;
  std::optional<HookEvent> event_;  // what the hook is to be told
};

}  // namespace drgroupctl
