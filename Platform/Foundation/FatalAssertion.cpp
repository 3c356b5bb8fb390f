#include "Platform/Foundation/FatalAssertion.h"

#include <cstdio>
#include <cstdlib>

namespace tavrel {

void fatalAssertion(std::string_view text) {
  std::fprintf(stderr, "*** Assertion failure: %.*s\n", static_cast<int>(text.size()), text.data());
  std::fflush(stderr);
  std::abort();
}

}  // namespace tavrel
