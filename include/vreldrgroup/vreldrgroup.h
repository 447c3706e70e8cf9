#pragma once

// Everything that libvreldrgroup offers.
//
// An object is one thread's at a time; different objects, and free functions, may be used by
// different threads at once. Who changes a group sees to it that nobody else does meanwhile: the
// library takes no lock of a group. docs/threads.md tells more.

#include "vreldrgroup/db.h"
#include "vreldrgroup/record/gsnapshot.h"
#include "vreldrgroup/record/target_group.h"
#include "vreldrgroup/record/target_replica.h"
#include "vreldrgroup/record/target_snapshot.h"
#include "vreldrgroup/replication/action_words.h"
#include "vreldrgroup/replication/replica.h"
#include "vreldrgroup/replication/replica_op.h"
#include "vreldrgroup/replication/replica_utils.h"
#include "vreldrgroup/snapshot/gsnap_clone.h"
#include "vreldrgroup/snapshot/gsnap_create.h"
#include "vreldrgroup/snapshot/gsnap_delete.h"
#include "vreldrgroup/snapshot/gsnap_op.h"
#include "vreldrgroup/snapshot/gsnap_repair.h"
#include "vreldrgroup/snapshot/gsnap_restore.h"
#include "vreldrgroup/snapshot/gsnap_sync.h"
#include "vreldrgroup/snapshot/gsnap_utils.h"
