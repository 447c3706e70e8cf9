#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "engine/local/data_listener.h"
#include "engine/local/digest.h"
#include "engine/local/digest_file.h"
#include "engine/local/digest_writer.h"

namespace VrelDR::Local {

// At the source of a shipment: what is read of a snapshot to be told is what the snapshot had when
// its digests were kept. That files are frozen proves nothing: who may clear the flag can write.
// Of a chunk of which only a part is told nothing can be said.
class DigestCheck : public DataListener {
 public:
  // `path` is the snapshot's, in messages. `kept` stays longer than this object.
  DigestCheck(const DigestFile& kept, std::string path)
      : kept_(kept), path_(std::move(path)), zeros_(DigestOfZeros(kept.GetChunkSize())) {}

  Status BeginFile(const std::string& path, std::uint64_t size) override;
  Status Data(std::uint64_t offset, std::span<const char> bytes) override;
  Status Hole(std::uint64_t offset, std::uint64_t length) override;
  Status EndFile() override { return {}; }
  Status Name(const std::string& /*path*/, const std::string& /*first*/) override { return {}; }

 private:
  // What is told next begins there.
  void GoTo(std::uint64_t offset);
  // The chunk in hand has been told as a whole.
  Status Check(const Digest& digest);
  // The same of so many chunks of zeros, from the chunk in hand on.
  Status CheckZeros(std::uint64_t chunks);
  Status Changed(std::uint64_t offset) const;
  Status Unreadable(int error) const;
  std::uint64_t EndOfChunk() const;

  const DigestFile& kept_;
  std::string path_;
  Digest zeros_;  // of a chunk of them

  // Of the file in hand.
  std::string name_;
  std::uint64_t size_ = 0;
  std::optional<DigestCursor> cursor_;
  std::uint64_t chunk_at_ = 0;  // the chunk that the cursor gives next
  std::uint64_t at_ = 0;        // told up to there,
  bool is_whole_ = false;       // and the chunk in hand from its beginning
  RunningDigest running_;
};

// At the sink of a shipment: writes the digests of what arrives.
class DigestKeeper : public DataListener {
 public:
  // It stays longer than this object.
  explicit DigestKeeper(DigestWriter& writer) : writer_(writer) {}

  Status BeginFile(const std::string& path, std::uint64_t size) override;
  Status Data(std::uint64_t offset, std::span<const char> bytes) override;
  Status Hole(std::uint64_t /*offset*/, std::uint64_t /*length*/) override { return {}; }
  Status EndFile() override;
  Status Name(const std::string& path, const std::string& first) override;

 private:
  DigestWriter& writer_;
};

}  // namespace VrelDR::Local
