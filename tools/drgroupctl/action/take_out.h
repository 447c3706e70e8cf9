#pragma once

#include <string>

namespace drgroupctl {

// Copies what is at `path` below the directory `top`, a file or a directory with all in it, to
// `dest`, which is whole and on disk afterwards or not there at all. No symbolic link is followed
// on the way to it, and neither the copy nor the way leaves the file system of `top`. Mode, owner,
// times, links, holes, access lists and extended attributes come along as far as the file system of
// `dest` and the rights of this process allow; blocks are shared where they can be. What is at
// `dest` already is a refusal, and gives way in one step with `isForced`. Throws with nothing
// changed.
void TakeOut(const std::string& top, const std::string& path, const std::string& dest,
             bool isForced);

}  // namespace drgroupctl
