#pragma once

#include <cstdint>

namespace tavrel::test {

/// How often the calling thread has allocated by `new`, in the library as well.
std::uint64_t allocationsOfThisThread();

}  // namespace tavrel::test
