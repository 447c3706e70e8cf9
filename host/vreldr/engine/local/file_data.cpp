#include "engine/local/file_data.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "base/fd.h"
#include "engine/local/digest_writer.h"

namespace VrelDR::Local {

namespace {

// Whether the error of a faster way to copy says only that this way does not lead here.
bool IsNotForThisFile(int error) {
  return error == EOPNOTSUPP || error == ENOTTY || error == EXDEV || error == EINVAL ||
         error == ENOSYS || error == ETXTBSY || error == EPERM;
}

bool IsFull(int error) {
  return error == ENOSPC || error == EDQUOT;
}

int WriteAll(int to, const char* bytes, std::size_t count, off_t at) {
  while (count > 0) {
    const ssize_t done = pwrite(to, bytes, count, at);
    if (done < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    bytes += done;
    count -= static_cast<std::size_t>(done);
    at += done;
  }
  return 0;
}

// The same, telling what was written.
int WriteAndTell(int to, const char* bytes, std::size_t count, off_t at, DigestWriter* digests) {
  int error = WriteAll(to, bytes, count, at);
  if (digests == nullptr) return error;
  if (IsFull(error) && digests->GiveUp()) {
    error = WriteAll(to, bytes, count, at);
  }
  if (error == 0) digests->AddData(static_cast<std::uint64_t>(at), bytes, count);
  return error;
}

// Both copy [at, end) and stop early, without an error, where the source has become shorter.
int CopyByReading(int from, int to, off_t at, off_t end, DigestWriter* digests) {
  std::array<char, std::size_t{128} * 1024> buffer;
  while (at < end) {
    const auto want = std::min<off_t>(end - at, static_cast<off_t>(buffer.size()));
    const ssize_t got = pread(from, buffer.data(), static_cast<std::size_t>(want), at);
    if (got == 0) return 0;
    if (got < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    const auto count = static_cast<std::size_t>(got);
    if (const int error = WriteAndTell(to, buffer.data(), count, at, digests)) return error;
    at += got;
  }
  return 0;
}

// Large enough to lose nothing by it, small enough to be asked often whether to go on.
constexpr off_t kPiece = off_t{16} * 1024 * 1024;

// Lets the copied piece be written now, so that nobody waits for all of it at the end.
void StartWriting(int fd, off_t at, off_t count) {
  if (count >= kPiece) (void)sync_file_range(fd, at, count, SYNC_FILE_RANGE_WRITE);
}

int CopyRange(int from, int to, off_t at, off_t end, Watch& watch, DigestWriter* digests) {
  while (at < end) {
    if (!watch.GoesOn()) return ECANCELED;
    const off_t pieceEnd = std::min(end, at + kPiece);
    loff_t in = at;
    loff_t out = at;
    ssize_t done = 0;
    if (digests == nullptr || !digests->IsGood()) {
      done = copy_file_range(from, &in, to, &out, static_cast<std::size_t>(pieceEnd - at), 0);
      if (done < 0 && errno == EINTR) continue;
      if (done < 0 && !IsNotForThisFile(errno)) return errno;
    }
    // Some file systems answer 0 for files that have data; reading tells the truth.
    if (done <= 0) {
      if (const int error = CopyByReading(from, to, at, pieceEnd, digests)) return error;
    }
    const off_t next = done > 0 ? at + done : pieceEnd;
    StartWriting(to, at, next - at);
    at = next;
  }
  return 0;
}

}  // namespace

int CopyFileData(int from, int to, off_t size, Watch& watch, DigestWriter* digests) {
  if (size == 0) return 0;
  if (ioctl(to, FICLONE, from) == 0) {
    if (digests != nullptr) digests->GiveUp();
    return 0;
  }
  if (!IsNotForThisFile(errno)) return errno;
  if (ftruncate(to, size) != 0) return errno;
  off_t at = 0;
  while (at < size) {
    off_t data = lseek(from, at, SEEK_DATA);
    if (data < 0 && errno == ENXIO) break;  // holes up to the end
    off_t hole = size;
    if (data < 0) {
      if (!IsNotForThisFile(errno)) return errno;
      data = at;  // a file system that does not tell holes: everything is data
    } else {
      hole = lseek(from, data, SEEK_HOLE);
      if (hole < 0) return errno;
    }
    at = std::min(hole, size);
    if (const int error = CopyRange(from, to, data, at, watch, digests)) return error;
  }
  return 0;
}

bool CanShareBlocks(int dirFd) {
  const Fd from(openat(dirFd, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  const Fd to(openat(dirFd, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (!from || !to) return false;
  const int error = WriteAll(from.Get(), "x", 1, 0);
  // A full one tells it of an empty file, too.
  if (error != 0 && !IsFull(error)) return false;
  return ioctl(to.Get(), FICLONE, from.Get()) == 0 || IsFull(errno);
}

}  // namespace VrelDR::Local
