#include "vreldrnode/dr_node.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <exception>

#include "config/config.h"
#include "vreldrcore/file.h"
#include "vreldrcore/uuid.h"

namespace VrelDRNode {

namespace {

constexpr std::size_t kIdLength = 36;

// The identifier in the file; empty when there is none or it is not one.
std::string ReadId(const std::string& path) {
  char text[kIdLength + 1];
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd == -1) return {};
  const ssize_t got = read(fd, text, sizeof text);
  close(fd);
  if (got != static_cast<ssize_t>(sizeof text) || text[kIdLength] != '\n') return {};
  const std::string id(text, kIdLength);
  const bool good = id.find_first_not_of("0123456789abcdef-") == std::string::npos;
  return good ? id : std::string();
}

bool WriteDurably(const std::string& path, const std::string& text) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd == -1) return false;
  const bool good =
      write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && fsync(fd) == 0;
  return close(fd) == 0 && good;
}

void SyncDir(const std::string& dir) {
  const int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd == -1) return;
  fsync(fd);
  close(fd);
}

// Makes the file with a new identifier unless it is there. It appears whole, and of two processes
// that make it at once the first one's stays: link() does not replace.
void MakeId(const std::string& dir, const std::string& path) {
  const std::string id = VrelDRCore::GenerateUUID();
  const std::string work = path + "." + id;
  if (!VrelDRCore::File::CreateDir(dir, 0700)) return;
  if (WriteDurably(work, id + "\n") && link(work.c_str(), path.c_str()) == 0) SyncDir(dir);
  unlink(work.c_str());
}

}  // namespace

std::string DRNode::getLocalNodeId() {
  try {
    VrelHost::Config config;
    std::string problem;
    if (!VrelHost::ReadConfig(config, problem)) return {};
    const std::string path = config.state_dir + "/node_id";
    if (access(path.c_str(), F_OK) != 0) MakeId(config.state_dir, path);
    return ReadId(path);
  } catch (const std::exception&) {  // out of memory
    return {};
  }
}

}  // namespace VrelDRNode
