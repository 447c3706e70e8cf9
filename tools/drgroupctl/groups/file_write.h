#pragma once

#include <vreldrcore/sync.h>

#include <string>

namespace drgroupctl {

// Replaces the file at `path` by one that holds `text`: afterwards, also after a crash, there is
// the old file or the new one, whole and on disk. Returns 0 or an error number, with nothing
// changed.
int WriteFileAtomically(const std::string& path, const std::string& text);

using VrelDRCore::SyncDirectory;

// Brings to disk the names in the directory at an absolute path and all that it stands in, whoever
// has made them and was interrupted. Returns 0 or an error number.
int SyncUpwards(std::string dir);

}  // namespace drgroupctl
