#pragma once

#include <string>
#include <vector>

#include "vrelcore/export.h"
#include "vreldr/error.h"
#include "vreldr/place_use.h"

namespace VrelDR {

// Somebody who has a target's bytes in use at this moment: who writes on loses what he writes when
// the target is made unwritable, and who only reads goes on with the old bytes when others come
// into its place.
struct VREL_API TargetUser {
  enum class Kind {
    kOpenFile,    // a descriptor of a process
    kMappedFile,  // a mapping of one, whose descriptor may be closed
    kLoopDevice,
    kSwapFile,
    kMount,  // of something of the target, in any mount namespace; not of something else in it
  };
  Kind kind = Kind::kOpenFile;
  bool is_writer = false;  // can change the target's bytes by what he has
  int pid = 0;             // of the process, or of one that sees the mount; 0 for the kernel itself
  std::string program;     // the process's name
  std::string path;        // the file, or what of the target is mounted
  std::string through;     // the loop device, or the place where the mount is
  std::string mounted_on;  // where a loop device is mounted; empty when that is nowhere

  // 'file "..." is open for writing by qemu (pid 123)'.
  std::string Text() const;
};

// Whether the user is a reason not to do that to the target: against making it unwritable only who
// can write is, against other bytes in its place, or none, everybody, and against a snapshot
// nobody.
VREL_API bool IsInTheWay(const TargetUser& user, PlaceUse use);

// The first few in one line, and how many more there are.
VREL_API std::string TextOf(const std::vector<TargetUser>& users);

// The answer for one target.
struct VREL_API TargetUsers {
  std::string target_id;
  std::vector<TargetUser> users;  // those who can write first
  int code = kErrNone;            // unless it could be found out: why not
  std::string problem;
};

// Finds out who uses targets. This process itself is never told of. A directory that is open, or
// that is somebody's working directory or root, is no use of bytes, and neither is a file that has
// no name any more, as no snapshot has it. The answer is of one moment: whoever is to be kept from
// writing has to be asked for after the target was made unwritable.
class VREL_API TargetUsersFinder : public DRErrRecorder {
 public:
  // Appends an answer for each of the targets, in their order; all on a volume are looked for at
  // once. To `unseen` it adds what of this node could not be looked at, a line each. What nobody
  // sees from here: files that the kernel keeps open for others (its NFS server, its SCSI targets)
  // or for requests on their way, and programs on other nodes. False only when the host cannot be
  // asked at all.
  bool Find(const std::vector<std::string>& targetIds, std::vector<TargetUsers>& answers,
            std::vector<std::string>& unseen) const;
};

// As long as one lives, a switchover that runs in this thread goes on although somebody can still
// write the source when that has been made unwritable, and notes whom it went on over. Without one
// it ends with kErrInUse, and the source is made writable again. For callers that have asked, told
// what is lost, and been told to go on.
class VREL_API InUseAllowed {
 public:
  InUseAllowed();
  ~InUseAllowed();
  InUseAllowed(const InUseAllowed&) = delete;
  InUseAllowed& operator=(const InUseAllowed&) = delete;

  // Whether one lives in this thread.
  static bool IsSaid();
};

}  // namespace VrelDR
