#include "engine/support/mount_list.h"

#include <cerrno>
#include <fstream>
#include <sstream>

namespace VrelDR {

namespace {

// The list writes spaces and the like as "\040".
std::string Unescape(const std::string& text) {
  std::string plain;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto digit = [&](std::size_t i) { return static_cast<unsigned>(text[at + i] - '0'); };
    if (text[at] == '\\' && at + 3 < text.size() && digit(1) < 4 && digit(2) < 8 && digit(3) < 8) {
      plain += static_cast<char>(digit(1) * 64 + digit(2) * 8 + digit(3));
      at += 3;
    } else {
      plain += text[at];
    }
  }
  return plain;
}

bool IsReadOnly(const std::string& options) {
  return options == "ro" || options.starts_with("ro,");
}

}  // namespace

int ReadMounts(const std::string& file, std::vector<Mount>& mounts) {
  std::ifstream list(file);
  if (!list) return errno != 0 ? errno : EIO;
  for (std::string line; std::getline(list, line);) {
    std::istringstream fields(line);
    Mount mount;
    std::string parent, options, word;
    fields >> mount.id >> parent >> mount.device >> mount.root >> mount.place >> options;
    while (fields >> word && word != "-") {
    }
    std::string type, source, ofFileSystem;
    fields >> type >> source >> ofFileSystem;
    mount.root = Unescape(mount.root);
    mount.place = Unescape(mount.place);
    mount.is_read_only = IsReadOnly(options) || IsReadOnly(ofFileSystem);
    mounts.push_back(std::move(mount));
  }
  return list.eof() ? 0 : EIO;
}

}  // namespace VrelDR
