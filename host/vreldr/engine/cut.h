#pragma once

#include <chrono>
#include <string>

#include "engine/engine.h"

namespace VrelDR {

// A snapshot that a cut shall make of a target, under an identifier that is free.
struct CutMember {
  const StorageEngine* engine = nullptr;  // of the target's volume; outlives the cut
  TargetPlace place;
  std::string snapId;
};

// How a cut went.
struct CutOutcome {
  using Time = std::chrono::steady_clock::time_point;

  bool is_one_instant = false;  // of all members, whoever writes meanwhile; proven, not likely
  std::string method;           // for people
  int tries = 0;
  Time begin;  // of the first member's snapshot
  Time end;    // of the last one's
};

// Snapshots of several targets, made ready by StorageEngine::PrepareCut. Nobody sees them, or takes
// them for snapshots, until TakeUp lets them appear. What became of each stays when the object
// goes, which gives up threads and descriptors alone: RemoveSnapshot with CleanUp removes what was
// made.
class EngineCut {
 public:
  virtual ~EngineCut() = default;

  // Whether the snapshots may prove to be of one instant although writers go on.
  virtual bool MayBeOneInstant() const = 0;

  // Makes them all, in the shortest time that the engine can: writers may be held meanwhile, so
  // nothing is done that can be done before or after. May be called once. A failure may leave any
  // of them.
  virtual Status Take(Watcher& watcher, CutOutcome& outcome) = 0;
  // Comes after Take: from now on what they hold is whole and on disk, or the call fails.
  virtual Status Settle(Watcher& watcher) = 0;
};

}  // namespace VrelDR
