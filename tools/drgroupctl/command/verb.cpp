#include "command/verb.h"

namespace drgroupctl {

const std::vector<Parameter>& CommonOptions() {
  static const std::vector<Parameter> options = {
      {"--json", Value::kFlag, "", "print one JSON document instead of text for people"},
      {"--help", Value::kFlag, "", "tell what the verb does and takes, and end"},
  };
  return options;
}

std::string Verb::Usage() const {
  std::string usage;
  const auto add = [&usage](const Parameter& each, const std::string& text) {
    const std::string many = each.repeated ? text + "..." : text;
    usage += (usage.empty() ? "" : " ") + (each.required ? many : "[" + many + "]");
  };
  for (const Parameter& each : arguments) add(each, each.name);
  for (const Parameter& each : options) {
    add(each, each.placeholder.empty() ? each.name : each.name + " " + each.placeholder);
  }
  return usage;
}

}  // namespace drgroupctl
