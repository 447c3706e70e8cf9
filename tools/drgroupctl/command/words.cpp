#include "command/words.h"

#include <string_view>

#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

constexpr char kBlanks[] = " \t\r\n";

bool IsBlank(char c) {
  return std::string_view(kBlanks).find(c) != std::string_view::npos;
}

// Takes one word from `at` on. False when it is not closed.
bool TakeWord(const std::string& text, std::size_t& at, std::string& word) {
  char quote = '\0';
  for (; at < text.size() && (quote != '\0' || !IsBlank(text[at])); ++at) {
    const char c = text[at];
    if (c == quote) {
      quote = '\0';
    } else if (quote == '\0' && (c == '\'' || c == '"')) {
      quote = c;
    } else if (c == '\\' && quote != '\'') {
      if (++at == text.size()) return false;
      word += text[at];
    } else {
      word += c;
    }
  }
  return quote == '\0';
}

Failure BadCommand(const std::string& what, const std::string& text, const std::string& problem) {
  return {ExitCode::kUsage, what + " " + Quote(text) + " " + problem};
}

}  // namespace

std::vector<std::string> SplitWords(const std::string& text, const std::string& what) {
  std::vector<std::string> words;
  for (std::size_t at = 0; at < text.size();) {
    if (IsBlank(text[at])) {
      ++at;
    } else if (!TakeWord(text, at, words.emplace_back())) {
      throw BadCommand(what, text, "ends within quotes or behind a backslash: close it");
    }
  }
  if (words.empty()) throw BadCommand(what, text, "has no words: name a program");
  return words;
}

std::string JoinWords(const std::vector<std::string>& words) {
  std::vector<std::string> quoted;
  for (const std::string& word : words) {
    std::string text;
    for (const char c : word) {
      if (c == '\\' || c == '"') text += '\\';
      text += c;
    }
    const bool isPlain = !word.empty() && word.find_first_of(" \t\r\n'\"\\") == std::string::npos;
    quoted.push_back(isPlain ? word : '"' + text + '"');
  }
  return Join(quoted, " ");
}

}  // namespace drgroupctl
