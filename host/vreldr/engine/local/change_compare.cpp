#include "engine/local/change_compare.h"

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "engine/local/file_read.h"
#include "engine/local/run_list.h"

namespace VrelDR::Local {

namespace {

constexpr std::size_t kPiece = std::size_t{256} * 1024;
constexpr std::size_t kBlock = 4096;

}  // namespace

int CompareData(int baseFd, int snapshotFd, std::uint64_t size, Watch& watch,
                std::vector<Run>& changed) {
  std::vector<char> before(std::min<std::uint64_t>(size, kPiece));
  std::vector<char> after(before.size());
  for (std::uint64_t at = 0; at < size;) {
    if (!watch.GoesOn()) return ECANCELED;
    std::uint64_t data = 0;
    std::uint64_t otherData = 0;
    int error = FindData(baseFd, at, size, data);
    if (error == 0) error = FindData(snapshotFd, at, size, otherData);
    if (error != 0) return error;
    at = std::min(data, otherData);
    const std::size_t count = std::min<std::uint64_t>(size - at, before.size());
    error = ReadFully(baseFd, at, {before.data(), count});
    if (error == 0) error = ReadFully(snapshotFd, at, {after.data(), count});
    if (error != 0) return error;
    for (std::size_t done = 0; done < count; done += kBlock) {
      const std::size_t length = std::min(kBlock, count - done);
      if (std::memcmp(&before[done], &after[done], length) != 0) {
        AppendRun(changed, at + done, at + done + length);
      }
    }
    at += count;
  }
  return 0;
}

}  // namespace VrelDR::Local
