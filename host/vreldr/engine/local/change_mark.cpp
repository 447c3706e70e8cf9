#include "engine/local/change_mark.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <string_view>

#include "base/fd.h"
#include "engine/support/open_entry.h"
#include "foundation/durable.h"

namespace VrelDR::Local {

namespace {

// The file: this line, the base's identifier, the two numbers and the last word, a line each; the
// word says that nothing is missing. The first line also stands for the order in which a snapshot
// is told, which is what the numbers count: whoever changes one or the other gives it a new number.
constexpr std::string_view kFirst = "changes 1";
constexpr std::string_view kLast = "end";
constexpr std::size_t kMostBytes = 4096;

// Takes the next line off a text; empty when there is none.
std::string_view NextLine(std::string_view& text) {
  const std::size_t end = text.find('\n');
  if (end == std::string_view::npos) return {};
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(end + 1);
  return line;
}

bool ToNumber(std::string_view line, std::uint64_t& number) {
  const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), number);
  return error == std::errc() && end == line.data() + line.size();
}

}  // namespace

ChangeMark::ChangeMark(int incomingFd, const std::string& snapId, const std::string& baseId)
    : incoming_fd_(incomingFd), name_(NameOf(snapId)), base_id_(baseId) {}

// No identifier begins with a dot.
std::string ChangeMark::NameOf(const std::string& snapId) {
  return ".changes." + snapId;
}

int ChangeMark::Read(bool& isThere) {
  isThere = false;
  const Fd file = OpenEntry(incoming_fd_, name_, O_RDONLY | O_NONBLOCK);
  if (!file) return errno == ENOENT ? 0 : errno;
  std::array<char, kMostBytes> bytes;
  const ssize_t got = pread(file.Get(), bytes.data(), bytes.size(), 0);
  if (got < 0) return errno;
  std::string_view text(bytes.data(), static_cast<std::size_t>(got));
  ChangePoint point;
  isThere = NextLine(text) == kFirst && NextLine(text) == base_id_ &&
            ToNumber(NextLine(text), point.ended) && ToNumber(NextLine(text), point.offset) &&
            NextLine(text) == kLast && text.empty();
  if (isThere) reached_ = kept_ = point;
  return 0;
}

int ChangeMark::Begin() {
  reached_ = kept_ = {};
  // A file of its own: of one that a power cut leaves half nobody takes the old numbers.
  if (unlinkat(incoming_fd_, name_.c_str(), 0) != 0 && errno != ENOENT) return errno;
  const int error = Write(name_, kept_);
  return error == 0 ? VrelHost::SyncFd(incoming_fd_) : error;
}

int ChangeMark::Remove(int incomingFd, const std::string& snapId) {
  if (unlinkat(incomingFd, NameOf(snapId).c_str(), 0) == 0) return VrelHost::SyncFd(incomingFd);
  return errno == ENOENT ? 0 : errno;
}

void ChangeMark::Reach(const ChangePoint& point) {
  const std::lock_guard lock(mutex_);
  reached_ = point;
}

ChangePoint ChangeMark::GetReached() const {
  const std::lock_guard lock(mutex_);
  return reached_;
}

void ChangeMark::Keep(const ChangePoint& point) {
  if (point == kept_) return;
  // Its bytes first, so that under its name there is never half of it.
  const std::string fresh = name_ + ".new";
  if (Write(fresh, point) != 0) return;
  if (renameat(incoming_fd_, fresh.c_str(), incoming_fd_, name_.c_str()) == 0) kept_ = point;
}

int ChangeMark::Write(const std::string& name, const ChangePoint& point) const {
  std::string text(kFirst);
  text += '\n' + base_id_ + '\n';
  text += std::to_string(point.ended) + '\n';
  text += std::to_string(point.offset) + '\n';
  text += kLast;
  text += '\n';
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC;
  const Fd file(openat(incoming_fd_, name.c_str(), kFlags, 0600));
  return file ? VrelHost::WriteAndSync(file.Get(), text) : errno;
}

}  // namespace VrelDR::Local
