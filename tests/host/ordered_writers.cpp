#include "ordered_writers.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <thread>

#include "host_fixture.h"
#include "tree.h"

namespace host_test {

namespace {

namespace fs = std::filesystem;

bool Write(const std::string& path, int flags, const std::string& text) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0600);
  const bool isWritten =
      file != -1 && pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
  const bool isSynced = isWritten && ((flags & O_DSYNC) != 0 || fdatasync(file) == 0);
  if (file != -1) close(file);
  return isSynced;
}

// Ways to write a file so that it is on disk afterwards.
bool WriteAndSync(const std::string& path, const std::string& text) {
  return Write(path, 0, text);
}
bool WriteThrough(const std::string& path, const std::string& text) {
  return Write(path, O_DSYNC, text);
}
bool Replace(const std::string& path, const std::string& text) {
  if (!Write(path + ".new", 0, text)) return false;
  if (rename((path + ".new").c_str(), path.c_str()) != 0) return false;
  const int dir = open(fs::path(path).parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const bool isSynced = dir != -1 && fsync(dir) == 0;
  if (dir != -1) close(dir);
  return isSynced;
}

struct Way {
  const char* name;
  bool (*write)(const std::string& path, const std::string& text);
};
constexpr Way kWays[] = {
    {"synced", WriteAndSync}, {"through", WriteThrough}, {"replaced", Replace}};

std::string Padded(std::uint64_t n) {
  std::string text = std::to_string(n);
  text.resize(4096, ' ');
  return text;
}

bool Join(const std::string& group) {
  if (group.empty()) return true;
  const int file = open((group + "/cgroup.procs").c_str(), O_WRONLY | O_CLOEXEC);
  const bool isIn = file != -1 && write(file, "0", 1) == 1;
  if (file != -1) close(file);
  return isIn;
}

int WriteOn(const Way& way, const std::vector<std::string>& dirs,
            std::atomic<std::uint64_t>& written) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  for (std::uint64_t n = 1; way.write(dirs[n % dirs.size()] + "/" + way.name, Padded(n)); ++n) {
    written = n;
  }
  return 1;
}

}  // namespace

OrderedWriters::OrderedWriters(const std::vector<std::string>& dirs, const std::string& group)
    : dir_count_(dirs.size()) {
  void* shared = mmap(nullptr, sizeof(std::atomic<std::uint64_t>) * std::size(kWays),
                      PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  EXPECT_NE(shared, MAP_FAILED);
  written_ = static_cast<std::atomic<std::uint64_t>*>(shared);  // 0 each, as all of the memory
  for (std::size_t i = 0; i < std::size(kWays); ++i) {
    pids_.push_back(
        StartChild({}, [&, i] { return Join(group) ? WriteOn(kWays[i], dirs, written_[i]) : 2; }));
  }
}

OrderedWriters::~OrderedWriters() {
  for (const pid_t each : pids_) kill(each, SIGKILL);
  for (const pid_t each : pids_) WaitFor(each);
  munmap(written_, sizeof(std::atomic<std::uint64_t>) * std::size(kWays));
}

bool OrderedWriters::GoRound() const {
  std::vector<std::uint64_t> wanted;
  for (std::size_t i = 0; i < pids_.size(); ++i) wanted.push_back(written_[i] + dir_count_);
  for (std::size_t i = 0; i < pids_.size(); ++i) {
    while (written_[i] < wanted[i]) {
      siginfo_t ended{};
      const bool isAsked =
          waitid(P_PID, static_cast<id_t>(pids_[i]), &ended, WEXITED | WNOHANG | WNOWAIT) == 0;
      if (!isAsked || ended.si_pid != 0) return false;
      std::this_thread::yield();
    }
  }
  return true;
}

bool HoldAllInOrder(const std::vector<std::string>& dirs) {
  return std::all_of(std::begin(kWays), std::end(kWays), [&](const Way& way) {
    std::vector<std::uint64_t> held;
    for (const std::string& each : dirs) {
      const std::string path = each + "/" + way.name;
      held.push_back(fs::exists(path) ? std::stoull(ReadFile(path)) : 0);
    }
    const std::uint64_t last = *std::max_element(held.begin(), held.end());
    for (std::uint64_t n = last; n > 0 && last - n < held.size(); --n) {
      if (held[n % held.size()] != n) return false;
    }
    return true;
  });
}

}  // namespace host_test
