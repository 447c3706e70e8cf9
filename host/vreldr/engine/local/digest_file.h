#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/fd.h"
#include "engine/local/digest.h"

namespace VrelDR::Local {

// Reads a file from some place on, piece by piece, never behind its end.
class PieceReader {
 public:
  // `fd` stays open longer than this object.
  PieceReader(int fd, std::uint64_t offset, std::uint64_t end)
      : fd_(fd), offset_(offset), end_(end) {}

  // The next bytes, until the next call. 0 or an errno: EBADMSG when there are not so many.
  int Get(std::size_t count, const char*& bytes);
  // Where the next bytes are.
  std::uint64_t GetOffset() const { return offset_ - (buffer_.size() - used_); }

 private:
  int fd_;
  std::uint64_t offset_;  // behind what is in the buffer
  std::uint64_t end_;
  std::vector<char> buffer_;
  std::size_t used_ = 0;
};

// The digests of one file's chunks, from the first one on.
class DigestCursor {
 public:
  DigestCursor(PieceReader reader, std::uint64_t size, std::uint32_t chunkSize);

  std::uint64_t GetSize() const { return size_; }

  // Chunks that follow each other and are of one kind.
  struct Chunks {
    std::uint64_t count = 0;                 // 0 behind the last one
    const unsigned char* digests = nullptr;  // null when all of them are zeros
  };
  // What comes next, at most `most` chunks, until the next call: all of them up to 4096 that are of
  // the kind. 0 or an errno.
  int Next(std::uint64_t most, Chunks& chunks);
  // How many of one kind come next, without taking them. 0 or an errno.
  int Peek(std::uint64_t& count, bool& areZeros);

 private:
  PieceReader reader_;
  std::uint64_t size_;
  std::uint64_t left_;  // chunks of the file
  std::uint64_t left_in_block_ = 0;
  bool is_zero_block_ = false;
};

// The digests of a snapshot's files as they stand in their file; see digest_format.h. One that is
// torn, changed or of somebody else is none.
class DigestFile {
 public:
  // Reads all of it once. 0 or an errno: ENOENT when nothing is there, EBADMSG when that is none.
  static int Open(int dirFd, const std::string& name, std::optional<DigestFile>& file);

  std::uint32_t GetChunkSize() const { return chunk_size_; }
  // Files of several names count once.
  std::uint64_t CountFiles() const { return files_; }

  // The digests of the file of that path; none when it is not there. 0 or an errno.
  int Find(std::string_view path, std::optional<DigestCursor>& cursor) const;
  // The first path of each file, in the order in which they stand. Ends at the first answer that is
  // not 0, and returns it or an errno.
  template <class Visit>
  int ForEachFile(const Visit& visit) const;

 private:
  // Where the record of a path is.
  struct Name {
    Digest path;
    std::uint64_t offset = 0;
  };
  struct Record {
    std::uint8_t tag = 0;
    std::string path;
    std::string first;       // of kTagName
    std::uint64_t size = 0;  // of kTagFile
  };

  DigestFile() = default;
  int Check();
  int CheckRecords(PieceReader& reader);
  int ReadRecord(PieceReader& reader, Record& record) const;
  int PassOverBlocks(PieceReader& reader, std::uint64_t size) const;
  const Name* FindName(std::string_view path) const;
  std::vector<std::uint64_t> GetOffsets() const;
  // The path of the record at `offset`; `isFile` says whether it is of a file.
  int ReadPath(std::uint64_t offset, std::string& path, bool& isFile) const;

  Fd file_;
  std::uint64_t byte_count_ = 0;
  std::uint32_t chunk_size_ = 0;
  std::uint64_t files_ = 0;
  std::vector<Name> names_;  // by their paths' digests
};

template <class Visit>
int DigestFile::ForEachFile(const Visit& visit) const {
  std::string path;
  for (const std::uint64_t offset : GetOffsets()) {
    bool isFile = false;
    int error = ReadPath(offset, path, isFile);
    if (error == 0 && isFile) error = visit(path);
    if (error != 0) return error;
  }
  return 0;
}

}  // namespace VrelDR::Local
