// A library to preload into a program: one call of the system fails that would have worked.
//
//   FAILING_PROGRAM    the program that it is to happen to, drgroupctl when left out; its children
//                      go on as they are
//   FAILING_CALL=K     the K-th call fails, counted from 0
//   FAILING_ERRNO      with this number, EIO when left out
//   FAILING_STICKS=1   and all that come after it
//   FAILING_COUNT      a file that takes the number of calls, when the program ends
//   FAILING_SYNCS_LIE=1  nothing fails, and what is to bring bytes to disk says that it has, and
//                      does nothing
//
// Counted are the calls that change something or bring it to disk, and those that open a file.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

struct Settings {
  bool is_here = false;
  bool syncs_lie = false;
  bool sticks = false;
  long call = -1;
  int error = EIO;
  const char* count = nullptr;

  Settings() {
    const char* program = std::getenv("FAILING_PROGRAM");
    is_here = std::strcmp(program_invocation_short_name,
                          program == nullptr ? "drgroupctl" : program) == 0;
    syncs_lie = std::getenv("FAILING_SYNCS_LIE") != nullptr;
    sticks = std::getenv("FAILING_STICKS") != nullptr;
    if (const char* text = std::getenv("FAILING_CALL")) call = std::atol(text);
    if (const char* text = std::getenv("FAILING_ERRNO")) error = std::atoi(text);
    count = std::getenv("FAILING_COUNT");
  }
};

const Settings& Get() {
  static const Settings settings;
  return settings;
}

std::atomic<long> g_calls{0};

bool Fails() {
  if (!Get().is_here) return false;
  const long at = g_calls.fetch_add(1);
  const bool fails = at == Get().call || (Get().sticks && Get().call >= 0 && at > Get().call);
  if (fails) errno = Get().error;
  return fails;
}

bool Lies() {
  return Get().is_here && Get().syncs_lie;
}

template <class Function>
Function* Real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

__attribute__((destructor)) void TellCount() {
  if (!Get().is_here || Get().count == nullptr) return;
  char text[32];
  const int length = std::snprintf(text, sizeof text, "%ld\n", g_calls.load());
  const int fd = Real<int(const char*, int, ...)>("open")(
      Get().count, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return;
  (void)!Real<ssize_t(int, const void*, std::size_t)>("write")(fd, text,
                                                               static_cast<std::size_t>(length));
  close(fd);
}

}  // namespace

