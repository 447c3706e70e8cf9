#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/status.h"

namespace VrelDR::Local {

// What is told of an entry besides its name and what is in it. All of it can be written down: it
// has no descriptors and no places in memory.
struct EntryTime {
  std::int64_t seconds = 0;
  std::uint32_t nanoseconds = 0;
};

struct EntryXattr {
  std::string name;
  std::string value;  // any bytes
};

struct EntryAttributes {
  std::uint32_t mode = 0;  // with the kind, as stat has it
  std::uint32_t owner = 0;
  std::uint32_t group = 0;
  EntryTime accessed, changed;
  bool has_more_names = false;  // others of it may be told later
  // Access lists, capabilities and the record of inode flags (see flags.h) are among them.
  std::vector<EntryXattr> xattrs;
};

// How far a sink is that goes on with what an earlier call left: so many of the calls that end
// something were done, and of the file that comes then, the bytes before `offset`.
struct ChangePoint {
  std::uint64_t ended = 0;
  std::uint64_t offset = 0;

  bool operator==(const ChangePoint&) const = default;
};

// Is told what a snapshot is, once, in an order in which it can be made in one pass: a directory,
// what is in it by the bytes of the names, and its end; of a file what differs from the base, in
// ascending order, and its end. What is not told is not in the snapshot. A name is one of the
// directory that was begun last and has not ended; a path is below the top. Each call but Begin,
// BeginDirectory, BeginFile, Data and Hole ends something. After a failure nothing more is told.
//
// Only the data of a file may rest on the base, which both ends have and which is the same bytes on
// both; its attributes are told whether they changed or not, so that nothing of them does.
class ChangeSink {
 public:
  virtual ~ChangeSink() = default;

  // Comes first. What comes before `point` is then not told again, but for the directories, which
  // are begun and ended as if nothing was there, and Skip stands for each other end.
  virtual Status Begin(ChangePoint& point) = 0;
  virtual Status Skip(const std::string& name) = 0;

  virtual Status BeginDirectory(const std::string& name) = 0;
  virtual Status EndDirectory(const EntryAttributes& attributes) = 0;

  // A file of `size` bytes, which is a hole but for what is told.
  virtual Status BeginFile(const std::string& name, std::uint64_t size) = 0;
  // The same, but it has the bytes of the file of that path in the base, of `baseSize` bytes, up to
  // the shorter size but for what is told.
  virtual Status BeginFileOnBase(const std::string& name, std::uint64_t size,
                                 std::uint64_t baseSize) = 0;
  // What is in the file that was begun, piece by piece: never beyond its size, never again.
  virtual Status Data(std::uint64_t offset, std::span<const char> bytes) = 0;
  virtual Status Hole(std::uint64_t offset, std::uint64_t length) = 0;
  virtual Status EndFile(const EntryAttributes& attributes) = 0;

  // Another name of what was told by that path.
  virtual Status HardLink(const std::string& name, const std::string& path) = 0;
  virtual Status SymbolicLink(const std::string& name, const std::string& text,
                              const EntryAttributes& attributes) = 0;
  // A pipe, a socket or a device, which the mode says, with the numbers of a device.
  virtual Status Special(const std::string& name, std::uint32_t major, std::uint32_t minor,
                         const EntryAttributes& attributes) = 0;

  // The top, when all that is in it has been told.
  virtual Status End(const EntryAttributes& attributes) = 0;
};

}  // namespace VrelDR::Local
