#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "world.h"

namespace two_sides {

struct Found {
  std::uint64_t states = 0;  // that can be reached, each of them looked at once
  std::uint64_t transitions = 0;
  std::uint64_t settled = 0;       // different durable states from which the nodes were let settle
  std::uint64_t diverged = 0;      // of these: the sides stand apart, and say so
  std::uint64_t held = 0;          // of these: a side is held
  std::set<std::string> ends;      // "switchover done": what drivers came to, on whatever node
  bool is_whole = false;           // there are no more
  std::string broken;              // the invariant that does not hold
  std::vector<std::string> trace;  // the shortest way there
};

// Goes through everything that can happen from the world, the shortest ways first, until an
// invariant does not hold or nothing new is left. Gives up after `most` states.
Found Explore(const World& begin, Mutation mutation, std::uint64_t most);

}  // namespace two_sides
