#include "judge.h"

namespace torture {

namespace {

using Facts = std::map<std::string, std::string>;

bool StartsWith(const std::string& text, const std::string& start) {
  return text.rfind(start, 0) == 0;
}

bool IsProblem(const std::string& value) {
  return StartsWith(value, "problem: ");
}

const std::string* Find(const Facts& facts, const std::string& key) {
  const auto found = facts.find(key);
  return found == facts.end() ? nullptr : &found->second;
}

// Whether a group snapshot is said to be ready while a part of it is not there.
bool IsPartMissing(const std::string& value) {
  return StartsWith(value, "ready") && value.find("=not there") != std::string::npos;
}

// Whether a group snapshot is said to be ready and is not.
bool LooksWhole(const std::string& value) {
  return IsPartMissing(value) ||
         (StartsWith(value, "ready") && value.find("=damaged") != std::string::npos);
}

class Judgement {
 public:
  Judgement(const Moment& moment, const Sight& seen) : moment_(moment), seen_(seen) {}

  std::vector<std::string> Pass() {
    std::set<std::string> keys;
    for (const Facts* facts : {&moment_.before.facts, &moment_.after.facts, &seen_.facts}) {
      for (const auto& [key, value] : *facts) keys.insert(key);
    }
    for (const std::string& key : keys) {
      if (!IsExempt(key)) JudgeOne(key);
    }
    return faults_;
  }

 private:
  void JudgeOne(const std::string& key) {
    const std::string* before = Find(moment_.before.facts, key);
    const std::string* after = Find(moment_.after.facts, key);
    const std::string* seen = Find(seen_.facts, key);
    if (moment_.is_acknowledged) before = after;
    if (seen != nullptr && StartsWith(key, "gsnap ") && LooksWhole(*seen)) {
      return Say(key, "looks whole", *seen);
    }
    if (before == nullptr && after == nullptr) {
      if (seen != nullptr && !MayBeExtra(key, *seen)) Say(key, "is nothing that was made", *seen);
      return;
    }
    const bool isTouched = before == nullptr || after == nullptr || *before != *after;
    if (seen == nullptr) {
      if (before != nullptr && after != nullptr && !IsFreeToChange(key)) {
        Say(key, "is lost", *after);
      }
      return;
    }
    if ((before != nullptr && *seen == *before) || (after != nullptr && *seen == *after)) return;
    if (isTouched && IsSaid(*seen)) return;
    // Names of what is new are chosen anew when a step is run again.
    const bool isNew = before == nullptr || StartsWith(key, "arrived ");
    if (isTouched && isNew && MayBeExtra(key, *seen)) return;
    if (IsFreeToChange(key) && seen->find("=not there") == std::string::npos) return;
    Say(key, "was " + (after != nullptr ? *after : *before) + " and is", *seen);
  }

  // What is being changed may be out of use for the time, if that is what is said of it.
  static bool IsSaid(const std::string& value) {
    return IsProblem(value) || StartsWith(value, "incomplete") || StartsWith(value, "bad") ||
           StartsWith(value, "unknown") || value.find("=said to be missing") != std::string::npos;
  }

  bool IsExempt(const std::string& key) const {
    for (const std::string& each : moment_.unsynced) {
      if (key == "works " + each) return true;
    }
    // A replica's own bytes are nobody's, also while a second plan of its target hides the first.
    const bool isWorking = StartsWith(key, "works ");
    if (isWorking && moment_.step.verb == "edit" &&
        moment_.before.targets.count(key.substr(6)) != 0) {
      return moment_.before.working.count(key.substr(6)) == 0;
    }
    // What a group that is being renamed knows is found again when that was finished.
    const bool isLocked = moment_.step.verb == "group rename" && !seen_.group_problems.empty();
    for (const char* kind : {"gsnap ", "plan ", "arrived ", "works ", "status ", "snapshots "}) {
      if (isLocked && StartsWith(key, kind)) return true;
    }
    return false;
  }

  // Moving the copies makes second plans before the first ones go.
  bool IsFreeToChange(const std::string& key) const {
    return !moment_.is_acknowledged && moment_.step.verb == "edit" &&
           (StartsWith(key, "plan ") || StartsWith(key, "arrived ") || StartsWith(key, "status "));
  }

  // Something that an interrupted step made and its repetition made again, under another name: it
  // has to hold what there was to be held.
  bool MayBeExtra(const std::string& key, const std::string& value) const {
    if (moment_.is_acknowledged) return false;
    if (StartsWith(key, "target ") || IsSaid(value)) return true;
    const std::string version = value.substr(value.rfind('=') + 1);
    if (StartsWith(key, "gsnap ") || StartsWith(key, "plan ")) return true;
    if (version == "v0") return true;
    if (StartsWith(key, "works ") && seen_.group_problems.empty()) {
      // A replica's own bytes are nobody's as long as its plan says so.
      const std::string target = key.substr(6);
      if (moment_.before.targets.count(target) != 0) return false;
      if (moment_.after.working.count(target) == 0) {
        for (const auto& [main, plan] : moment_.after.plans) {
          if (plan.replica == target) return true;
        }
      }
    }
    // What was written without a sync may be gone from the copy that a reprotection keeps.
    const bool isOfOldSource = moment_.step.verb == "reprotect" && !moment_.unsynced.empty();
    if (isOfOldSource && StartsWith(key, "snapshot ")) return true;
    for (const auto& [target, held] : moment_.before.held) {
      if (held == version) return true;
    }
    if (!StartsWith(key, "works ")) return false;
    for (const auto& [target, snapshots] : moment_.before.snapshots) {
      for (const auto& [id, held] : snapshots) {
        if (held == version) return true;
      }
    }
    return false;
  }

  void Say(const std::string& key, const std::string& what, const std::string& value) {
    faults_.push_back(key + " " + what + " \"" + value + "\"");
  }

  const Moment& moment_;
  const Sight& seen_;
  std::vector<std::string> faults_;
};

}  // namespace

std::vector<std::string> Judge(const Moment& moment, const Sight& seen) {
  return Judgement(moment, seen).Pass();
}

std::vector<std::string> JudgeAgain(const Moment& moment, const Sight& seen, const Sight& again) {
  std::vector<std::string> faults;
  // What the bytes of an unsynced target are after the cut is what goes on from there.
  Sight start = moment.before;
  for (const std::string& each : moment.unsynced) {
    if (seen.working.count(each) != 0) start.working[each] = seen.working.at(each);
  }
  const std::string missing = moment.step.reached(start, again);
  if (!missing.empty()) faults.push_back(missing);
  for (const auto& [key, value] : again.facts) {
    // A snapshot of what was written without a sync, taken after the cut, is whole and holds what
    // the cut has left of that.
    const bool isDamaged = value.find("damaged ") != std::string::npos && moment.unsynced.empty();
    if (IsProblem(value) || isDamaged || (StartsWith(key, "gsnap ") && IsPartMissing(value))) {
      faults.push_back(key + " is \"" + value + "\"");
    }
  }
  for (const auto& [key, value] : moment.before.facts) {
    const std::string* after = Find(moment.after.facts, key);
    const std::string* now = Find(again.facts, key);
    const bool isKept = after != nullptr && *after == value && !StartsWith(key, "works ");
    if (isKept && (now == nullptr || *now != value)) {
      faults.push_back(key + " was \"" + value + "\" and is " +
                       (now == nullptr ? "gone" : "\"" + *now + "\""));
    }
  }
  return faults;
}

}  // namespace torture
