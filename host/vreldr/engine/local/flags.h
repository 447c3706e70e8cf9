#pragma once

#include <string>

namespace VrelDR::Local {

// The inode flags of lsattr and chattr that are a part of a target's data: those of the user, such
// as "immutable", "append only" and "no dump". A copy in a snapshot cannot have them itself, as it
// is immutable and has to be removable: it has them in an extended attribute of this engine, which
// is taken off what is made of the snapshot.
//
// Not every file system has every flag, and only root can set some of them or the attribute: what
// is refused is left out.
inline constexpr const char* kFlagsXattr = "trusted.vreldr.flags";

// The flags of an open file or directory, those of them that are kept. 0 where it has none.
unsigned ReadFlags(int fd);
// Gives an open file or directory these flags beside those it has. 0 or an errno.
int AddFlags(int fd, unsigned flags);

// What a snapshot's copy says.
struct RecordedFlags {
  unsigned own = 0;
  // Of the top of a copy: something below it has flags, too.
  bool are_below = false;
};
bool IsImmutable(unsigned flags);
unsigned WithImmutable(unsigned flags, bool immutable);
// Writes it down at the open copy; nothing when there is nothing to say. 0 or an errno.
int RecordFlags(int fd, const RecordedFlags& flags);
// What is written down, nothing when that is no text of this engine.
RecordedFlags ReadRecordedFlags(int fd);

// Takes the attribute off the directory `dirFd` and all that is below it, which gets its flags.
// Puts the directory's own into `flags`: with some of them it could not be moved any more. 0 or an
// errno.
int TurnRecordIntoFlags(int dirFd, unsigned& flags);

}  // namespace VrelDR::Local
