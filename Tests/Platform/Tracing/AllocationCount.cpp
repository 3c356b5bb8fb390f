// The process's operators `new` and `delete`, which count. In a file of their own, where no compiler sees both ends.
#include "AllocationCount.h"

#include <cstdlib>
#include <new>

#include "Support/Sanitizers.h"

namespace {

thread_local std::uint64_t allocations = 0;

}  // namespace

#if TAVREL_SANITIZES_THREADS

#include <sanitizer/allocator_interface.h>

// The sanitizer's own operators cannot be replaced; it tells of what they allocate.
[[maybe_unused]] static const int kIsTold = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) { ++allocations; }, [](const volatile void*) {});

#else

void* operator new(std::size_t size) {
  ++allocations;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

#endif

std::uint64_t tavrel::test::allocationsOfThisThread() { return allocations; }
