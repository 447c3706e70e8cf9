#include "loop_volume.h"

#include <sys/mount.h>
#include <vrelcore/vlibc.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace bench {

void Shell(const std::string& line) {
  if (VLIBCExec("/bin/sh", "-c", line.c_str(), nullptr, nullptr) != 0) {
    throw std::runtime_error("this failed: " + line);
  }
}

LoopVolume::LoopVolume(const std::string& type, const std::filesystem::path& dir,
                       std::uint64_t size)
    : dir_(dir) {
  const std::string image = dir.string() + ".img";
  std::filesystem::create_directories(dir);
  std::ofstream(image).close();
  std::filesystem::resize_file(image, size);
  Shell("/sbin/mkfs." + type + " -q '" + image + "'");
  Shell("mount -o loop '" + image + "' '" + dir.string() + "'");
}

LoopVolume::~LoopVolume() {
  umount2(dir_.c_str(), MNT_DETACH);
  std::error_code ignored;
  std::filesystem::remove(dir_.string() + ".img", ignored);
}

void UseHost(const std::filesystem::path& dir, const std::string& a, const std::string& b) {
  const std::string config = (dir / "vreldr.json").string();
  std::ofstream(config) << R"({"state_dir": ")" << (dir / "state").string()
                        << R"(", "volumes": [{"name": "a", "engine": "local", "path": ")" << a
                        << R"("}, {"name": "b", "engine": "local", "path": ")" << b << R"("}]})";
  setenv("VRELDR_CONFIG", config.c_str(), 1);
}

}  // namespace bench
