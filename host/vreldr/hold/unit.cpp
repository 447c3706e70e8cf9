#include <sys/stat.h>

#include "hold/ask.h"
#include "hold/control_group.h"
#include "hold/hierarchy.h"
#include "hold/means.h"

namespace VrelDR {

namespace {

// The value of a line "name=value".
std::string ValueOf(const std::string& text, const std::string& name) {
  const std::size_t at = ("\n" + text).find("\n" + name + "=");
  if (at == std::string::npos) return {};
  const std::size_t begin = at + name.size() + 1;
  return text.substr(begin, text.find('\n', begin) - begin);
}

bool IsDirectory(const std::string& path) {
  struct stat about = {};
  return stat(path.c_str(), &about) == 0 && S_ISDIR(about.st_mode);
}

bool HasFreezer(const std::string& dir) {
  struct stat about = {};
  return stat((dir + "/cgroup.freeze").c_str(), &about) == 0 ||
         stat((dir + "/freezer.state").c_str(), &about) == 0;
}

}  // namespace

Status OpenUnit(const std::string& unit, HeldWriter& writer) {
  const std::string name = "unit " + Quoted(unit);
  std::string systemctl;
  std::string answer;
  Status status = FindRunnable("systemctl", "the program", systemctl);
  if (status.IsOk()) {
    status = Ask({systemctl, "show", "--property=LoadState", "--property=ControlGroup", "--", unit},
                 answer);
  }
  if (!status.IsOk()) return InContext(name, status);
  if (ValueOf(answer, "LoadState") != "loaded") {
    return {kErrNotHeld, name + " is not known to the service manager; correct its name"};
  }
  const std::string group = ValueOf(answer, "ControlGroup");
  if (group.empty() || group == "/") {
    return {kErrNotHeld, name +
                             " has no control group of its own, as when it does not run; start "
                             "it, or take it off the group's means"};
  }
  for (const std::string& place : PlacesOfControlGroup(group)) {
    if (IsDirectory(place) && HasFreezer(place)) {
      return OpenControlGroup(place, name + ", control group " + Quoted(place) + ",", writer);
    }
  }
  return {kErrNotHeld, name + ": its control group " + Quoted(group) +
                           " is in no hierarchy that can be frozen; name a group of the freezer "
                           "that its processes are in, or give commands"};
}

}  // namespace VrelDR
