#include <GLES2/gl2.h>
#include <dlfcn.h>

#include <atomic>

#include "WindowTestSupport.h"

namespace {

std::atomic<int> renderbuffersCreated = 0;

}  // namespace

// Takes the place of GL's function for every library of the process.
#pragma GCC visibility push(default)
extern "C" void glGenRenderbuffers(GLsizei count, GLuint* names) {
  using Generator = void (*)(GLsizei, GLuint*);
  static const auto next = reinterpret_cast<Generator>(dlsym(RTLD_NEXT, "glGenRenderbuffers"));
  renderbuffersCreated += count;
  next(count, names);
}
#pragma GCC visibility pop

namespace tavrel::test {

int displayRenderbuffersCreated() { return renderbuffersCreated; }

}  // namespace tavrel::test
