#pragma once

#include <vreldr/volume.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "action/plan_status.h"

// How groups are, as a monitor wants to know it: what there is, and what of it is wrong by the
// limits that somebody has set.
namespace drgroupctl {

struct GroupHealth {
  std::string id;
  std::string problem;               // why the group cannot be read; empty when it can
  std::vector<std::string> targets;  // that its definition names
  // When its newest group snapshot was taken; 0 when it has none. Nothing when that is not known.
  std::optional<std::int64_t> newest_time;
};

struct Health {
  std::int64_t now = 0;  // of this host's clock, seconds since the epoch
  std::vector<GroupHealth> groups;
  PlanSight plans;                          // of their targets
  std::vector<VrelDR::VolumeInfo> volumes;  // that have a copy of one of the targets
};

// Looks at one group, or at all when the identifier is empty, and at each volume once. A group that
// cannot be read is told as such; throws when the host cannot be asked at all, or when the one
// group is not there.
Health LookAtHealth(const std::string& groupId);

struct HealthLimits {
  std::optional<std::int64_t> max_age;  // seconds since a group's newest group snapshot
  std::optional<std::int64_t> max_lag;  // seconds since the last snapshot that arrived was taken
  std::uint64_t min_free_bytes = 0;
  unsigned min_free_percent = 0;
};

// What monitors take for a result. They compare these: never change a value.
enum class Grade { kOk = 0, kWarning = 1, kCritical = 2, kUnknown = 3 };

const char* ToText(Grade grade);

struct Finding {
  Grade grade;
  std::string text;  // printable
};

// A number for a monitor to draw.
struct Measure {
  std::string label;
  std::int64_t value = 0;
  std::string unit;   // "s" or "B"
  std::string limit;  // as monitors write ranges: "60", or "60:" for a least value; may be empty
};

struct Judgement {
  Grade grade = Grade::kOk;       // the worst: what is critical is worse than what is not known
  std::vector<Finding> findings;  // the worst first
  std::vector<Measure> measures;
};

Judgement Judge(const Health& health, const HealthLimits& limits);

// "DRGROUP CRITICAL - ... | 'g age'=..." on one line.
std::string PluginLine(const Health& health, const Judgement& judgement);

}  // namespace drgroupctl
