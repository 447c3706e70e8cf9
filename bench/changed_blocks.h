#pragma once

#include <string>

namespace bench {

// Writes into the file `to`, which has the bytes of `before`, what `now` has in other blocks than
// `before` does, by nothing but the extent maps of the two, which are on disk and of one size.
// Throws std::runtime_error.
void CopyChangedBlocks(const std::string& before, const std::string& now, const std::string& to);

}  // namespace bench