// A call of the C library that only passes on its arguments, or fails.
#define PASS_ON(result, name, parameters, arguments)           \
  EXPORTED result name parameters {                            \
    static auto* const real = Real<result parameters>(#name);  \
    return Fails() ? static_cast<result>(-1) : real arguments; \
  }
// The same for one that brings something to disk.
#define PASS_ON_SYNC(name)                           \
  EXPORTED int name(int fd) {                        \
    static auto* const real = Real<int(int)>(#name); \
    if (Lies()) return 0;                            \
    return Fails() ? -1 : real(fd);                  \
  }

PASS_ON_SYNC(fsync)
PASS_ON_SYNC(fdatasync)
PASS_ON_SYNC(syncfs)

// What is told to people is not what is meant.
EXPORTED ssize_t write(int fd, const void* bytes, std::size_t count) {
  static auto* const real = Real<ssize_t(int, const void*, std::size_t)>("write");
  return fd > STDERR_FILENO && Fails() ? -1 : real(fd, bytes, count);
}

PASS_ON(ssize_t, pwrite, (int fd, const void* bytes, std::size_t count, off_t at),
        (fd, bytes, count, at))
PASS_ON(ssize_t, pwrite64, (int fd, const void* bytes, std::size_t count, off64_t at),
        (fd, bytes, count, at))
PASS_ON(ssize_t, copy_file_range,
        (int from, off64_t* fromAt, int to, off64_t* toAt, std::size_t count, unsigned flags),
        (from, fromAt, to, toAt, count, flags))
PASS_ON(int, ftruncate, (int fd, off_t size), (fd, size))
PASS_ON(int, ftruncate64, (int fd, off64_t size), (fd, size))
PASS_ON(int, fallocate, (int fd, int mode, off_t at, off_t size), (fd, mode, at, size))
PASS_ON(int, fallocate64, (int fd, int mode, off64_t at, off64_t size), (fd, mode, at, size))
PASS_ON(int, rename, (const char* from, const char* to), (from, to))
PASS_ON(int, renameat, (int fromIn, const char* from, int toIn, const char* to),
        (fromIn, from, toIn, to))
PASS_ON(int, renameat2, (int fromIn, const char* from, int toIn, const char* to, unsigned flags),
        (fromIn, from, toIn, to, flags))
PASS_ON(int, mkdir, (const char* path, mode_t mode), (path, mode))
PASS_ON(int, mkdirat, (int in, const char* path, mode_t mode), (in, path, mode))
PASS_ON(int, rmdir, (const char* path), (path))
PASS_ON(int, unlink, (const char* path), (path))
PASS_ON(int, unlinkat, (int in, const char* path, int flags), (in, path, flags))
PASS_ON(int, remove, (const char* path), (path))
PASS_ON(int, symlink, (const char* text, const char* path), (text, path))
PASS_ON(int, symlinkat, (const char* text, int in, const char* path), (text, in, path))
PASS_ON(int, link, (const char* from, const char* to), (from, to))
PASS_ON(int, linkat, (int fromIn, const char* from, int toIn, const char* to, int flags),
        (fromIn, from, toIn, to, flags))
PASS_ON(int, mknodat, (int in, const char* path, mode_t mode, dev_t device),
        (in, path, mode, device))
PASS_ON(int, chmod, (const char* path, mode_t mode), (path, mode))
PASS_ON(int, fchmod, (int fd, mode_t mode), (fd, mode))
PASS_ON(int, fchmodat, (int in, const char* path, mode_t mode, int flags), (in, path, mode, flags))
PASS_ON(int, fchown, (int fd, uid_t user, gid_t group), (fd, user, group))
PASS_ON(int, fchownat, (int in, const char* path, uid_t user, gid_t group, int flags),
        (in, path, user, group, flags))
PASS_ON(int, futimens, (int fd, const timespec* times), (fd, times))
PASS_ON(int, utimensat, (int in, const char* path, const timespec* times, int flags),
        (in, path, times, flags))
PASS_ON(int, setxattr,
        (const char* path, const char* name, const void* value, std::size_t size, int flags),
        (path, name, value, size, flags))
PASS_ON(int, lsetxattr,
        (const char* path, const char* name, const void* value, std::size_t size, int flags),
        (path, name, value, size, flags))
PASS_ON(int, fsetxattr, (int fd, const char* name, const void* value, std::size_t size, int flags),
        (fd, name, value, size, flags))

// Calls with an argument that may be missing; one that is, is passed on as it comes.
#define TAKE_MODE(last)                     \
  va_list rest;                             \
  va_start(rest, last);                     \
  const mode_t mode = va_arg(rest, mode_t); \
  va_end(rest)
#define PASS_ON_OPEN(name)                                             \
  EXPORTED int name(const char* path, int flags, ...) {                \
    TAKE_MODE(flags);                                                  \
    static auto* const real = Real<int(const char*, int, ...)>(#name); \
    return Fails() ? -1 : real(path, flags, mode);                     \
  }
#define PASS_ON_OPENAT(name)                                                \
  EXPORTED int name(int in, const char* path, int flags, ...) {             \
    TAKE_MODE(flags);                                                       \
    static auto* const real = Real<int(int, const char*, int, ...)>(#name); \
    return Fails() ? -1 : real(in, path, flags, mode);                      \
  }
PASS_ON_OPEN(open)
PASS_ON_OPEN(open64)
PASS_ON_OPENAT(openat)
PASS_ON_OPENAT(openat64)

EXPORTED int ioctl(int fd, unsigned long request, ...) {
  va_list rest;
  va_start(rest, request);
  void* argument = va_arg(rest, void*);
  va_end(rest);
  static auto* const real = Real<int(int, unsigned long, ...)>("ioctl");
  return Fails() ? -1 : real(fd, request, argument);
}
