#include "Support/ResourceCount.h"

#include <GLES2/gl2.h>
#include <dlfcn.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

namespace {

constexpr std::size_t kLarge = std::size_t{64} * 1024;
std::atomic<std::uint64_t> glObjects = 0;
std::atomic<std::uint64_t> largeBuffers = 0;

void countBuffer(std::size_t size) {
  if (size >= kLarge) largeBuffers.fetch_add(1, std::memory_order_relaxed);
}

/// The function of this name that would have been called without ours.
template <typename Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

using Generator = void (*)(GLsizei, GLuint*);

}  // namespace

namespace tavrel::benchmarks {

ResourceCount ResourceCount::now() { return {::glObjects, ::largeBuffers}; }

}  // namespace tavrel::benchmarks

// These take the place of the C library's and of GL's functions of the same names, for every library of the process.
#pragma GCC visibility push(default)
extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): these are the names that the C library gives its own.
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
// NOLINTEND(bugprone-reserved-identifier)

void* malloc(std::size_t size) {
  countBuffer(size);
  return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
  countBuffer(count * size);
  return __libc_calloc(count, size);
}
void* realloc(void* memory, std::size_t size) {
  countBuffer(size);
  return __libc_realloc(memory, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
  countBuffer(size);
  return __libc_memalign(alignment, size);
}
int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  countBuffer(size);
  *memory = __libc_memalign(alignment, size);
  return *memory ? 0 : ENOMEM;
}

#define TAVREL_COUNT_GENERATED(name)                        \
  void name(GLsizei count, GLuint* objects) {               \
    static const auto generate = next<Generator>(#name);    \
    glObjects.fetch_add(static_cast<std::uint64_t>(count)); \
    generate(count, objects);                               \
  }
TAVREL_COUNT_GENERATED(glGenTextures)
TAVREL_COUNT_GENERATED(glGenFramebuffers)
TAVREL_COUNT_GENERATED(glGenRenderbuffers)
TAVREL_COUNT_GENERATED(glGenBuffers)
#undef TAVREL_COUNT_GENERATED

GLuint glCreateProgram() {
  static const auto create = next<GLuint (*)()>("glCreateProgram");
  glObjects.fetch_add(1);
  return create();
}
GLuint glCreateShader(GLenum type) {
  static const auto create = next<GLuint (*)(GLenum)>("glCreateShader");
  glObjects.fetch_add(1);
  return create(type);
}

}  // extern "C"
#pragma GCC visibility pop
