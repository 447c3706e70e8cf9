#include "host/program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace drgroupctl {

namespace {

// This process's environment, in which `changes` stand for what they name.
std::vector<std::string> EnvironmentWith(const std::vector<std::string>& changes) {
  std::vector<std::string> all = changes;
  for (char** each = environ; *each != nullptr; ++each) {
    const std::string entry = *each;
    const std::string name = entry.substr(0, entry.find('=') + 1);
    const bool isChanged = std::any_of(changes.begin(), changes.end(), [&](const auto& change) {
      return change.starts_with(name);
    });
    if (!isChanged) all.push_back(entry);
  }
  return all;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& each : texts) pointers.push_back(each.data());
  pointers.push_back(nullptr);
  return pointers;
}

int ToExitCode(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

Program::Program(Program&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)), is_grouped_(other.is_grouped_) {}

Program::~Program() {
  if (pid_ != -1) Wait();
}

int Program::Start(const ProgramSpec& spec) {
  std::vector<std::string> words = spec.argv;
  std::vector<std::string> environment = EnvironmentWith(spec.environment);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  if (spec.is_silent) {
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  } else {
    posix_spawn_file_actions_adddup2(&actions, spec.out == -1 ? STDERR_FILENO : spec.out,
                                     STDOUT_FILENO);
  }
  if (spec.is_quiet) {
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t signals;
  sigemptyset(&signals);
  posix_spawnattr_setsigmask(&attributes, &signals);
  sigaddset(&signals, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &signals);
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes,
                           static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                              (spec.is_grouped ? POSIX_SPAWN_SETPGROUP : 0)));
  const int error = posix_spawnp(&pid_, words.front().c_str(), &actions, &attributes,
                                 Pointers(words).data(), Pointers(environment).data());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) pid_ = -1;
  is_grouped_ = spec.is_grouped;
  return error;
}

std::optional<int> Program::Wait(std::chrono::milliseconds time) {
  // The C library's own call is declared in no header that C++ can link by.
  const int fd = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
  pollfd ended = {fd, POLLIN, 0};
  const int found = poll(&ended, 1, static_cast<int>(time.count()));
  if (fd != -1) close(fd);
  return found == 1 ? std::optional(Wait()) : std::nullopt;
}

int Program::Wait() {
  int status = 0;
  while (waitpid(pid_, &status, 0) == -1 && errno == EINTR) {
  }
  pid_ = -1;
  return ToExitCode(status);
}

void Program::Kill() const {
  kill(is_grouped_ ? -pid_ : pid_, SIGKILL);
}

std::optional<int> RunForOutput(ProgramSpec spec, std::string& output, int& error) {
  spec.out = memfd_create("output", MFD_CLOEXEC);
  spec.is_quiet = true;
  Program program;
  error = spec.out == -1 ? errno : program.Start(spec);
  std::optional<int> code;
  if (error == 0) {
    code = program.Wait();
    char buffer[4096];
    ssize_t count = 0;
    for (off_t at = 0; (count = pread(spec.out, buffer, sizeof(buffer), at)) > 0; at += count) {
      output.append(buffer, static_cast<std::size_t>(count));
    }
  }
  if (spec.out != -1) close(spec.out);
  return code;
}

}  // namespace drgroupctl
