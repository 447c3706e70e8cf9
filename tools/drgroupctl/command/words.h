#pragma once

#include <string>
#include <vector>

namespace drgroupctl {

// Splits a command line into its words: blanks part them, single and double quotes keep them
// together, and a backslash outside single quotes takes the character behind it as it is. Nothing
// else is special, as no shell runs it. Throws a usage failure that names `what` when
// a quote is not closed, a backslash is the last character or there are no words.
std::vector<std::string> SplitWords(const std::string& text, const std::string& what);

// A command line of which SplitWords makes these words again.
std::string JoinWords(const std::vector<std::string>& words);

}  // namespace drgroupctl
