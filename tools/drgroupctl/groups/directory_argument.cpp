#include "groups/directory_argument.h"

#include <filesystem>
#include <system_error>

#include "groups/group_store.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace fs = std::filesystem;

std::string DirectoryArgument(const std::string& name, const std::string& given) {
  // What becomes of the path: the text of a symbolic link.
  constexpr std::size_t kLongestPath = 4000;
  std::error_code error;
  const fs::path path = fs::absolute(given, error).lexically_normal();
  std::string dir = path.has_filename() ? path : path.parent_path();
  if (given.empty() || error || dir.size() > kLongestPath || Printable(dir) != dir) {
    throw Failure(ExitCode::kUsage, name + " " + Quote(given.substr(0, 80)) +
                                        ": give the path of a directory without control "
                                        "characters and shorter than 4000 bytes");
  }
  const std::string root = fs::weakly_canonical(LinkRoot(), error).string() + "/";
  if ((fs::weakly_canonical(dir, error).string() + "/").starts_with(root)) {
    throw Failure(ExitCode::kUsage, name + " " + Quote(given) + ": " + Quote(root) +
                                        " is for the links to databases; choose another directory");
  }
  return dir;
}

}  // namespace drgroupctl
