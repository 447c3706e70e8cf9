#include "engine/local/content.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <set>

#include "base/fd.h"
#include "engine/local/directory.h"
#include "engine/local/place.h"
#include "engine/local/tree_copy.h"

namespace VrelDR::Local {

namespace {

struct Source {
  std::string path;  // resolved: absolute and free of links
  std::string name;  // of its last component
  bool is_dir = false;
  bool is_link = false;  // as it was given
};

Status Resolve(const std::string& given, Source& source) {
  struct Freer {
    void operator()(char* text) const { std::free(text); }
  };
  const std::unique_ptr<char, Freer> resolved(realpath(given.c_str(), nullptr));
  struct stat st;
  if (!resolved || stat(resolved.get(), &st) != 0) return StatusOfErrno(errno, given);
  source.is_dir = S_ISDIR(st.st_mode);
  if (!source.is_dir && !S_ISREG(st.st_mode)) {
    return {kErrBadArgument,
            Quoted(given) + " is neither a file nor a folder; name another source"};
  }
  source.path = resolved.get();
  source.is_link = lstat(given.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
  // The name as it was given, which may be that of a link.
  std::string name = given;
  while (name.size() > 1 && name.back() == '/') name.pop_back();
  name = name.substr(name.rfind('/') + 1);
  source.name = name.empty() || name == "." || name == ".."
                    ? source.path.substr(source.path.rfind('/') + 1)
                    : name;
  return {};
}

bool IsBelow(const std::string& path, const std::string& dir) {
  return path == dir || dir == "/" || path.compare(0, dir.size() + 1, dir + "/") == 0;
}

// A source that holds the volume would be copied into itself without end.
Status CheckSource(const TargetPlace& target, const Source& source, const std::string& volumePath) {
  if (source.is_dir && target.type != kTargetShare) {
    return {kErrBadArgument,
            Quoted(source.path) + " is a folder, which only a share can take; name files"};
  }
  if (source.is_dir && IsBelow(volumePath, source.path)) {
    return {kErrBadArgument, Quoted(source.path) + " holds the volume itself; name another source"};
  }
  if (!source.is_dir) return {};
  // The folder itself may be a mount: it is what was named.
  const Fd dir(open(source.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::vector<std::string> mounts;
  const int error = dir ? FindMountsBelow(dir.Get(), mounts) : errno;
  if (error != 0) return StatusOfErrno(error, source.path);
  if (mounts.empty()) return {};
  return {kErrBadArgument, "something is mounted inside the folder " + Quoted(source.path) +
                               ", and that is not taken over: " + Listed(mounts) +
                               "; unmount it, or name it as a source of its own"};
}

Status MakeEmptyImage(int dirFd, std::uint64_t size) {
  const Fd image(openat(dirFd, kDiskImage, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!image || ftruncate(image.Get(), static_cast<off_t>(size)) != 0) {
    return StatusOfErrno(errno, kDiskImage);
  }
  return {};
}

Status Copy(const Source& source, const std::string& name, TreeCopier& copier) {
  Fd entry(open(source.path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!entry) return StatusOfErrno(errno, source.path);
  return copier.CopyEntry(std::move(entry), source.path, name);
}

Status FillLun(const TargetContent& content, const std::vector<Source>& sources, TreeCopier& copier,
               int dirFd) {
  if (sources.size() > 1) {
    return {kErrBadArgument, "a lun takes one image file, and " + std::to_string(sources.size()) +
                                 " sources are named; name one"};
  }
  if (sources.empty()) return MakeEmptyImage(dirFd, content.size_bytes);
  if (sources[0].is_link) {
    return {kErrBadArgument, "the image of a lun has to be a file, and " +
                                 Quoted(content.sources[0]) + " is a symbolic link to " +
                                 Quoted(sources[0].path) + "; name that file"};
  }
  return Copy(sources[0], kDiskImage, copier);
}

}  // namespace

Status FillTarget(const TargetPlace& target, const TargetContent& content,
                  const std::string& volumePath, int dirFd, Watch& watch) {
  std::vector<Source> sources;
  std::set<std::string> names;
  Source volume;
  Status status = Resolve(volumePath, volume);
  for (const std::string& given : content.sources) {
    Source source;
    if (status.IsOk()) status = Resolve(given, source);
    if (status.IsOk()) status = CheckSource(target, source, volume.path);
    if (!status.IsOk()) return status;
    if (!names.insert(source.name).second) {
      return {kErrBadArgument, "two sources have the name " + Quoted(source.name) +
                                   "; rename one or put them into one folder"};
    }
    sources.push_back(std::move(source));
  }
  TreeCopier copier(dirFd, Strictness::kAllowed, TreeCopier::FlagsOf::kForeign, watch);
  if (target.type == kTargetLun) return FillLun(content, sources, copier, dirFd);
  if (sources.size() == 1 && sources[0].is_dir) {
    const Fd folder(open(sources[0].path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) return StatusOfErrno(errno, sources[0].path);
    return copier.CopyContent(folder.Get(), sources[0].path);
  }
  for (const Source& source : sources) {
    status = Copy(source, source.name, copier);
    if (!status.IsOk()) return status;
  }
  return {};
}

Status CheckImage(const TargetPlace& target, int dirFd, const std::string& dirPath,
                  Missing missing) {
  if (target.type != kTargetLun) return {};
  const std::string path = dirPath + "/" + kDiskImage;
  const std::string cannot = "the bytes of a lun have to be in the file " + Quoted(path);
  const Fd image = OpenEntry(dirFd, kDiskImage, O_PATH);
  if (!image && errno == EXDEV) return MountedOn({path});
  if (!image && errno == ENOENT && missing == Missing::kAllowed) return {};
  if (!image && errno == ENOENT) {
    return {kErrUnsupported, cannot + ", which is missing; put it back, or restore a snapshot"};
  }
  struct stat st;
  if (!image || fstat(image.Get(), &st) != 0) return StatusOfErrno(errno, path);
  if (S_ISREG(st.st_mode)) return {};
  std::string what = ", which is something else";
  if (S_ISLNK(st.st_mode)) {
    std::string text(PATH_MAX, '\0');
    const ssize_t length = readlinkat(image.Get(), "", text.data(), text.size());
    text.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    what = ", which is a symbolic link to " + Quoted(text);
  }
  return {kErrUnsupported, cannot + what + "; put the file itself there"};
}

}  // namespace VrelDR::Local
