#pragma once

#include <map>
#include <string>

// Trees of files for tests: making one of everything, and saying what is in one.
namespace host_test {

// What can be told of each entry below `root`, and of `root` itself as ".": kind, mode, owner,
// size, bytes, time of change, extended attributes, what a link points at, which names are one
// file. Two trees are the same when these maps are equal. Times of access and sizes of directories
// are left out: looking changes the one, and the file system chooses the other.
std::map<std::string, std::string> DescribeTree(const std::string& root);

// Fills `root` with one of everything that a file system can hold, as far as this process may make
// it: plain, empty, large and sparse files, links of both kinds, pipes, device nodes, odd names,
// modes, owners, times, extended attributes and access lists.
void MakeSampleTree(const std::string& root);

void WriteFile(const std::string& path, const std::string& bytes);
std::string ReadFile(const std::string& path);

// How many bytes the file takes up on disk.
std::uint64_t AllocatedBytes(const std::string& path);

}  // namespace host_test
