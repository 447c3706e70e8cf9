#pragma once

#include <sys/stat.h>

#include <string>

namespace VrelDR::Local {

// One entry of a directory, of any kind, never followed when it is a link.
struct Entry {
  int dir_fd;
  const std::string& name;
  // Of the entry itself, when it is open: its attributes can be read though its name has gone.
  int open_fd = -1;
};

// How strict a copy is about what the system lets only some users or file systems keep (another
// owner, some extended attributes).
enum class Strictness {
  kAll,      // a copy that lacks any of it fails
  kAllowed,  // what is refused is left out
};

// Gives `to` the owner, the extended attributes (access lists among them), the mode and the times
// of `from`; `st` is what lstat says of `from`. Not kept: the flags of lsattr. 0 or an errno.
int CopyAttributes(const Entry& from, const struct stat& st, const Entry& to,
                   Strictness strictness);

}  // namespace VrelDR::Local
