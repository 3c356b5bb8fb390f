#pragma once

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

/// What `Function` named `name` would have been without the preloaded library that asks.
template <typename Function>
Function* nextFunction(const char* name) {
  auto* const found = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
  if (found != nullptr) return found;
  std::fprintf(stderr, "preloaded driver: there is no %s behind it\n", name);
  std::abort();
}

/// The function of this name in the libraries behind the preloaded one.
#define NEXT(name)                                                     \
  ([] {                                                                \
    static auto* const function = nextFunction<decltype(name)>(#name); \
    return function;                                                   \
  }())
