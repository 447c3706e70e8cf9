#pragma once

#include <string>

#include "vrelcore/export.h"

namespace VrelDRCore {

// Any thread may call.
class VREL_API File {
 public:
  // Makes `dir` and its missing parents, each with `mode` (less the umask), and brings their names
  // to disk. True when `dir` is a directory afterwards, also when it was one before. A failure,
  // which errno tells, leaves the parents made so far.
  static bool CreateDir(const std::string& dir, int mode);

  // Removes `dir` with its contents; links in it are removed, not followed. True when nothing is
  // left at `dir`, also after a power cut, and also when there was nothing. A failure leaves what
  // could not be removed, or a removal that may not be on disk: what is mounted on `dir` or in it
  // is not touched.
  static bool RemoveDir(const std::string& dir);
};

}  // namespace VrelDRCore
