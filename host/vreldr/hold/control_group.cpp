#include "hold/control_group.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <system_error>

namespace VrelDR {

namespace fs = std::filesystem;

namespace {

Status NotHeld(const std::string& message) {
  return {kErrNotHeld, message};
}

std::string ReadText(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

pid_t ParentOf(pid_t pid) {
  std::istringstream status(ReadText("/proc/" + std::to_string(pid) + "/status"));
  std::string word;
  pid_t parent = 0;
  while (status >> word) {
    if (word == "PPid:") status >> parent;
  }
  return parent;
}

// The threads of this process, and the processes that have started it.
std::set<pid_t> WhoHasToRun() {
  std::set<pid_t> found;
  std::error_code error;
  for (fs::directory_iterator each("/proc/self/task", error), end; !error && each != end;
       each.increment(error)) {
    found.insert(static_cast<pid_t>(std::strtol(each->path().filename().c_str(), nullptr, 10)));
  }
  for (pid_t pid = getpid(); pid > 0; pid = ParentOf(pid)) found.insert(pid);
  return found;
}

// One of `pids` that is in the group or one below it; 0 when none is.
pid_t FindMember(const fs::path& dir, const char* list, const std::set<pid_t>& pids) {
  std::istringstream members(ReadText(dir / list));
  for (pid_t pid = 0; members >> pid;) {
    if (pids.count(pid) != 0) return pid;
  }
  std::error_code error;
  for (fs::directory_iterator each(dir, error), end; !error && each != end; each.increment(error)) {
    std::error_code ignored;
    if (!fs::is_directory(each->symlink_status(ignored))) continue;
    if (const pid_t found = FindMember(each->path(), list, pids)) return found;
  }
  return 0;
}

Status CheckMembers(const std::string& dir, const std::string& name, bool isV2) {
  const pid_t found = FindMember(dir, isV2 ? "cgroup.threads" : "tasks", WhoHasToRun());
  if (found == 0) return {};
  std::string program = ReadText("/proc/" + std::to_string(found) + "/comm");
  program = program.substr(0, program.find('\n'));
  const bool isOwn = fs::exists("/proc/self/task/" + std::to_string(found));
  return NotHeld(name + " holds " +
                 (isOwn ? "this program itself" : "what has started this program") + ", " +
                 Quoted(program) + " (process " + std::to_string(found) +
                 "), which has to run; name a group with the writers alone");
}

// Opens a file of the group.
Status OpenFile(const std::string& dir, const char* file, int flags, const std::string& name,
                Fd& fd) {
  fd = Fd(open((dir + "/" + file).c_str(), flags | O_CLOEXEC));
  if (fd) return {};
  if (errno != ENOENT) {
    return InContext(name, {kErrNotHeld, StatusOfErrno(errno, dir + "/" + file).message});
  }
  return NotHeld(name + " has no \"" + file +
                 "\": it is the root of its hierarchy, or of one that cannot be frozen; name a "
                 "group of version 2, or one of the freezer of version 1, below the root");
}

std::string Read(const Fd& fd) {
  char text[256];
  const ssize_t size = pread(fd.Get(), text, sizeof text, 0);
  return std::string(text, size < 0 ? 0 : static_cast<std::size_t>(size));
}

bool IsFrozenAlready(const HeldWriter& writer) {
  if (Read(writer.intent).rfind('1', 0) == 0) return true;
  const std::string state = Read(writer.state);
  if (!writer.is_v2) return state.rfind("THAWED", 0) != 0;
  return state.find("frozen 1") != std::string::npos;
}

Status OpenFiles(const std::string& dir, const std::string& name, HeldWriter& writer) {
  const char* control = writer.is_v2 ? "cgroup.freeze" : "freezer.state";
  Status status = OpenFile(dir, control, O_RDWR, name, writer.control);
  if (status.IsOk()) {
    const char* intent = writer.is_v2 ? control : "freezer.self_freezing";
    status = OpenFile(dir, intent, O_RDONLY, name, writer.intent);
  }
  if (status.IsOk()) {
    const char* state = writer.is_v2 ? "cgroup.events" : control;
    status = OpenFile(dir, state, O_RDONLY, name, writer.state);
  }
  return status;
}

}  // namespace

Status OpenControlGroup(const std::string& dir, const std::string& name, HeldWriter& writer) {
  struct statfs about = {};
  std::error_code error;
  if (!fs::exists(fs::status(dir, error)) || statfs(dir.c_str(), &about) != 0) {
    return NotHeld(name + " is not there; start what it belongs to, or correct the path");
  }
  if (about.f_type != CGROUP2_SUPER_MAGIC && about.f_type != CGROUP_SUPER_MAGIC) {
    return NotHeld(name + " is no control group; name a directory of one, such as one below \"" +
                   "/sys/fs/cgroup\"");
  }
  writer.name = name;
  writer.stage = GuardThing::kControlGroup;
  writer.is_v2 = about.f_type == CGROUP2_SUPER_MAGIC;
  Status status = OpenFiles(dir, name, writer);
  if (status.IsOk() && IsFrozenAlready(writer)) {
    return NotHeld(name + " is frozen already, by somebody else; have it thawed and run it again");
  }
  return status.IsOk() ? CheckMembers(dir, name, writer.is_v2) : status;
}

}  // namespace VrelDR
