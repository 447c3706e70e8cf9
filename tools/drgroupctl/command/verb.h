#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "output/report.h"

namespace drgroupctl {

class Warnings;

// What a value on the command line is: decides how it is checked and how a shell completes it.
enum class Value {
  kFlag,
  kNewGroup,  // an identifier to be given
  kNewTarget,
  kGroup,  // one that there is
  kGsnap,
  kTarget,
  kPlan,
  kVolume,
  kSize,
  kChoice,
  kText,
  kDirectory,
  kPath,
};

// An argument (a value at its place) or an option ("--name").
struct Parameter {
  std::string name;  // "GROUP", "--volume"
  Value value;
  std::string placeholder;  // of an option's value, such as "V"
  std::string summary;
  bool required = false;
  bool repeated = false;
  std::vector<std::string> choices = {};  // of a kChoice
};

// What the command line gave, by the parameters' names. Values are checked for their kind.
class Arguments {
 public:
  bool Has(std::string_view name) const { return values_.find(name) != values_.end(); }
  // The value, or empty when it was not given.
  std::string Text(std::string_view name) const {
    const auto found = values_.find(name);
    return found == values_.end() || found->second.empty() ? std::string() : found->second.front();
  }
  std::vector<std::string> List(std::string_view name) const {
    const auto found = values_.find(name);
    return found == values_.end() ? std::vector<std::string>() : found->second;
  }
  void Set(const std::string& name, std::vector<std::string> values) {
    values_[name] = std::move(values);
  }

 private:
  std::map<std::string, std::vector<std::string>, std::less<>> values_;
};

// One verb of the tool. Everything that tells of verbs (parsing, help, manual page, completion) is
// made from these.
struct Verb {
  std::string name;                      // "snapshot create"
  std::string summary;                   // one line, without a full stop
  std::vector<std::string> description;  // paragraphs
  std::string changes;                   // what it may change
  std::vector<Parameter> arguments;
  std::vector<Parameter> options;
  Report (*run)(const Arguments&, Warnings&);  // throws Failure
  // What its runs are called in the history of the group that it acts on; empty for a verb that has
  // no place there.
  std::string kind = {};

  // "GROUP [--latest]", as it stands behind the name.
  std::string Usage() const;
};

// All verbs, in the order in which they are told of.
const std::vector<Verb>& Verbs();

// The options that every verb has.
const std::vector<Parameter>& CommonOptions();

}  // namespace drgroupctl
