#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Text for people and from people.
namespace drgroupctl {

bool IsUtf8(std::string_view text);

// `text` with every malformed byte replaced by U+FFFD.
std::string RepairUtf8(std::string_view text);

// `text` so that it stays on its line and cannot steer a terminal: control characters, line and
// direction marks and malformed bytes become escapes such as \n and \x1b.
std::string Printable(std::string_view text);

// Printable text in double quotes, for messages.
std::string Quote(std::string_view text);

// How many columns of a terminal printable text takes.
std::size_t DisplayWidth(std::string_view text);

// A number of bytes for people, such as 1.5G.
std::string FormatBytes(std::uint64_t bytes);

// A time in seconds since the epoch for people, in UTC.
std::string FormatTime(std::int64_t time);

// A number of seconds for people, such as 45s, 3m and 2h 5m; "ahead by 3m" when it is less than 0.
std::string FormatAge(std::int64_t age);
// "3m ago", or that it lies ahead.
std::string FormatAgo(std::int64_t age);

// `text`, which is printable, cut to that many columns; what is cut off is marked.
std::string CutToWidth(const std::string& text, std::size_t width);

// Reads N, NK, NM, NG or NT (powers of 1024). False when it is something else or does not fit.
bool ParseBytes(const std::string& text, std::uint64_t& bytes);

// Reads N or Ns, Nm, Nh, Nd or Nw as a number of seconds. False when it is something else or does
// not fit.
bool ParseDuration(const std::string& text, std::int64_t& seconds);

// "1 snapshot", "2 snapshots".
std::string Count(std::uint64_t number, const std::string& thing);

// `text`, which begins with an ASCII letter, as a sentence.
std::string Sentence(const std::string& text);

std::string Join(const std::vector<std::string>& parts, const std::string& separator);

}  // namespace drgroupctl
