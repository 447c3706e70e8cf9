#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/fd.h"
#include "engine/local/digest.h"

namespace VrelDR::Local {

// Writes the digests of a snapshot's files while the snapshot is made, by whoever has its bytes in
// hand; see digest_format.h.
//
// Nobody needs digests so much that a snapshot fails for them: when something goes wrong with their
// file it is removed, and all later calls do nothing. What Finish has written is whole; it is the
// caller who brings it to disk and, once it is there, puts it into its place.
class DigestWriter {
 public:
  // The file is called `name`, in the directory `dirFd`, which stays open longer than this object.
  // It is made when there is something to write; what was called so before is removed. Chunks of
  // another size are for tests.
  DigestWriter(int dirFd, std::string name, std::uint32_t chunkSize = kDigestChunk);
  // Gives up what is not finished.
  ~DigestWriter();
  DigestWriter(const DigestWriter&) = delete;
  DigestWriter& operator=(const DigestWriter&) = delete;

  // Whether digests are being written.
  bool IsGood() const { return is_good_; }

  // A file: its path, its size, its bytes in ascending pieces, its end. What is left out is zeros.
  void BeginFile(std::string_view path, std::uint64_t size);
  void AddData(std::uint64_t offset, const void* bytes, std::size_t count);
  void EndFile();
  // `path` is one more name of the file that was told as `first`.
  void AddName(std::string_view path, std::string_view first);

  // Whether all has been told, and written.
  bool Finish();
  // Removes what is not finished. Whether it took up room on disk.
  bool GiveUp();

 private:
  template <class Number>
  void PutNumber(Number number);
  void Put(const void* bytes, std::size_t count);
  void AddZeros(std::uint64_t count);
  void AddDigest(const Digest& digest);
  void FlushZeros();
  void FlushDigests();
  bool Make();
  void Write();
  std::uint64_t EndOfChunk() const;

  int dir_fd_;
  std::string name_;
  std::uint32_t chunk_size_;
  Digest zeros_;  // of a chunk of zeros
  Fd file_;
  bool is_good_ = true;
  std::vector<char> buffer_;  // not written yet
  RunningDigest all_;         // of what was written
  std::uint64_t names_ = 0;

  // Of the file in hand.
  bool has_file_ = false;
  std::uint64_t size_ = 0;
  std::uint64_t at_ = 0;  // what is before that has been told
  RunningDigest chunk_;   // of the chunk in hand, when `at_` is not at its beginning
  std::vector<Digest> digests_;
  std::uint64_t zero_chunks_ = 0;  // behind the last digest; not both are there
};

}  // namespace VrelDR::Local
