#include "output/console.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

// The error number, 0 when everything was written.
int WriteAll(int fd, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t written = write(fd, text.data() + done, text.size() - done);
    if (written >= 0) {
      done += static_cast<std::size_t>(written);
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

}  // namespace

// Where standard error itself cannot be written there is nobody left to tell.
void PrintError(const std::string& text) {
  (void)WriteAll(STDERR_FILENO, "drgroupctl: " + text + "\n");
}

void Warnings::Print(const std::string& text) {
  printed_.push_back(text);
  PrintError("warning: " + text);
}

void PrintNote(const std::string& text) {
  PrintError(text);
}

void PrintOnTerminal(const std::string& text) {
  (void)WriteAll(STDERR_FILENO, text);
}

void PrintOut(const std::string& text) {
  const int error = WriteAll(STDOUT_FILENO, text);
  if (error != 0) {
    throw Failure(ExitCode::kFailed,
                  "cannot write to standard output: " + std::generic_category().message(error) +
                      "; what the verb did is done, only its report is lost");
  }
}

// Without a memory file everything stays as it is: two lines are better than none.
StderrCapture::StderrCapture() {
  store_ = memfd_create("stderr", MFD_CLOEXEC);
  if (store_ == -1) return;
  kept_ = dup(STDERR_FILENO);
  if (kept_ != -1) dup2(store_, STDERR_FILENO);
}

StderrCapture::~StderrCapture() {
  if (kept_ != -1) {
    dup2(kept_, STDERR_FILENO);
    close(kept_);
  }
  if (store_ != -1) close(store_);
}

std::string StderrCapture::FirstLine() const {
  char buffer[4096];
  const ssize_t got = store_ == -1 ? 0 : pread(store_, buffer, sizeof buffer, 0);
  const std::string text(buffer, got > 0 ? static_cast<std::size_t>(got) : 0);
  return Printable(text.substr(0, text.find('\n')));
}

}  // namespace drgroupctl
