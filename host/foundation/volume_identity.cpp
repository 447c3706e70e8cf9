#include "foundation/volume_identity.h"

#include <fcntl.h>
#include <json/reader.h>
#include <json/writer.h>
#include <linux/btrfs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>

#include "base/fd.h"
#include "base/status.h"
#include "config/quoted.h"
#include "vreldrcore/json.h"

namespace VrelHost {

namespace {

using VrelDR::Fd;
using VrelDRCore::JsonUtil::AsText;
using VrelDRCore::JsonUtil::Member;

constexpr std::size_t kLongestFile = 65536;

// The geometry of an XFS as its kernel interface gives it since it has one.
struct XfsGeometry {
  std::uint32_t sizes[8];
  std::uint64_t blocks[4];
  unsigned char uuid[16];
  std::uint32_t rest[7];
};
static_assert(sizeof(XfsGeometry) == 112);
#define VRELDR_XFS_IOC_FSGEOMETRY _IOR('X', 100, XfsGeometry)

std::string Hex(const unsigned char* bytes, std::size_t count) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 15];
  }
  return text;
}

}  // namespace

std::string ToText(const VolumeIdentity& identity) {
  const auto quoted = [](const std::string& text) {
    return Json::valueToQuotedString(text.c_str());
  };
  return R"({"file_system":)" + quoted(identity.file_system) + R"(,"id":)" + quoted(identity.id) +
         R"(,"name":)" + quoted(identity.name) + R"(,"node":)" + quoted(identity.node) + "}\n";
}

std::optional<VolumeIdentity> IdentityOf(const std::string& text) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  Json::Value json;
  try {
    if (!reader->parse(text.data(), text.data() + text.size(), &json, nullptr)) return {};
  } catch (const Json::Exception&) {  // values nested deeper than the reader goes
    return {};
  }
  VolumeIdentity identity;
  identity.node = AsText(Member(json, "node"));
  identity.name = AsText(Member(json, "name"));
  identity.id = AsText(Member(json, "id"));
  identity.file_system = AsText(Member(json, "file_system"));
  const bool good = !identity.node.empty() && !identity.name.empty() && !identity.id.empty() &&
                    !identity.file_system.empty();
  return good ? std::optional(identity) : std::nullopt;
}

int ReadIdentity(int ownFd, std::string& text) {
  text.clear();
  const Fd file(openat(ownFd, kIdentityFile, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file) return errno == ELOOP ? EBADMSG : errno;
  char buffer[1024];
  for (;;) {
    const ssize_t got = read(file.Get(), buffer, sizeof buffer);
    if (got == 0) return 0;
    if (got > 0) {
      text.append(buffer, static_cast<std::size_t>(got));
    } else if (errno == EISDIR) {
      return EBADMSG;
    } else if (errno != EINTR) {
      return errno;
    }
    if (text.size() > kLongestFile) return EBADMSG;
  }
}

int ReadIdentity(int ownFd, VolumeIdentity& identity) {
  std::string text;
  if (const int error = ReadIdentity(ownFd, text)) return error;
  std::optional<VolumeIdentity> found = IdentityOf(text);
  if (!found) return EBADMSG;
  identity = std::move(*found);
  return 0;
}

int IdentifyFileSystem(int fd, std::string& name) {
  struct statfs info;
  if (fstatfs(fd, &info) != 0) return errno;
  switch (static_cast<std::uint32_t>(info.f_type)) {
    case BTRFS_SUPER_MAGIC: {
      struct btrfs_ioctl_fs_info_args args {};
      if (ioctl(fd, BTRFS_IOC_FS_INFO, &args) != 0) return errno;
      name = "btrfs:" + Hex(args.fsid, sizeof args.fsid);
      return 0;
    }
    case XFS_SUPER_MAGIC: {
      XfsGeometry geometry{};
      if (ioctl(fd, VRELDR_XFS_IOC_FSGEOMETRY, &geometry) != 0) return errno;
      name = "xfs:" + Hex(geometry.uuid, sizeof geometry.uuid);
      return 0;
    }
    case EXT4_SUPER_MAGIC: {  // here f_fsid is made of the UUID
      unsigned char id[sizeof info.f_fsid];
      std::memcpy(id, &info.f_fsid, sizeof id);
      name = "ext:" + Hex(id, sizeof id);
      return 0;
    }
    default: {  // others number their mounts, or have nothing at all
      char type[24];
      std::snprintf(type, sizeof type, "0x%lx", static_cast<unsigned long>(info.f_type));
      name = type;
      return 0;
    }
  }
}

VolumeTrace AskVolume(const VolumeConfig& volume) {
  VolumeTrace trace;
  if (volume.engine != "local") {
    trace.text = "it is not a directory of this node";
    return trace;
  }
  const std::string path = AsText(Member(volume.settings, "path"));
  const auto unclear = [&](const std::string& what) {
    trace.kind = VolumeTrace::Kind::kUnclear;
    trace.text = VrelDR::StatusOfErrno(errno, what).message;
  };
  const Fd dir(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!dir) {
    unclear(path);
    return trace;
  }
  const std::string ownPath = path + "/" + kOwnDir;
  const Fd own(openat(dir.Get(), kOwnDir, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (!own) {
    trace.kind = VolumeTrace::Kind::kNothing;
    if (errno != ENOENT) unclear(ownPath);
    return trace;
  }
  trace.kind = VolumeTrace::Kind::kOurs;
  trace.text = Quoted(ownPath) + " is there";
  VolumeIdentity identity;
  if (ReadIdentity(own.Get(), identity) == 0) {
    trace.text += ", of volume " + Quoted(identity.name) + " of node " + Quoted(identity.node);
    trace.identity = std::move(identity);
  }
  return trace;
}

}  // namespace VrelHost
