#pragma once

#include <cstddef>

// Where tests reach into what is shipped. Nobody defines these but a library of the tests, which is
// loaded before the program: without it they are null, and the points that call them do nothing.
// What is shipped asks nothing else whether it shall end or fail.
extern "C" {

// The process has come to a step; may not return. Neither text ends with a zero.
__attribute__((weak, visibility("default"))) void VreldrTestKillPoint(const char* step,
                                                                      std::size_t stepLength);
// Whether a step of a call shall fail for the target.
__attribute__((weak, visibility("default"))) bool VreldrTestFailPoint(const char* step,
                                                                      std::size_t stepLength,
                                                                      const char* target,
                                                                      std::size_t targetLength);
}
