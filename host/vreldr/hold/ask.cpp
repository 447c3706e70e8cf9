#include "hold/ask.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>

#include "engine/support/child.h"
#include "engine/support/program.h"
#include "hold/runnable.h"
#include "process/process.h"

namespace VrelDR {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{5};
constexpr std::size_t kMostAnswer = std::size_t{64} * 1024;

// Takes in what is written until the end, or until `end`; false then.
bool ReadUntil(const Fd& fd, Clock::time_point end, std::string& text) {
  std::array<char, 4096> buffer;
  while (Clock::now() < end) {
    WaitReadable({fd.Get()}, 100);
    struct pollfd polled = {fd.Get(), POLLIN, 0};
    if (poll(&polled, 1, 0) != 1) continue;
    const ssize_t got = read(fd.Get(), buffer.data(), buffer.size());
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return true;
    if (text.size() < kMostAnswer) text.append(buffer.data(), static_cast<std::size_t>(got));
  }
  return false;
}

}  // namespace

Status FindRunnable(const std::string& name, const std::string& what, std::string& path) {
  const bool hasSlash = name.find('/') != std::string::npos;
  path = hasSlash ? name : FindProgram(name);
  if (hasSlash && name[0] != '/') {
    return {kErrNotHeld, what + " " + Quoted(name) + " is no absolute path; give one"};
  }
  if (path.empty() || access(path.c_str(), F_OK) != 0) {
    return {kErrNotHeld, what + " " + Quoted(name) + " is not there; install it, or correct it"};
  }
  if (access(path.c_str(), X_OK) != 0) {
    return {kErrNotHeld, what + " " + Quoted(name) + " may not be run; make it executable"};
  }
  return {};
}

Status Ask(std::vector<std::string> args, std::string& answer) {
  Environment environment;
  environment.Set("LC_ALL", "C");
  Runnable runnable(std::move(args));
  const GuardProgram program = runnable.Prepare(environment.Get());

  Pipe pipe;
  if (!pipe.read_end) return StatusOfErrno(errno, program.path);
  VrelHost::ProcessSpec spec;
  spec.path = program.path;
  spec.argv = program.argv;
  spec.envp = program.envp;
  spec.is_bound = true;
  spec.fds[STDIN_FILENO] = VrelHost::ProcessSpec::kNull;
  spec.fds[STDOUT_FILENO] = pipe.write_end.Get();
  spec.fds[STDERR_FILENO] = pipe.write_end.Get();
  VrelHost::Process process;
  const int error = process.Start(spec);
  if (error != 0) return {kErrNotHeld, StatusOfErrno(error, program.path).message};
  pipe.write_end = Fd();
  const bool ended = ReadUntil(pipe.read_end, Clock::now() + kPatience, answer);
  if (!ended) (void)kill(-process.GetPid(), SIGKILL);
  const int status = process.Wait();
  while (!answer.empty() && answer.back() == '\n') answer.pop_back();
  if (!ended) {
    return {kErrNotHeld, "it did not answer within " + std::to_string(kPatience.count()) +
                             " s; see why and run it again"};
  }
  return status == 0 ? Status() : Status{kErrNotHeld, DescribeEnd(status, answer)};
}

std::string LastLine(const std::string& text) {
  const std::size_t end = text.find_last_not_of("\r\n \t");
  if (end == std::string::npos) return {};
  const std::size_t begin = text.find_last_of("\r\n", end);
  return text.substr(begin == std::string::npos ? 0 : begin + 1, end - (begin + 1) + 1);
}

std::string DescribeEnd(int status, const std::string& output) {
  std::string text = WIFSIGNALED(status) ? "ended by signal " + std::to_string(WTERMSIG(status))
                                         : "exit status " + std::to_string(WEXITSTATUS(status));
  const std::string said = LastLine(output);
  return said.empty() ? text + " without a word" : text + ", " + Quoted(said);
}

}  // namespace VrelDR
