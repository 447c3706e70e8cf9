#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace bench {

// Runs a line of the shell; throws std::runtime_error unless it succeeds.
void Shell(const std::string& line);

// A directory with a file system of its own on a loop image; both go with the object.
class LoopVolume {
 public:
  // `type` is ext4, xfs or btrfs. Needs root; throws std::runtime_error.
  LoopVolume(const std::string& type, const std::filesystem::path& dir, std::uint64_t size);
  ~LoopVolume();
  LoopVolume(const LoopVolume&) = delete;
  LoopVolume& operator=(const LoopVolume&) = delete;

  std::string GetPath() const { return dir_.string(); }

 private:
  std::filesystem::path dir_;
};

// Makes the host of this process one with these two volumes, "a" and "b", and its state in `dir`.
void UseHost(const std::filesystem::path& dir, const std::string& a, const std::string& b);

}  // namespace bench
