#pragma once

#include <optional>
#include <string>

#include "config/config.h"

// What tells a volume from every other one, and what of ours can be seen on it.
namespace VrelHost {

// Our own directory of a volume that is a directory, and the file in it that names the volume.
inline constexpr const char* kOwnDir = ".vreldr";
inline constexpr const char* kIdentityFile = "volume.json";

struct VolumeIdentity {
  std::string node;         // the identifier of the node that uses the volume,
  std::string name;         // and its name in the configuration there
  std::string id;           // random; no other volume has it
  std::string file_system;  // which file system it is on
};

// As the identity file has it.
std::string ToText(const VolumeIdentity& identity);
// None when it is not the text of an identity.
std::optional<VolumeIdentity> IdentityOf(const std::string& text);

// Reads the identity file in our own directory. 0, or an errno: ENOENT when there is none, EBADMSG
// when it holds no identity.
int ReadIdentity(int ownFd, VolumeIdentity& identity);
// The same, as the file has it: whoever knows what to expect need not take it apart.
int ReadIdentity(int ownFd, std::string& text);

// Of the file system that the open directory is on: the same after every mount, and on no other
// file system where the kind of file system has an identifier. 0 or an errno.
int IdentifyFileSystem(int fd, std::string& name);

// What can be seen on a volume without its engine.
struct VolumeTrace {
  enum class Kind { kNothing, kOurs, kUnclear };
  Kind kind = Kind::kUnclear;
  std::string text;  // what was seen, or why it cannot be asked; empty for kNothing
  std::optional<VolumeIdentity> identity;
};
VolumeTrace AskVolume(const VolumeConfig& volume);

}  // namespace VrelHost
