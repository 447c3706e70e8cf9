#pragma once

#include <cstdint>
#include <string>

namespace torture {

// A part of a file as a block device, for as long as the object or a mount of it lives.
class LoopDevice {
 public:
  // `why` says what did not work; the path is empty then.
  LoopDevice(const std::string& file, std::uint64_t offset, std::uint64_t size, std::string& why);
  ~LoopDevice();
  LoopDevice(const LoopDevice&) = delete;
  LoopDevice& operator=(const LoopDevice&) = delete;

  const std::string& GetPath() const { return path_; }

 private:
  int fd_ = -1;
  std::string path_;
};

}  // namespace torture
