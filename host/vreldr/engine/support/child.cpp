#include "engine/support/child.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <string_view>

#include "engine/support/activity.h"
#include "engine/support/program.h"

namespace VrelDR {

namespace {

constexpr std::size_t kMostErrors = 4096;

// 0 or an errno. The child leads a group of its own, so that all its processes can be reached.
int Spawn(const std::vector<std::string>& args, const ChildStreams& streams, int errorsFd,
          VrelHost::Process& process) {
  std::vector<char*> argv;
  argv.reserve(args.size() + 1);
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  std::string path = "PATH=" + SearchPath();
  std::string locale = "LC_ALL=C";
  const std::array<char*, 3> environment{path.data(), locale.data(), nullptr};
  VrelHost::ProcessSpec spec;
  spec.path = argv[0];
  spec.argv = argv.data();
  spec.envp = environment.data();
  spec.is_bound = true;
  spec.fds[STDIN_FILENO] = streams.in;
  spec.fds[STDOUT_FILENO] = streams.out;
  spec.fds[STDERR_FILENO] = errorsFd;
  if (streams.held != -1) spec.fds[STDERR_FILENO + 1] = streams.held;
  return process.Start(spec);
}

}  // namespace

Pipe::Pipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return;
  read_end = Fd(ends[0]);
  write_end = Fd(ends[1]);
}

void WaitReadable(const std::vector<int>& fds, int timeoutMs) {
  std::vector<struct pollfd> polled;
  polled.reserve(fds.size());
  for (const int fd : fds) polled.push_back({fd, POLLIN, 0});
  (void)poll(polled.data(), polled.size(), timeoutMs);
}

Status Child::Start(const std::vector<std::string>& args, const std::string& package,
                    const ChildStreams& streams) {
  name_ = args[0];
  const std::string program = FindProgram(args[0]);
  if (program.empty()) {
    return {kErrUnsupported, "the program " + Quoted(name_) +
                                 " is not there; install the package " + Quoted(package)};
  }
  Pipe errors;
  if (!errors.read_end || fcntl(errors.read_end.Get(), F_SETFL, O_NONBLOCK) != 0) {
    return StatusOfErrno(errno, name_);
  }
  std::vector<std::string> found = args;
  found[0] = program;
  const int error = Spawn(found, streams, errors.write_end.Get(), process_);
  if (error != 0) return StatusOfErrno(error, program);
  errors_fd_ = std::move(errors.read_end);
  return {};
}

bool Child::IsRunning() {
  std::array<char, 1024> buffer;
  while (errors_fd_) {
    const ssize_t got = read(errors_fd_.Get(), buffer.data(), buffer.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && errno == EAGAIN) return true;
    if (got <= 0) errors_fd_ = Fd();  // all processes had it: none is left
    if (got > 0 && errors_.size() < kMostErrors) {
      errors_.append(buffer.data(), static_cast<std::size_t>(got));
    }
  }
  return false;
}

std::uint64_t Child::GetActivity() {
  const auto now = std::chrono::steady_clock::now();
  if (now >= next_activity_ && GetPid() != -1) {
    activity_ = ActivityOf(GetPid());
    next_activity_ = now + std::chrono::seconds(1);
  }
  return activity_;
}

void Child::WaitForEnd(int timeoutMs) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (IsRunning() && (timeoutMs < 0 || std::chrono::steady_clock::now() < end)) {
    WaitReadable({errors_fd_.Get()}, timeoutMs);
  }
}

Status Child::Finish() {
  WaitForEnd(-1);
  return Explain(process_.Wait());
}

Status Child::Stop(int graceMs) {
  const pid_t group = GetPid();
  if (group == -1) return {};
  if (graceMs > 0) {
    (void)kill(-group, SIGTERM);
    WaitForEnd(graceMs);
  }
  (void)kill(-group, SIGKILL);
  return Finish();
}

Status Child::Explain(int status) const {
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return {};
  for (const auto& [text, error] : {std::pair(std::string_view("No space left on device"), ENOSPC),
                                    std::pair(std::string_view("Disk quota exceeded"), EDQUOT),
                                    std::pair(std::string_view("Read-only file system"), EROFS)}) {
    if (errors_.find(text) != std::string::npos) return StatusOfErrno(error, {});
  }
  std::string complaint = errors_.substr(0, errors_.find('\n'));
  if (complaint.empty()) {
    complaint = WIFSIGNALED(status)
                    ? "ended by signal " + std::to_string(WTERMSIG(status))
                    : "exit status " + std::to_string(WEXITSTATUS(status)) + " without a word";
  }
  return {kErrIo, name_ + " failed: " + complaint};
}

NoPipeSignal::NoPipeSignal() {
  sigset_t pipe, before, pending;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  sigpending(&pending);
  was_pending_ = sigismember(&pending, SIGPIPE) == 1;
  pthread_sigmask(SIG_BLOCK, &pipe, &before);
  was_blocked_ = sigismember(&before, SIGPIPE) == 1;
}

NoPipeSignal::~NoPipeSignal() {
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  const struct timespec now = {};
  if (!was_pending_) (void)sigtimedwait(&pipe, nullptr, &now);
  if (!was_blocked_) pthread_sigmask(SIG_UNBLOCK, &pipe, nullptr);
}

}  // namespace VrelDR
