#include "Platform/Graphics/GLDriverLock.h"

#include <GLES2/gl2.h>

#include <atomic>
#include <mutex>
#include <string_view>

namespace tavrel {
namespace {

enum class Driver { unknown, needsLock, isThreadSafe };

constinit std::atomic<Driver> driver = Driver::unknown;

/// Never destroyed: contexts go until the very end of the process.
std::recursive_mutex& mutex() {
  static auto* const instance = new std::recursive_mutex();
  return *instance;
}

}  // namespace

GLDriverLock::GLDriverLock() : isHeld_(isNeeded()) {
  if (isHeld_) mutex().lock();
}

GLDriverLock::~GLDriverLock() {
  if (isHeld_) mutex().unlock();
}

bool GLDriverLock::isNeeded() { return driver.load(std::memory_order_relaxed) != Driver::isThreadSafe; }

void GLDriverLock::examineDriver() {
  if (driver.load(std::memory_order_relaxed) != Driver::unknown) return;
  const auto* const name = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
  if (!name) return;
  const bool isSoftware = std::string_view(name).find("llvmpipe") != std::string_view::npos;
  driver = isSoftware ? Driver::needsLock : Driver::isThreadSafe;
}

}  // namespace tavrel
