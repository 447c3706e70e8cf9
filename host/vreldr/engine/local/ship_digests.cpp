#include "engine/local/ship_digests.h"

#include "engine/local/digest_compare.h"
#include "engine/local/kept_digests.h"

namespace VrelDR::Local {

namespace {

Status Unreadable(int error, const std::string& path) {
  return error == 0 ? Status() : StatusOfErrno(error, "the digests of " + path);
}

}  // namespace

Status ShipDigests::Open() {
  Status status = Unreadable(source_.OpenDigests(snap_id_, snapshot_), source_.GetPath());
  if (!status.IsOk() || !snapshot_) return status;
  check_.emplace(*snapshot_, source_.GetPath());
  if (base_id_.empty()) return {};
  status = Unreadable(source_.OpenDigests(base_id_, base_), source_.PathOf(base_id_));
  if (status.IsOk() && base_) finder_.emplace(*base_, *snapshot_);
  return status;
}

DataListener* ShipDigests::BeginArrival(bool sharesBlocks) {
  keeper_.reset();
  writer_.reset();
  if (is_given_up_ || sharesBlocks) return nullptr;
  // Those of one size of chunks can be compared.
  const std::uint32_t chunkSize = snapshot_ ? snapshot_->GetChunkSize() : kDigestChunk;
  writer_.emplace(sink_.GetIncomingFd(), DigestsName(snap_id_), chunkSize);
  return &keeper_.emplace(*writer_);
}

bool ShipDigests::GiveUp() {
  is_given_up_ = true;
  return writer_ && writer_->GiveUp();
}

Status ShipDigests::Finish(bool& isDifferent) {
  isDifferent = false;
  if (!writer_ || !writer_->Finish() || !snapshot_) return {};
  std::optional<DigestFile> arrived;
  std::optional<DigestDifference> found;
  int error = DigestFile::Open(sink_.GetIncomingFd(), DigestsName(snap_id_), arrived);
  if (error == 0) error = CompareDigests(*snapshot_, *arrived, found);
  if (error != 0) return Unreadable(error, sink_.GetIncomingPath());
  isDifferent = found.has_value();
  if (!found) return {};
  return {kErrIo, "what has arrived of snapshot " + Quoted(snap_id_) + " at target " +
                      Quoted(sink_.GetReplicaId()) + " is not what was taken: file " +
                      Quoted(found->path) + " differs from byte " + std::to_string(found->offset) +
                      " on. Perhaps the disk there has changed the snapshot before it; look at the "
                      "system's log, and run it again: all is sent then"};
}

}  // namespace VrelDR::Local
