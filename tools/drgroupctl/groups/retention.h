#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Which group snapshots stay when a group keeps so many of each kind. Pure rules: nobody is asked,
// and no clock is read, as what counts is how the snapshots stand to each other.
namespace drgroupctl {

// How many stay: the last ones, and the newest of each of the last hours, days, weeks and months
// that have one. Hours to months are those of UTC, as in the names of group snapshots, and a week
// begins on Monday.
struct KeepRule {
  unsigned last = 0;
  unsigned hourly = 0;
  unsigned daily = 0;
  unsigned weekly = 0;
  unsigned monthly = 0;

  bool IsEmpty() const { return last + hourly + daily + weekly + monthly == 0; }
  bool operator==(const KeepRule&) const = default;
};

// Reads "last=24,hourly=48,daily=30,weekly=8,monthly=12", any of them in any order. Throws a usage
// failure that says what is wrong; also when nothing at all would stay.
KeepRule ParseKeep(const std::string& text);
std::string ToText(const KeepRule& rule);

struct Candidate {
  std::string id;
  std::int64_t time = 0;            // seconds since the epoch
  std::vector<std::string> claims;  // why it stays whatever the rule says
};

struct Verdict {
  std::string id;
  std::int64_t time = 0;
  bool stays = false;
  std::vector<std::string> reasons;  // for staying, the claims first; none when it goes
};

// One verdict for each candidate, the newest first. What stays by a claim counts for the rule, too.
std::vector<Verdict> Judge(const KeepRule& rule, std::vector<Candidate> candidates);

}  // namespace drgroupctl
