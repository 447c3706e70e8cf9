#include "engine/local/change_way.h"

#include <cerrno>

#include "engine/local/change_apply.h"
#include "engine/local/change_mark.h"
#include "engine/local/change_source.h"
#include "engine/local/directory.h"
#include "engine/local/extent_changes.h"
#include "engine/local/file_data.h"
#include "engine/local/rsync.h"
#include "engine/local/ship_digests.h"
#include "engine/local/subvolume.h"

namespace VrelDR::Local {

namespace {

// Whether an errno says that an end cannot do this, rather than that something is wrong: no
// descriptors for that many levels, a user who may not, a file system without something. Whoever
// goes another way finds out whether that one can.
bool IsForAnotherWay(int error) {
  return error == EMFILE || error == ENFILE || error == EPERM || error == EACCES ||
         error == EOPNOTSUPP || error == ENAMETOOLONG;
}

// The same of the sink, where the base may not be what was told, too, or not to be gone into.
bool IsForAnotherSink(int error) {
  return IsForAnotherWay(error) || error == ESTALE || error == EXDEV;
}

// Whether an errno says nothing of what was there before.
bool IsOfVolume(int error) {
  return error == 0 || error == ENOSPC || error == EDQUOT || error == EROFS || error == EIO;
}

}  // namespace

Status ChangeWay::OfSink(int error) const {
  return error == 0 ? Status() : StatusOfErrno(error, sink_.GetVolumePath());
}

Status ChangeWay::Bring(Shipment& shipment, WriteBack& writeBack, bool& hasArrived) {
  const Fd base = base_id_.empty() ? Fd() : source_.OpenSnapshot(base_id_);
  const Fd baseThere = base ? sink_.OpenSnapshot(base_id_) : Fd();
  ChangeMark mark(sink_.GetIncomingFd(), snap_id_, base_id_);
  bool isOurs = false;
  if (const int error = mark.Read(isOurs)) return OfSink(error);
  ShipDigests digests(source_, sink_, snap_id_, base_id_);
  Status status = baseThere ? digests.Open() : Status();
  if (!status.IsOk()) return status;
  ExtentChanges extents;
  ChangeFinder* const finder =
      ExtentChanges::CanTell(source_.GetSnapshotsFd()) ? &extents : digests.GetFinder();
  const bool isPossible = baseThere && finder != nullptr;
  if (!isPossible || (hasArrived && !isOurs)) {
    // What is there goes on without it.
    return OfSink(ChangeMark::Remove(sink_.GetIncomingFd(), snap_id_));
  }
  Ends ends{source_.GetFd(), base.Get(), baseThere.Get(), CanShareBlocks(sink_.GetIncomingFd()), 0};
  // What begins this way may have to end another way: it has the limits of that one.
  const std::string path = source_.GetPath();
  status = MeasureTree(path, RsyncLimits(path), shipment.GetWatch(), ends.total);
  while (status.IsOk()) {
    const bool goesOn = hasArrived && isOurs;
    if (!goesOn) status = Discard(mark, hasArrived);
    if (!goesOn && status.IsOk()) status = sink_.Prepare({}, shipment.GetWatch());
    if (!status.IsOk()) return status;
    hasArrived = true;
    const bool isFresh = mark.GetReached() == ChangePoint();
    bool cannot = false;
    status = Try(ends, *finder, digests, mark, shipment, writeBack, cannot);
    if (status.IsOk()) return End(digests, mark, shipment);
    if (status.code == kErrNoSpace && digests.GiveUp()) {
      // Perhaps it fits without them.
      isOurs = true;
      status = {};
      continue;
    }
    if (!cannot) return status;
    // Perhaps for the sake of what was there: all of it is told once more then.
    isOurs = false;
    status = {};
    if (!isFresh) continue;
    status = Discard(mark, true);
    hasArrived = false;
    if (status.IsOk()) status = OfSink(ChangeMark::Remove(sink_.GetIncomingFd(), snap_id_));
    return status;
  }
  return status;
}

Status ChangeWay::End(ShipDigests& digests, ChangeMark& mark, Shipment& shipment) {
  bool isDifferent = false;
  Status status = digests.Finish(isDifferent);
  is_done_ = status.IsOk();
  if (!isDifferent) return status;
  // An empty place without the mark: the next call goes on with it the other way, which rests on no
  // base.
  Status left = Discard(mark, true);
  if (left.IsOk()) left = sink_.Prepare({}, shipment.GetWatch());
  if (left.IsOk()) (void)ChangeMark::Remove(sink_.GetIncomingFd(), snap_id_);
  return status;
}

Status ChangeWay::Discard(ChangeMark& mark, bool hasArrived) const {
  Status status = OfSink(mark.Begin());
  if (status.IsOk() && hasArrived) status = sink_.Discard();
  return status;
}

Status ChangeWay::Try(const Ends& ends, ChangeFinder& finder, ShipDigests& digests,
                      ChangeMark& mark, Shipment& shipment, WriteBack& writeBack,
                      bool& cannot) const {
  const Fd top = OpenDir(sink_.GetIncomingFd(), snap_id_);
  if (!top) return OfSink(errno);
  const bool isFresh = mark.GetReached() == ChangePoint();
  ChangeProgress progress(shipment, ends.total);
  ChangeApply sink({top.Get(), ends.base_there_fd, sink_.GetIncomingPath(), sink_.GetVolumePath(),
                    !IsSubvolume(top.Get()), ends.shares_blocks},
                   mark, digests.BeginArrival(ends.shares_blocks), progress);
  ChangeSource source(ends.snapshot_fd, ends.base_fd, source_.GetPath(), finder, digests.GetCheck(),
                      progress);
  Status status;
  {
    const Flusher flusher(writeBack, &mark);
    status = source.Tell(sink);
  }
  if (status.IsOk()) return progress.End();
  // Where nothing hangs, what was told since the last sync is kept too.
  const bool isWorthIt = status.code != kErrUnreachable;
  if (isWorthIt && writeBack.Sync().IsOk()) mark.Keep(mark.GetReached());
  cannot = IsForAnotherWay(source.GetError()) || IsForAnotherSink(sink.GetError()) ||
           (!isFresh && !IsOfVolume(sink.GetError()));
  return status;
}

}  // namespace VrelDR::Local
