// Acknowledges a file that it has not brought to disk: what the power-cut ring has to catch.
//
//   unsafe_writer PATH TEXT [safely]
//
// With "safely" the file and its directory are synced first.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace {

bool SyncDirectoryOf(const std::string& path) {
  const int fd = open(path.substr(0, path.rfind('/')).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  return fd >= 0 && fsync(fd) == 0 && close(fd) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fputs("usage: unsafe_writer PATH TEXT [safely]\n", stderr);
    return 2;
  }
  const std::string path = argv[1];
  const std::string text = argv[2];
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    std::perror(argv[1]);
    return 1;
  }
  if (argc > 3 && (fsync(fd) != 0 || !SyncDirectoryOf(path))) {
    std::perror(argv[1]);
    return 1;
  }
  return close(fd) == 0 ? 0 : 1;
}
