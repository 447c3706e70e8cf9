// Runs programs for tests: plainly, or under ptrace with a say before each of their system calls.

#ifndef TESTS_HOST_TRACED_CHILD_H_
#define TESTS_HOST_TRACED_CHILD_H_

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using Args = std::vector<std::string>;
using Env = std::map<std::string, std::string>;

inline std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

struct Outcome {
  int code = -1;         // exit code, or 128 and the signal that ended the program
  std::string out, err;  // what it wrote
};

// A program that has been started. What it writes goes to files without a name.
class Child {
 public:
  Child(const Args& args, const Env& env, const std::filesystem::path& cwd = ".") {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fileno(out_.get()), 1);
    posix_spawn_file_actions_adddup2(&actions, fileno(err_.get()), 2);
    posix_spawn_file_actions_addchdir_np(&actions, cwd.c_str());
    WithArgv(args, env, [&](char** argv, char** envp) {
      EXPECT_EQ(0, posix_spawnp(&pid_, argv[0], &actions, nullptr, argv, envp)) << args[0];
    });
    posix_spawn_file_actions_destroy(&actions);
  }

  Outcome Wait() {
    int status = 0;
    EXPECT_EQ(pid_, waitpid(pid_, &status, 0));
    return Finish(status);
  }

  struct Trace {
    Outcome outcome;
    std::vector<std::string> programs;  // every program that was started, in order
    int forks = 0;
    // Every file that was asked to be opened, by the thread that asked.
    std::vector<std::pair<pid_t, std::string>> opened;
  };

  // Runs the program under ptrace. `at` is called before each system call of it and of its
  // children, with the call's number; true kills the process that makes the call.
  static Trace RunTraced(const Args& args, const Env& env, const std::function<bool(long)>& at) {
    Child child;
    WithArgv(args, env, [&](char** argv, char** envp) {
      child.pid_ = fork();
      if (child.pid_ != 0) return;
      dup2(fileno(child.out_.get()), 1);
      dup2(fileno(child.err_.get()), 2);
      ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
      raise(SIGSTOP);
      execve(argv[0], argv, envp);
      _exit(127);
    });
    int status = 0;
    EXPECT_EQ(child.pid_, waitpid(child.pid_, &status, 0));
    EXPECT_EQ(0, ptrace(PTRACE_SETOPTIONS, child.pid_, nullptr,
                        PTRACE_O_EXITKILL | PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEEXEC |
                            PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE));
    Trace trace;
    ptrace(PTRACE_SYSCALL, child.pid_, nullptr, nullptr);
    for (pid_t pid; (pid = waitpid(-1, &status, __WALL)) > 0;) {
      if (!WIFSTOPPED(status)) {
        if (pid == child.pid_) trace.outcome = child.Finish(status);
        continue;
      }
      long pass = 0;
      if (const int event = status >> 16; event == PTRACE_EVENT_EXEC) {
        const std::string exe = "/proc/" + std::to_string(pid) + "/exe";
        trace.programs.push_back(std::filesystem::read_symlink(exe).filename());
      } else if (event != 0) {
        ++trace.forks;
      } else if (WSTOPSIG(status) == (SIGTRAP | 0x80)) {
        __ptrace_syscall_info info{};
        ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info);
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
          if (info.entry.nr == SYS_openat) {
            trace.opened.emplace_back(pid, ReadText(pid, info.entry.args[1]));
          }
          if (at(static_cast<long>(info.entry.nr))) kill(pid, SIGKILL);
        }
      } else if (WSTOPSIG(status) != SIGSTOP) {
        pass = WSTOPSIG(status);
      }
      ptrace(PTRACE_SYSCALL, pid, nullptr, pass);
    }
    return trace;
  }

 private:
  using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

  Child() = default;

  // A text in the memory of a process, up to the end of the page that it begins in.
  static std::string ReadText(pid_t pid, unsigned long address) {
    std::string text(4096 - address % 4096, '\0');
    iovec here{text.data(), text.size()};
    iovec there{reinterpret_cast<void*>(address), text.size()};
    EXPECT_GT(process_vm_readv(pid, &here, 1, &there, 1, 0), 0);
    return text.c_str();
  }

  static void WithArgv(Args args, const Env& env,
                       const std::function<void(char**, char**)>& start) {
    Args variables;
    for (char** e = environ; *e != nullptr; ++e) {
      const std::string variable = *e;
      if (!env.contains(variable.substr(0, variable.find('=')))) variables.push_back(variable);
    }
    for (const auto& [name, value] : env) variables.push_back(name + "=" + value);
    std::vector<char*> argv, envp;
    for (auto& arg : args) argv.push_back(arg.data());
    for (auto& variable : variables) envp.push_back(variable.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    start(argv.data(), envp.data());
  }

  Outcome Finish(int status) {
    const auto text = [](std::FILE* file) {
      return ReadFile("/proc/self/fd/" + std::to_string(fileno(file)));
    };
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), text(out_.get()),
            text(err_.get())};
  }

  File out_{std::tmpfile(), std::fclose}, err_{std::tmpfile(), std::fclose};
  pid_t pid_ = -1;
};

#endif  // TESTS_HOST_TRACED_CHILD_H_
