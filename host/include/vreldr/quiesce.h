#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "vrelcore/export.h"

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

}  // namespace VrelDR
