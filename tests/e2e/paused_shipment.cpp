#include "paused_shipment.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

namespace e2e {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

std::string FirstLine(const fs::path& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

// Whether the process writes what is sent to `target`: without it nothing goes on. Of btrfs there
// are others that only read.
bool IsWriter(const fs::path& proc, const std::string& target) {
  const std::string name = FirstLine(proc / "comm");
  const std::string words = FirstLine(proc / "cmdline");
  const bool isWriter =
      name == "rsync" || (name == "btrfs" && words.find("receive") != std::string::npos);
  return isWriter && (target.empty() || words.find("/incoming/" + target) != std::string::npos);
}

// The one below `pid`. 0 when there is none.
int FindWriter(int pid, const std::string& target) {
  std::error_code error;
  const fs::path tasks = "/proc/" + std::to_string(pid) + "/task";
  for (fs::directory_iterator each(tasks, error); !error && each != fs::directory_iterator();
       each.increment(error)) {
    std::ifstream children(each->path() / "children");
    for (int child = 0; children >> child;) {
      if (IsWriter("/proc/" + std::to_string(child), target)) return child;
      const int below = FindWriter(child, target);
      if (below != 0) return below;
    }
  }
  return 0;
}

}  // namespace

void WaitFor(const std::string& what, const std::function<bool()>& condition) {
  const auto end = Clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (Clock::now() > end) {
      ADD_FAILURE() << "waited too long for " << what;
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

SentByPrograms::SentByPrograms() {
  setenv("VRELDR_FAIL_POINT", "ship.by_changes@*", 1);
}

SentByPrograms::~SentByPrograms() {
  unsetenv("VRELDR_FAIL_POINT");
}

PausedShipment::PausedShipment(const Process& tool, const std::string& target) {
  WaitFor("the program that sends", [&] {
    pid_ = FindWriter(tool.Id(), target);
    return pid_ != 0;
  });
  if (pid_ != 0) kill(pid_, SIGSTOP);
}

PausedShipment::~PausedShipment() {
  if (pid_ != 0) kill(pid_, SIGCONT);
}

}  // namespace e2e
