// Disks with a volatile write cache, as files that loop devices are made of (FUSE).
//
//   fault_disk IMAGE SIZE COUNT DIRECTORY
//
// DIRECTORY then holds the files "0" to COUNT-1, each SIZE bytes of the image one after the other,
// and "control". What is written to a disk can be read at once; it survives a cut for certain only
// after a flush (fsync) of that disk. A line written to "control" is a command:
//
//   cut PATH SEED PERCENT   the new file PATH, on the file system of the image, becomes what all
//   the
//                           disks hold when the power goes at this moment: everything that was
//                           flushed, and of the 4 KiB blocks written since then each with this
//                           probability, chosen by the seed
//
// Ends when the directory is unmounted or the process that started it ends.
#define FUSE_USE_VERSION 31
#include <fcntl.h>
#include <fuse.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kBlock = 4096;

struct Write {
  off_t at;
  std::string bytes;
};

// One process is one set of disks.
struct Disks {
  int now = -1;      // what is read
  int durable = -1;  // what a cut leaves for certain
  off_t size = 0;
  std::vector<std::vector<Write>> pending;  // by disk, in the order of writing
};

Disks& All() {
  static Disks disks;
  return disks;
}

// The number of the disk that a path names, or -1.
int DiskAt(const char* path) {
  char* end = nullptr;
  const long number = std::strtol(path + 1, &end, 10);
  const bool isDisk = end != path + 1 && *end == '\0' && number >= 0 &&
                      number < static_cast<long>(All().pending.size());
  return isDisk ? static_cast<int>(number) : -1;
}

bool IsControl(const char* path) {
  return std::strcmp(path, "/control") == 0;
}

bool WriteAll(int fd, const char* bytes, std::size_t count, off_t at) {
  return pwrite(fd, bytes, count, at) == static_cast<ssize_t>(count);
}

int GetAttributes(const char* path, struct stat* st, fuse_file_info* /*info*/) {
  *st = {};
  st->st_nlink = 1;
  st->st_mode = S_IFREG | 0600;
  if (std::strcmp(path, "/") == 0) {
    st->st_mode = S_IFDIR | 0700;
  } else if (DiskAt(path) >= 0) {
    st->st_size = All().size;
  } else if (!IsControl(path)) {
    return -ENOENT;
  }
  return 0;
}

int Open(const char* path, fuse_file_info* info) {
  if (IsControl(path)) info->direct_io = 1;
  return 0;
}

int Truncate(const char* /*path*/, off_t /*size*/, fuse_file_info* /*info*/) {
  return 0;
}

int Read(const char* path, char* bytes, std::size_t count, off_t at, fuse_file_info* /*info*/) {
  const int disk = DiskAt(path);
  if (disk < 0) return 0;
  const off_t end = std::min(All().size, at + static_cast<off_t>(count));
  if (at >= end) return 0;
  const ssize_t got =
      pread(All().now, bytes, static_cast<std::size_t>(end - at), disk * All().size + at);
  return got < 0 ? -errno : static_cast<int>(got);
}

int Cut(const std::string& path, unsigned seed, unsigned percent) {
  const int out = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (out < 0) return -errno;
  int error = ioctl(out, FICLONE, All().durable) == 0 ? 0 : -errno;
  std::mt19937 random(seed);
  for (const auto& disk : All().pending) {
    for (const Write& each : disk) {
      for (std::size_t at = 0; at < each.bytes.size() && error == 0; at += kBlock) {
        const std::size_t count = std::min(kBlock, each.bytes.size() - at);
        if (random() % 100 >= percent) continue;
        const off_t to = each.at + static_cast<off_t>(at);
        if (!WriteAll(out, &each.bytes[at], count, to)) error = -EIO;
      }
    }
  }
  close(out);
  return error;
}

int Command(const std::string& line) {
  char path[4096];
  unsigned seed = 0;
  unsigned percent = 0;
  if (std::sscanf(line.c_str(), "cut %4095s %u %u", path, &seed, &percent) != 3) return -EINVAL;
  return Cut(path, seed, percent);
}

int WriteTo(const char* path, const char* bytes, std::size_t count, off_t at,
            fuse_file_info* /*info*/) {
  if (IsControl(path)) {
    const int error = Command(std::string(bytes, count));
    return error == 0 ? static_cast<int>(count) : error;
  }
  const int disk = DiskAt(path);
  if (disk < 0 || at + static_cast<off_t>(count) > All().size) return -EIO;
  const off_t to = disk * All().size + at;
  if (!WriteAll(All().now, bytes, count, to)) return -EIO;
  All().pending[static_cast<std::size_t>(disk)].push_back({to, std::string(bytes, count)});
  return static_cast<int>(count);
}

int Flush(const char* path, int /*isData*/, fuse_file_info* /*info*/) {
  const int disk = DiskAt(path);
  if (disk < 0) return 0;
  auto& pending = All().pending[static_cast<std::size_t>(disk)];
  for (const Write& each : pending) {
    if (!WriteAll(All().durable, each.bytes.data(), each.bytes.size(), each.at)) return -EIO;
  }
  pending.clear();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fputs("usage: fault_disk IMAGE SIZE COUNT DIRECTORY\n", stderr);
    return 2;
  }
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const std::string image = argv[1];
  All().size = std::atoll(argv[2]);
  All().pending.resize(static_cast<std::size_t>(std::atoi(argv[3])));
  All().now = open(image.c_str(), O_RDWR | O_CLOEXEC);
  All().durable = open((image + ".durable").c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (All().now < 0 || All().durable < 0 || ioctl(All().durable, FICLONE, All().now) != 0) {
    std::perror(argv[1]);
    return 1;
  }
  fuse_operations operations = {};
  operations.getattr = GetAttributes;
  operations.open = Open;
  operations.truncate = Truncate;
  operations.read = Read;
  operations.write = WriteTo;
  operations.fsync = Flush;
  // In the foreground, one request after the other.
  std::vector<std::string> words{argv[0], argv[4], "-f", "-s"};
  std::vector<char*> pointers;
  for (std::string& each : words) pointers.push_back(each.data());
  return fuse_main(static_cast<int>(pointers.size()), pointers.data(), &operations, nullptr);
}
