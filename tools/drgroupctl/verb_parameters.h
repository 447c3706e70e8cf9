#pragma once

#include <vector>

#include "catalogue_view.h"
#include "verb.h"

// Parameters that several verbs have, and the parts of the table of verbs.
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

// The verbs for plans and the actions on them.
std::vector<Verb> PlanVerbs();

}  // namespace drgroupctl
