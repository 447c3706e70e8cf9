#include "engine/local/tree_measure.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <vector>

#include "base/fd.h"
#include "engine/local/directory.h"

namespace VrelDR::Local {

namespace {

// Both ends of a path that would fill a screen.
std::string Shortened(const std::string& path) {
  constexpr std::size_t kEnd = 60;
  if (path.size() <= 3 * kEnd) return path;
  return path.substr(0, kEnd) + "[...]" + path.substr(path.size() - kEnd);
}

Status Measure(int dirFd, std::string& path, const PathLimits& limits, Watch& watch,
               std::uint64_t& size) {
  std::vector<std::string> names;
  if (ListDir(dirFd, names) != 0) return {};
  const std::size_t length = path.size();
  for (const std::string& name : names) {
    if (!watch.GoesOn()) return Watch::Stopped();
    struct stat st;
    if (StatEntry(dirFd, name, st) != 0) continue;
    path += (length == 0 ? "" : "/") + name;
    const bool isFolder = S_ISDIR(st.st_mode);
    const std::size_t most = isFolder ? std::min(limits.entry, limits.folder) : limits.entry;
    if (path.size() > most) {
      return {kErrUnsupported, "the path of " + Quoted(Shortened(path)) + " in it has " +
                                   std::to_string(path.size()) + " bytes, of which " +
                                   limits.program + " takes " + std::to_string(most) +
                                   "; shorten it in the target and give this shipment up, so that "
                                   "the next one takes a new snapshot"};
    }
    if (S_ISREG(st.st_mode)) size += static_cast<std::uint64_t>(st.st_size);
    const Fd dir = isFolder ? OpenDir(dirFd, name) : Fd();
    Status status = dir ? Measure(dir.Get(), path, limits, watch, size) : Status();
    if (!status.IsOk()) return status;
    path.resize(length);
  }
  return {};
}

}  // namespace

Status MeasureTree(const std::string& path, const PathLimits& limits, Watch& watch,
                   std::uint64_t& size) {
  const Fd dir(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::string below;
  return dir ? Measure(dir.Get(), below, limits, watch, size) : Status();
}

}  // namespace VrelDR::Local
