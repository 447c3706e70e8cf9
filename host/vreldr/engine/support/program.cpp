#include "engine/support/program.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace VrelDR {

std::string SearchPath() {
  const char* path = std::getenv("PATH");
  return (path == nullptr ? "" : std::string(path) + ":") + "/usr/sbin:/usr/bin:/sbin:/bin";
}

std::string FindProgram(const std::string& name) {
  const std::string path = SearchPath();
  for (std::size_t at = 0; at <= path.size();) {
    const std::size_t end = std::min(path.find(':', at), path.size());
    std::string found = path.substr(at, end - at) + "/" + name;
    if (found.front() == '/' && found != "/" + name && access(found.c_str(), X_OK) == 0) {
      return found;
    }
    at = end + 1;
  }
  return {};
}

}  // namespace VrelDR
