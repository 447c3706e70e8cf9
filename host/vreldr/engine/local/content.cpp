#include "content.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <set>

#include "../../fd.h"
#include "tree_copy.h"

namespace VrelDR::Local {

namespace {

struct Source {
  std::string path;  // resolved: absolute and free of links
  std::string name;  // of its last component
  bool is_dir = false;
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
Status CheckSource(const Target& target, const Source& source, const std::string& volumePath) {
  if (source.is_dir && target.GetType() != kTargetShare) {
    return {kErrBadArgument,
            Quoted(source.path) + " is a folder, which only a share can take; name files"};
  }
  if (source.is_dir && IsBelow(volumePath, source.path)) {
    return {kErrBadArgument, Quoted(source.path) + " holds the volume itself; name another source"};
  }
  return {};
}

Status MakeEmptyImage(int dirFd, std::uint64_t size) {
  const Fd image(openat(dirFd, kDiskImage, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!image || ftruncate(image.Get(), static_cast<off_t>(size)) != 0) {
    return StatusOfErrno(errno, kDiskImage);
  }
  return {};
}

Status FillLun(const TargetContent& content, const std::vector<Source>& sources, TreeCopier& copier,
               int dirFd) {
  if (sources.size() > 1) {
    return {kErrBadArgument, "a lun takes one image file, and " + std::to_string(sources.size()) +
                                 " sources are named; name one"};
  }
  if (!sources.empty()) {
    return copier.CopyEntry({AT_FDCWD, sources[0].path}, sources[0].path, kDiskImage);
  }
  return MakeEmptyImage(dirFd, content.size_bytes);
}

}  // namespace

Status FillTarget(const Target& target, const TargetContent& content, const std::string& volumePath,
                  int dirFd) {
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
  TreeCopier copier(dirFd, Strictness::kAllowed);
  if (target.GetType() == kTargetLun) return FillLun(content, sources, copier, dirFd);
  if (sources.size() == 1 && sources[0].is_dir) {
    const Fd folder(open(sources[0].path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) return StatusOfErrno(errno, sources[0].path);
    return copier.CopyContent(folder.Get(), sources[0].path);
  }
  for (const Source& source : sources) {
    status = copier.CopyEntry({AT_FDCWD, source.path}, source.path, source.name);
    if (!status.IsOk()) return status;
  }
  return {};
}

}  // namespace VrelDR::Local
