#pragma once

#include <sys/stat.h>

#include <string>

namespace VrelDR::Local {

// One entry of a directory, of any kind, never followed when it is a link.
struct Entry {
  int dir_fd;
  const std::string& name;
};

// How strict a copy is about what the system lets only some users or file systems keep (another
// owner, some extended attributes).
enum class Strictness {
  kAll,      // a copy that lacks any of it fails
  kAllowed,  // what is refused is left out
};

// Gives `to` the owner, the extended attributes (access lists among them), the mode and the times
// of what `fromFd`, which may be of O_PATH, is open for; `st` is what fstat says of that. Without
// `withRecord` the attribute that flags are written down in is left out; see flags.h. 0 or an
// errno.
int CopyAttributes(int fromFd, const struct stat& st, const Entry& to, Strictness strictness,
                   bool withRecord);

}  // namespace VrelDR::Local
