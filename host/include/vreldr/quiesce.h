#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "vrelcore/export.h"
#include "vreldr/error.h"

namespace VrelDR {

// Two programs with their arguments, run without a shell: one that makes a writer stand still, and
// one that lets it go on. The second runs once for every time that the first was started, also when
// the first failed or was killed half way, so it must do no harm then.
struct VREL_API QuiesceCommand {
  std::vector<std::string> freeze;
  std::vector<std::string> thaw;
  // Whether the application has written its state when the first has succeeded, so that snapshots
  // taken then hold what it needs to go on without a recovery.
  bool is_app_consistent = false;
};

// Who writes the targets of a group, and how they are made to stand still while snapshots are
// taken. Without any, nobody is held.
struct VREL_API QuiesceMeans {
  static constexpr std::uint32_t kDefaultDeadlineMs = 5000;
  static constexpr std::uint32_t kLeastDeadlineMs = 100;
  static constexpr std::uint32_t kMostDeadlineMs = 60000;

  std::vector<std::string> control_groups;  // directories of control groups, absolute
  std::vector<std::string> units;           // of the service manager, such as "database.service"
  std::vector<std::string> domains;         // virtual machines of libvirt
  std::vector<QuiesceCommand> commands;
  // The writers stand still for this long at most, freezing them included.
  std::uint32_t deadline_ms = kDefaultDeadlineMs;

  bool IsEmpty() const;
  // Whether the state of an application is written: every command says so, and there is one.
  bool IsAppConsistent() const;

  // What is wrong with the values, for people, such as a program without a name; empty when
  // nothing is.
  std::string FindProblem() const;

  Json::Value ToJson() const;
  // Takes the means from what ToJson gives. False, with what is wrong in `problem` and this as it
  // was, when it is something else: a member of another name or kind, or what FindProblem finds.
  // Lists that are left out are empty.
  bool FromJson(const Json::Value& json, std::string& problem);
};

// What holding the writers once was like.
struct VREL_API QuiesceTrial {
  std::uint64_t freeze_ms = 0;        // until all stood still
  std::uint64_t held_ms = 0;          // until all went on; no less than the other
  std::vector<std::string> troubles;  // with letting them go on, a line for each
};

// Looks whether the writers could be held, and rehearses it. The library needs nothing of this; it
// is there for a tool that configures the means.
class VREL_API WriterQuiesce : public DRErrRecorder {
 public:
  explicit WriterQuiesce(const QuiesceMeans& means) : means_(means) {}

  // Looks at everything that can be told before anybody is held. False when something is wrong:
  // kErrNotHeld, with a line for each fault in `faults`.
  bool Check(std::vector<std::string>& faults) const;
  // Checks, holds all writers, and lets them go on at once. False when it could not be done; then
  // nobody is held either.
  bool Try(QuiesceTrial& trial) const;

 private:
  QuiesceMeans means_;
};

}  // namespace VrelDR
