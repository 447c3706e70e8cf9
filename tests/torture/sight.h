#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "tool_fixture.h"

namespace torture {

// Runs the tool, with changes of the environment as pairs of name and value.
e2e::Result RunTool(const std::vector<std::string>& words,
                    const std::map<std::string, std::string>& environment = {});

struct SeenTarget {
  std::string type, volume, path;
};

struct SeenPlan {
  std::string group, state, working, replica, last;
};

// Everything that a host says of itself, and what the bytes are that it says it of.
struct Sight {
  std::map<std::string, SeenTarget> targets;
  std::map<std::string, std::vector<std::string>> groups;  // those that can be used
  std::map<std::string, std::string> group_problems;
  std::map<std::string, std::map<std::string, std::string>> gsnaps;     // target to its snapshot
  std::map<std::string, SeenPlan> plans;                                // by protected target
  std::map<std::string, std::map<std::string, std::string>> snapshots;  // target, id, version
  // What the targets hold: all of them, and those that work.
  std::map<std::string, std::string> held, working;

  // The same as what a cut may and may not change, each by a name of its own:
  //
  //   target T      -> volume and type          works T -> version
  //   group G       -> its targets, its writers plan T  -> group, state and who works
  //   gsnap G       -> status and target snapshots with their versions
  //   snapshot T/S  -> version                  arrived T -> the last snapshot with its version
  //
  // What cannot be told is "problem: ...".
  std::map<std::string, std::string> facts;

  // What a target holds that works, or nothing.
  std::string Version(const std::string& target) const;
  // A target that works was written since.
  void Set(const std::string& target, int version);
};

// Looks at everything. Changes nothing.
Sight Look();

}  // namespace torture
