#pragma once

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace unit {

// The function that this program's own one of the same name stands before.
template <class Function>
Function* Real(const char* symbol) {
  void* const address = dlsym(RTLD_NEXT, symbol);
  if (address == nullptr) {
    std::fprintf(stderr, "no library has %s: the test program must be adapted\n", symbol);
    std::abort();
  }
  return reinterpret_cast<Function*>(address);
}

}  // namespace unit
