#pragma once

#include "command/verb.h"
#include "groups/catalogue_view.h"
#include "host/host.h"

// Parameters and sentences that several verbs have.
namespace drgroupctl {

inline Parameter Argument(const char* name, Value value, const char* summary) {
  return {name, value, name, summary, true};
}
inline Parameter Flag(const char* name, const char* summary) {
  return {name, Value::kFlag, "", summary};
}
inline Parameter Yes() {
  return Flag("--yes", "do not ask; without a terminal to ask at, the verb is refused without it");
}
inline Parameter GroupArgument(const char* summary) {
  return Argument("GROUP", Value::kGroup, summary);
}
inline Parameter Gsnap() {
  return Argument("GSNAP", Value::kGsnap, "the group snapshot, such as g1-gsnap-1700000000");
}
inline Parameter Description() {
  return {"--description", Value::kText, "TEXT", "what to remember of it"};
}
inline Parameter Consistency(const char* summary) {
  return {"--consistency", Value::kChoice, "KIND", summary, false, false, ConsistencyNames()};
}

inline Parameter AnyGroup() {
  return {"GROUP", Value::kGroup, "GROUP", "the group; all when left out"};
}
inline Parameter DryRun() {
  return Flag("--dry-run", "only check every target, and show what was found");
}
inline Parameter GoOnInUse() {
  return Flag("--in-use", "go on although somebody has a target open, and say who");
}
inline Parameter VolumeOfTarget() {
  return {"--volume", Value::kVolume, "V", "the volume that the target is made on", true};
}
inline Parameter TypeOfTarget() {
  return {"--type", Value::kChoice, "TYPE", "what kind of target it is", true, false, TypeNames()};
}
inline Parameter PlanArgument() {
  return Argument("PLAN", Value::kPlan, "the plan's identifier");
}
inline Parameter PlanTarget() {
  return Argument("TARGET", Value::kTarget, "a target that a plan has, either copy");
}
inline Parameter ForceClaims() {
  return Flag("--force", "lose snapshots that are locked or recorded, too");
}

inline constexpr char kAllOrNothing[] =
    "All targets are checked first, and nothing is done unless all pass. When a target fails, what "
    "was done to those before it is taken back, and the report tells of each target whether it was "
    "done, failed, reverted, failed to revert or not started, and how its plan stands now.";
inline constexpr char kRunAgain[] =
    "After an interruption the same command goes on: targets that were done are passed over while "
    "others are left.";
inline constexpr char kInUse[] =
    "Refused, before anything is done, while somebody uses the bytes that it makes unwritable and "
    "can write them, or those that it replaces or removes: a program that has a file open or "
    "mapped, a loop device, a swap file, a bind mount in any mount namespace. The message names "
    "the "
    "program with its pid, and --in-use goes on over it, saying so.";
inline constexpr char kClaims[] =
    "Whatever removes a copy names it with its volume, its side and its snapshots, and asks. It is "
    "refused, before anything is done, when one of the snapshots is locked or recorded in any "
    "group's catalogue, or when a catalogue cannot be read, unless --force says to lose them.";

}  // namespace drgroupctl
