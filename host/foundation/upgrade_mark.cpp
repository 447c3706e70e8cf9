#include "foundation/upgrade_mark.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "foundation/durable.h"
#include "foundation/records.h"

namespace VrelHost {

namespace {

using VrelDR::Fd;

std::string MarkOf(const std::string& recordsPath) {
  return recordsPath + ".upgrading";
}

int Lock(const Fd& file, int how) {
  int result = 0;
  do {
    result = flock(file.Get(), how | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  return result == 0 ? 0 : errno;
}

}  // namespace

// A process that was forked off meanwhile has the lock as long as it is not given up.
UpgradeMark::~UpgradeMark() {
  if (!file_) return;
  unlink(path_.c_str());
  (void)flock(file_.Get(), LOCK_UN);
}

// Two may have it at once when one waited for a file that went meanwhile: it only tells, and what
// keeps them apart is the transaction.
Status UpgradeMark::Take(const std::string& recordsPath) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(kBusySeconds);
  const std::string path = MarkOf(recordsPath);
  Fd file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!file) return StateFailure("cannot make " + Quoted(path), errno);
  int error = 0;
  while ((error = Lock(file, LOCK_EX)) == EWOULDBLOCK) {
    if (std::chrono::steady_clock::now() >= deadline) return BeingUpgraded(recordsPath);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  if (error != 0) return StateFailure("cannot lock " + Quoted(path), error);
  path_ = path;
  file_ = std::move(file);
  return {};
}

bool UpgradeMark::IsHeld(const std::string& recordsPath) {
  const Fd file(open(MarkOf(recordsPath).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  return file && Lock(file, LOCK_SH) == EWOULDBLOCK;
}

Status BeingUpgraded(const std::string& recordsPath) {
  return {VrelDR::kErrBusy, "the host's records " + Quoted(recordsPath) +
                                " are being upgraded by another process, which takes minutes when "
                                "there are many snapshots; run it again when that has finished"};
}

}  // namespace VrelHost
