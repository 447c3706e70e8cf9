#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/fd.h"
#include "engine/local/change_mark.h"
#include "engine/local/change_progress.h"
#include "engine/local/change_sink.h"
#include "engine/local/changed_file.h"

namespace VrelDR::Local {

// The end of a shipment by changes at which a snapshot arrives: makes it, beside the base that the
// replica has, of what it is told.
//
// That the base here is, byte by byte, what the base at the source is rests on this: one of the two
// was made from the other by a shipment that compared it or was told all that differed, and was
// marked as a whole only when it was on disk; or the target's bytes were the same on both sides
// when both were made. Since then nobody can have changed either: a snapshot is immutable where the
// system can do that, and nothing of this engine writes to one. What is looked at here is that each
// file has the size that the source's has.
//
// Where snapshots are made unwritable by a flag of their files, those of this one have it as soon
// as they are made, but for the top.
class ChangeApply : public ChangeSink {
 public:
  struct Place {
    int top_fd;               // the directory that is to be the snapshot
    int base_fd;              // the base
    std::string path;         // of the top, in messages
    std::string volume_path;  // of the volume, in messages
    bool is_frozen;           // whether files get the flag
    bool shares_blocks;       // whether files of the file system can
  };

  // `mark` was read or begun. `listener`, which may be null, hears all data of files; no blocks are
  // shared then. All stay longer than this object.
  ChangeApply(Place place, ChangeMark& mark, DataListener* listener, ChangeProgress& progress);

  Status Begin(ChangePoint& point) override;
  Status Skip(const std::string& name) override;
  Status BeginDirectory(const std::string& name) override;
  Status EndDirectory(const EntryAttributes& attributes) override;
  Status BeginFile(const std::string& name, std::uint64_t size) override;
  Status BeginFileOnBase(const std::string& name, std::uint64_t size,
                         std::uint64_t baseSize) override;
  Status Data(std::uint64_t offset, std::span<const char> bytes) override;
  Status Hole(std::uint64_t offset, std::uint64_t length) override;
  Status EndFile(const EntryAttributes& attributes) override;
  Status HardLink(const std::string& name, const std::string& path) override;
  Status SymbolicLink(const std::string& name, const std::string& text,
                      const EntryAttributes& attributes) override;
  Status Special(const std::string& name, std::uint32_t major, std::uint32_t minor,
                 const EntryAttributes& attributes) override;
  Status End(const EntryAttributes& attributes) override;

  // Why it failed, when that was on this end and a call of the system; else 0.
  int GetError() const { return error_; }

 private:
  struct Level {
    Fd dir, base;
    std::size_t length;  // of the path above it
  };

  int Dir() const { return levels_.empty() ? place_.top_fd : levels_.back().dir.Get(); }
  int Base() const { return levels_.empty() ? place_.base_fd : levels_.back().base.Get(); }
  std::string PathOf(const std::string& name) const {
    return below_.empty() ? name : below_ + "/" + name;
  }
  // Whether what is begun now is what an earlier call had in hand, part of which is to stay.
  bool IsInHand() const { return ended_ == resumed_.ended && resumed_.offset > 0; }
  // Opens a new file, or the one that is to be gone on with.
  Status OpenFile(const std::string& name, Fd& file);
  Status Reach(std::uint64_t offset);
  Status Freeze(const EntryAttributes& attributes, int fd, const std::string& path);
  Status FreezeRest();
  Status EndEntry();
  Status Fail(int error);

  Place place_;
  ChangeMark& mark_;
  ChangeProgress& progress_;
  FileMaker maker_;
  ChangePoint resumed_;
  std::uint64_t ended_ = 0;
  std::vector<Level> levels_;
  std::string below_;  // the path of the directory in hand, below the top
  std::string name_;   // of the entry in hand
  std::unique_ptr<ChangedFile> file_;
  // Of an earlier call, files of several names that the listener has heard.
  std::map<ino_t, std::string> heard_;
  bool can_go_on_ = true;  // the file in hand can, after an interruption
  std::vector<std::string>
      several_names_;  // files to freeze at the end, as no name can be added then
  int error_ = 0;
};

}  // namespace VrelDR::Local
