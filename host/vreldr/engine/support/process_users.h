#pragma once

#include "engine/support/owned_files.h"

namespace VrelDR {

// Tells `files` of all that processes have open or mapped, and of the mounts that they see; not of
// what this process has. A process that ends meanwhile is passed over. What cannot be looked at
// goes into `seen`. Nothing is asked of another file system than that of the files: it may hang.
Status FindProcessUsers(OwnedFiles& files, UsersSeen& seen, Watch& watch);

}  // namespace VrelDR
