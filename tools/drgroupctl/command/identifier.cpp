#include "command/identifier.h"

#include <vreldrgroup/record/gsnapshot.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <algorithm>

#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

// A group's identifier is a file name, and one with "-gsnap-SECONDS" behind it is a longer one.
constexpr std::size_t kLongest = 200;

// What is wrong with an identifier; empty when nothing is.
std::string Problem(const std::string& id) {
  if (id.empty()) return "is empty";
  if (id.size() > kLongest) return "is longer than " + std::to_string(kLongest) + " bytes";
  if (!IsUtf8(id)) return "is not UTF-8 text";
  if (id.front() == '.' || id.front() == '-') return "begins with \".\" or \"-\"";
  for (const char c : id) {
    if (c == '/' || c == '\\' || c == '"' || c == '\'' || c == '`') {
      return "has a slash, a backslash or a quote in it";
    }
  }
  if (Printable(id) != id) return "has a control character in it";
  if (id.front() == ' ' || id.back() == ' ') return "begins or ends with a space";
  return {};
}

}  // namespace

void CheckIdentifier(const std::string& kind, const std::string& id) {
  const std::string problem = Problem(id);
  if (problem.empty()) return;
  // A long one would fill the screen and say nothing more.
  const std::string shown = id.size() <= kLongest ? Quote(id) : "given";
  throw Failure(ExitCode::kUsage, "the " + kind + " identifier " + shown + " " + problem +
                                      ": choose another, such as \"" + kind + "1\"");
}

void CheckGsnapId(const std::string& gsnapId) {
  const std::string group = VrelDRGroup::Utils::ParseGroupId(gsnapId);
  const std::string digits = gsnapId.substr(gsnapId.rfind('-') + 1);
  const bool isTime =
      !digits.empty() && digits.size() <= 20 &&
      std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
  if (group.empty() || !isTime ||
      group.size() + std::string("-gsnap-").size() + digits.size() != gsnapId.size()) {
    throw Failure(ExitCode::kUsage, "group snapshot " + Quote(gsnapId) +
                                        ": an identifier looks like GROUP-gsnap-SECONDS; see "
                                        "\"drgroupctl snapshot list GROUP\"");
  }
  CheckIdentifier("group", group);
}

}  // namespace drgroupctl
