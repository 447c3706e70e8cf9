#include "engine/support/proc_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>

#include "base/fd.h"

namespace VrelDR {

std::string ReadSystemFile(const std::string& path) {
  const Fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) return {};
  std::string text;
  std::array<char, 16384> part;
  for (;;) {
    const ssize_t count = read(file.Get(), part.data(), part.size());
    if (count <= 0) return text;
    text.append(part.data(), static_cast<std::size_t>(count));
  }
}

std::string ReadSystemLine(const std::string& path) {
  const std::string text = ReadSystemFile(path);
  return text.substr(0, text.find('\n'));
}

int ListSystemDir(const std::string& path, const std::string& prefix,
                  std::vector<std::string>& names) {
  struct Closer {
    void operator()(DIR* dir) const { closedir(dir); }
  };
  const std::unique_ptr<DIR, Closer> dir(opendir(path.c_str()));
  if (!dir) return errno;
  for (;;) {
    errno = 0;
    const struct dirent* entry = readdir(dir.get());
    if (entry == nullptr) return errno;
    const std::string name = entry->d_name;
    if (name != "." && name != ".." && name.starts_with(prefix)) names.push_back(name);
  }
}

int ListNumbers(const std::string& path, std::vector<std::string>& numbers) {
  std::vector<std::string> names;
  const int error = ListSystemDir(path, {}, names);
  for (std::string& name : names) {
    if (name.find_first_not_of("0123456789") == std::string::npos) {
      numbers.push_back(std::move(name));
    }
  }
  return error;
}

int NumberOf(const std::string& name) {
  constexpr int kDecimal = 10;
  return static_cast<int>(std::strtol(name.c_str(), nullptr, kDecimal));
}

FdInfo ReadFdInfo(const std::string& path) {
  const std::string text = ReadSystemFile(path);
  const auto number = [&](const std::string& key, int base) {
    const std::size_t at = text.find(key);
    return at == std::string::npos ? 0
                                   : std::strtoull(text.c_str() + at + key.size(), nullptr, base);
  };
  constexpr int kOctal = 8;
  constexpr int kDecimal = 10;
  return {static_cast<int>(number("flags:", kOctal)), number("mnt_id:", kDecimal)};
}

}  // namespace VrelDR
