#pragma once

#include <string>

namespace torture {

// What a target can hold: version after version, each of them known from its number alone, so that
// nothing has to be kept to compare with. Version 0 is empty. No two versions have a file in
// common.

// Fills the folder of a share, or the file of a lun, with a version, in place. Not synced. "" or
// what did not work.
std::string WriteVersion(const std::string& path, int version);

// "v3" when every byte of version 3 is there and nothing else, or what is wrong.
std::string VersionAt(const std::string& path);

// A file, or a folder of files, that a target is imported from.
constexpr int kLunSize = 1024 * 1024;

}  // namespace torture
