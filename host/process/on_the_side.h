#pragma once

#include <sys/types.h>

#include <cstddef>

// What runs in a process that was cloned from this one and has not executed a program yet. It makes
// system calls and calls nothing else: the clone has one thread, and the locks of the others, which
// nobody opens there.

// Sanitizers, whose notes are those of the thread that was cloned, leave it alone.
#define ON_THE_SIDE __attribute__((no_sanitize("address", "thread", "undefined")))

// The C library's clone by its other name: sanitizers take the usual one over, and expect of it
// that it makes a thread or copies the memory.
extern "C" int CloneProcess(int (*body)(void*), void* stack, int flags, void* argument,
                            ...) noexcept __asm__("__clone");

namespace VrelHost {

inline constexpr std::size_t kSideStack = std::size_t{64} * 1024;
inline constexpr std::size_t kMaskSize = 8;  // of a set of signals, as the kernel has it

// Instead of a descriptor: the program has that one as this process has it; it is /dev/null.
inline constexpr int kAsIsFd = -2;
inline constexpr int kNullFd = -1;

// The signal by which this process ends when its parent does. False when that has ended already.
bool DieWith(pid_t parent);

// No handler of the cloned process runs any more. What is ignored stays so, but for SIGCHLD and
// SIGPIPE.
void ResetSignals();

// Gives the program its descriptors, `fds[0]` to `fds[count - 1]`, four at most: all that are given
// first go where none of them can be wanted. 0 or an errno.
int PlaceDescriptors(const int* fds, int count);

// Lets every signal through, and executes the program. Returns an errno.
int Execute(const char* path, char* const* argv, char* const* envp);

// Closes all descriptors from `first` to `last`.
void CloseDescriptors(unsigned first, unsigned last);

}  // namespace VrelHost
