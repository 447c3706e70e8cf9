#include "config/quoted.h"

namespace VrelHost {

std::string Quoted(const std::string& text) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string quoted = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) {
      quoted += "\\x";
      quoted += kDigits[byte >> 4];
      quoted += kDigits[byte & 15];
    } else {
      quoted += c;
    }
  }
  return quoted + "\"";
}

}  // namespace VrelHost
