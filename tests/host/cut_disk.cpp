#include "cut_disk.h"

#include <algorithm>

namespace host_test {

namespace {

constexpr std::size_t kSector = 512;

// What a disk has written of it: whole sectors, from the beginning or up to the end.
test_support::WriteStep Torn(const test_support::WriteStep& step, std::mt19937& random) {
  test_support::WriteStep part = step;
  const std::size_t kept = random() % (step.bytes.size() / kSector + 1) * kSector;
  if (random() % 2 == 0) {
    part.bytes.resize(std::min(kept, part.bytes.size()));
  } else {
    part.bytes.erase(0, kept);
    part.offset += kept;
  }
  return part;
}

}  // namespace

CutDisk::CutDisk(const Files& files) {
  for (const auto& [path, bytes] : files) {
    now_[path] = files_.size();
    files_.push_back({bytes, {}});
  }
  durable_ = now_;
}

void CutDisk::Apply(const Step& step, std::string& bytes) {
  const std::size_t end = step.offset + step.bytes.size();
  if (step.kind == Step::Kind::kSize || bytes.size() < end) bytes.resize(end);
  if (step.kind == Step::Kind::kWrite) bytes.replace(step.offset, step.bytes.size(), step.bytes);
}

void CutDisk::Apply(const Naming& naming, Names& names) {
  if (naming.is_there) {
    names[naming.path] = naming.file;
  } else {
    names.erase(naming.path);
  }
}

void CutDisk::Name(const Naming& naming) {
  pending_.push_back(naming);
  Apply(naming, now_);
}

void CutDisk::Do(const Step& step) {
  const bool isThere = now_.count(step.path) != 0;
  if (step.kind == Step::Kind::kSyncDir) {
    durable_ = now_;
    pending_.clear();
    return;
  }
  if (step.kind == Step::Kind::kRemove) {
    if (isThere) Name({step.path, false, 0});
    return;
  }
  if (!isThere) {
    Name({step.path, true, files_.size()});
    files_.emplace_back();
  }
  File& file = files_[now_.at(step.path)];
  if (step.kind != Step::Kind::kSync) {
    file.pending.push_back(step);
    return;
  }
  for (const Step& each : file.pending) Apply(each, file.bytes);
  file.pending.clear();
}

CutDisk::Files CutDisk::Cut(Survivors survivors, std::mt19937& random) const {
  Names names = durable_;
  std::size_t kept = survivors == Survivors::kNone ? 0 : pending_.size();
  if (survivors == Survivors::kSome) kept = random() % (pending_.size() + 1);
  for (std::size_t i = 0; i < kept; ++i) Apply(pending_[i], names);
  Files left;
  for (const auto& [path, number] : names) {
    const File& file = files_[number];
    std::string& bytes = left[path] = file.bytes;
    for (const Step& each : file.pending) {
      const unsigned fate = survivors == Survivors::kSome  ? random() % 3
                            : survivors == Survivors::kAll ? 1
                                                           : 0;
      if (fate == 1) Apply(each, bytes);
      if (fate == 2) Apply(each.kind == Step::Kind::kWrite ? Torn(each, random) : each, bytes);
    }
  }
  return left;
}

}  // namespace host_test
