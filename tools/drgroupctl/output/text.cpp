#include "output/text.h"

#include <wchar.h>

#include <cctype>
#include <charconv>
#include <cstdio>
#include <ctime>

namespace drgroupctl {

namespace {

constexpr char32_t kMalformed = 0xFFFFFFFF;

// Takes one character off the front of `text`; a malformed sequence loses one byte.
char32_t TakeCharacter(std::string_view& text) {
  const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(0);
  const std::size_t length = first < 0x80   ? 1
                             : first < 0xC2 ? 0
                             : first < 0xE0 ? 2
                             : first < 0xF0 ? 3
                             : first < 0xF5 ? 4
                                            : 0;
  char32_t character = length == 1 ? first : first & (0xFFU >> (length + 1));
  bool good = length != 0 && length <= text.size();
  for (std::size_t i = 1; good && i < length; ++i) {
    good = (byte(i) & 0xC0) == 0x80;
    character = (character << 6) | (byte(i) & 0x3F);
  }
  if (good && length == 3) good = character >= 0x800 && (character < 0xD800 || character > 0xDFFF);
  if (good && length == 4) good = character >= 0x10000 && character <= 0x10FFFF;
  text.remove_prefix(good ? length : 1);
  return good ? character : kMalformed;
}

// Characters that move the cursor, begin a line or turn the direction of what follows.
bool IsControl(char32_t c) {
  return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x061C || c == 0x200E || c == 0x200F ||
         (c >= 0x2028 && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069) || c == 0xFEFF;
}

// How many characters at the front are each one byte, one column and nothing special: mostly all.
std::size_t PlainLength(std::string_view text) {
  std::size_t length = 0;
  while (length < text.size() && text[length] >= ' ' && text[length] <= '~') ++length;
  return length;
}

std::string Escape(char32_t c) {
  switch (c) {
    case '\n':
      return "\\n";
    case '\t':
      return "\\t";
    case '\r':
      return "\\r";
    default:
      break;
  }
  char buffer[16];
  std::snprintf(buffer, sizeof buffer, c < 0x100 ? "\\x%02x" : "\\u%04x", static_cast<unsigned>(c));
  return buffer;
}

}  // namespace

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    if (TakeCharacter(text) == kMalformed) return false;
  }
  return true;
}

std::string RepairUtf8(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    const std::string_view before = text;
    const bool good = TakeCharacter(text) != kMalformed;
    out += good ? before.substr(0, before.size() - text.size()) : "\xEF\xBF\xBD";
  }
  return out;
}

std::string Printable(std::string_view text) {
  std::string out;
  for (;;) {
    const std::size_t plain = PlainLength(text);
    out += text.substr(0, plain);
    text.remove_prefix(plain);
    if (text.empty()) return out;
    const std::string_view before = text;
    const char32_t c = TakeCharacter(text);
    if (c == kMalformed) {
      out += Escape(static_cast<unsigned char>(before.front()));
    } else if (IsControl(c)) {
      out += Escape(c);
    } else {
      out += before.substr(0, before.size() - text.size());
    }
  }
}

std::string Quote(std::string_view text) {
  return '"' + Printable(text) + '"';
}

std::size_t DisplayWidth(std::string_view text) {
  std::size_t width = PlainLength(text);
  text.remove_prefix(width);
  while (!text.empty()) {
    const int columns = wcwidth(static_cast<wchar_t>(TakeCharacter(text)));
    width += columns < 0 ? 1U : static_cast<std::size_t>(columns);
  }
  return width;
}

std::string FormatBytes(std::uint64_t bytes) {
  constexpr char kUnits[] = "KMGTPE";
  if (bytes < 1024) return std::to_string(bytes);
  double number = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  for (; number >= 1024; ++unit) number /= 1024;
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, number < 10 ? "%.1f%c" : "%.0f%c", number, kUnits[unit]);
  return buffer;
}

std::string FormatTime(std::int64_t time) {
  const std::time_t seconds = time;
  std::tm parts = {};
  char buffer[64];
  if (gmtime_r(&seconds, &parts) == nullptr ||
      std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S UTC", &parts) == 0) {
    return std::to_string(time);
  }
  return buffer;
}

std::string FormatAge(std::int64_t age) {
  if (age < 0) return "ahead by " + FormatAge(-age);
  const auto seconds = static_cast<std::uint64_t>(age);
  const auto pair = [](std::uint64_t whole, char unit, std::uint64_t rest, char smaller) {
    const std::string text = std::to_string(whole) + unit;
    return rest == 0 ? text : text + ' ' + std::to_string(rest) + smaller;
  };
  if (seconds < 60) return std::to_string(seconds) + 's';
  if (seconds < 3600) return std::to_string(seconds / 60) + 'm';
  if (seconds < 86400) return pair(seconds / 3600, 'h', seconds % 3600 / 60, 'm');
  return pair(seconds / 86400, 'd', seconds % 86400 / 3600, 'h');
}

std::string CutToWidth(const std::string& text, std::size_t width) {
  if (DisplayWidth(text) <= width) return text;
  std::string out;
  std::string_view rest = text;
  while (!rest.empty()) {
    const std::string_view before = rest;
    TakeCharacter(rest);
    const std::string_view character = before.substr(0, before.size() - rest.size());
    if (DisplayWidth(out) + DisplayWidth(character) + 1 > width) break;
    out += character;
  }
  return out + '~';
}

std::string FormatAgo(std::int64_t age) {
  return age < 0 ? FormatAge(age) + ", by this host's clock" : FormatAge(age) + " ago";
}

bool ParseBytes(const std::string& text, std::uint64_t& bytes) {
  std::uint64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc()) return false;
  const std::string unit(rest, end);
  if (unit.size() > 1) return false;
  const std::size_t power = std::string("KMGT").find(unit) + 1;
  if (!unit.empty() && power == 0) return false;
  const unsigned shift = unit.empty() ? 0 : 10 * static_cast<unsigned>(power);
  if (number > (UINT64_MAX >> shift)) return false;
  bytes = number << shift;
  return true;
}

bool ParseDuration(const std::string& text, std::int64_t& seconds) {
  std::uint32_t number = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || end - rest > 1) return false;
  switch (rest == end ? 's' : *rest) {
    case 's':
      seconds = number;
      return true;
    case 'm':
      seconds = std::int64_t{number} * 60;
      return true;
    case 'h':
      seconds = std::int64_t{number} * 3600;
      return true;
    case 'd':
      seconds = std::int64_t{number} * 86400;
      return true;
    case 'w':
      seconds = std::int64_t{number} * 7 * 86400;
      return true;
    default:
      return false;
  }
}

std::string Count(std::uint64_t number, const std::string& thing) {
  return std::to_string(number) + ' ' + thing + (number == 1 ? "" : "s");
}

std::string Sentence(const std::string& text) {
  std::string sentence = text + '.';
  sentence[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(sentence[0])));
  return sentence;
}

std::string Join(const std::vector<std::string>& parts, const std::string& separator) {
  std::string out;
  for (const std::string& part : parts) out += (out.empty() ? "" : separator) + part;
  return out;
}

}  // namespace drgroupctl
