#pragma once

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "sight.h"

namespace torture {

// One command of a sequence.
struct Step {
  std::string verb;
  std::vector<std::string> words;
  // The command that goes on with it after an interruption.
  std::vector<std::string> again;
  // "" when what the command promises is true, or what is not.
  std::function<std::string(const Sight& before, const Sight& now)> reached;

  std::string Text() const;
};

// The group that a sequence is about: the one that has the target "a".
std::string MainGroupOf(const Sight& sight);
// Its plans, by target. Empty when it is not protected.
std::map<std::string, SeenPlan> PlansOf(const Sight& sight, const std::string& group);

// Commands by themselves.
Step CreateTarget(const std::string& id, const std::string& volume, const std::string& type);
Step ImportTarget(const std::string& id, const std::string& volume, const std::string& path,
                  const std::string& version);
Step RemoveTarget(const std::string& id);
Step CreateGroup(const std::string& id, const std::vector<std::string>& targets);
Step DeleteGroup(const std::string& id);
Step HoldWriters(const std::string& group, const std::string& command);
Step RenameGroup(const std::string& id, const std::string& to);
Step TakeSnapshot(const std::string& group);
Step DeleteSnapshot(const std::string& gsnap);
Step RestoreSnapshot(const std::string& gsnap);
Step CloneSnapshot(const std::string& gsnap);
Step ShipSnapshot(const std::string& gsnap);
Step RecordSnapshot(const std::string& group);
Step Prune(const std::string& group);
Step Protect(const std::string& group, const std::string& volume, const std::string& drGroup);
Step Sync(const std::string& group);
Step Switchover(const std::string& group);
// `isMixed` when the last snapshots that arrived are of no cut.
Step Failover(const std::string& group, bool isForced, bool isMixed = false);
Step Reprotect(const std::string& group);
Step Edit(const std::string& group, const std::string& volume);
Step Unprotect(const std::string& group, bool withData);

// What the replicas have got last.
enum class Arrived {
  kNothing,  // since a reprotection, which a failover would only take back
  kNoCut,    // snapshots that were taken one by one, as by an edit
  kOneCut,
};

// One that makes sense now, at random. `imports` is a folder for what is imported.
Step NextStep(const Sight& sight, std::mt19937& random, const std::string& imports, int& version,
              Arrived arrived);

}  // namespace torture
