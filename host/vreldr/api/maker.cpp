#include <sys/mman.h>
#include <sys/random.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <new>

#include "vreldr/snapshot.h"

namespace VrelDR::Operation {

namespace {

using Cell = std::atomic<std::uint64_t>;

// A cell that is zero again in every process that is forked off. Null when the system refuses it.
Cell* MakeCell() {
  void* page =
      mmap(nullptr, sizeof(Cell), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) return nullptr;
  if (madvise(page, sizeof(Cell), MADV_WIPEONFORK) != 0) {
    munmap(page, sizeof(Cell));
    return nullptr;
  }
  return new (page) Cell(0);
}

}  // namespace

std::string ThisMaker() {
  static Cell* const cell = MakeCell();
  if (cell == nullptr) return {};
  std::uint64_t number = *cell;
  if (number == 0) {
    std::uint64_t fresh = 0;
    if (getrandom(&fresh, sizeof fresh, 0) != sizeof fresh || fresh == 0) return {};
    // Another thread may have been first; its number then stands in `number`.
    if (cell->compare_exchange_strong(number, fresh)) number = fresh;
  }
  std::array<char, 17> text{};
  std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(number));
  return text.data();
}

}  // namespace VrelDR::Operation
