#include "GPUImage/Private/GPUTimer.h"

#include "GPUImage/TavrelGPUImageContext.h"
#include "Platform/Graphics/GLDriverLock.h"

namespace tavrel {
namespace {

template <typename Function>
void find(Function& function, const char* name) {
  function = reinterpret_cast<Function>(GLContext::functionNamed(name));
}

}  // namespace

GPUTimer& GPUTimer::shared() {
  static auto* const timer = new GPUTimer;
  return *timer;
}

bool GPUTimer::isAvailable() {
  if (state_ == State::unknown) state_ = prepare() ? State::available : State::missing;
  return state_ == State::available;
}

bool GPUTimer::prepare() {
  if (!TavrelGPUImageContext::deviceSupportsOpenGLESExtension("GL_EXT_disjoint_timer_query")) return false;
  PFNGLGENQUERIESEXTPROC generate = nullptr;
  PFNGLGETQUERYIVEXTPROC getQuery = nullptr;
  find(generate, "glGenQueriesEXT");
  find(getQuery, "glGetQueryivEXT");
  find(beginQuery_, "glBeginQueryEXT");
  find(endQuery_, "glEndQueryEXT");
  find(getQueryObject_, "glGetQueryObjectuivEXT");
  find(getQueryObject64_, "glGetQueryObjectui64vEXT");
  if (!generate || !getQuery || !beginQuery_ || !endQuery_ || !getQueryObject_ || !getQueryObject64_) return false;
  TavrelGPUImageContext::useImageProcessingContext();
  // A driver may list the extension and count no bits.
  GLint bits = 0;
  getQuery(GL_TIME_ELAPSED_EXT, GL_QUERY_COUNTER_BITS_EXT, &bits);
  if (bits == 0) return false;
  for (Query& query : queries_) generate(1, &query.identifier);
  return true;
}

void GPUTimer::begin(TraceName node) {
  end();
  if (!isAvailable()) return;
  if (count_ >= kInFlight) collect(false);
  if (count_ == kQueries) return;
  TavrelGPUImageContext::useImageProcessingContext();
  Query& query = queries_[(first_ + count_) % kQueries];
  query.node = node;
  query.begin = Tracer::now();
  const GLDriverLock lock;
  beginQuery_(GL_TIME_ELAPSED_EXT, query.identifier);
  isRunning_ = true;
}

void GPUTimer::end() {
  if (!isRunning_) return;
  isRunning_ = false;
  ++count_;
  TavrelGPUImageContext::useImageProcessingContext();
  const GLDriverLock lock;
  endQuery_(GL_TIME_ELAPSED_EXT);
  glFlush();  // else the GPU's idle time before the next frame would count
}

bool GPUTimer::takeOldest(bool waits) {
  const GLDriverLock lock;  // asking may flush
  const Query& query = queries_[first_];
  GLuint isReady = waits ? GL_TRUE : GL_FALSE;
  if (!waits) getQueryObject_(query.identifier, GL_QUERY_RESULT_AVAILABLE_EXT, &isReady);
  if (!isReady) return false;
  GLuint64 nanoseconds = 0;
  getQueryObject64_(query.identifier, GL_QUERY_RESULT_EXT, &nanoseconds);
  first_ = (first_ + 1) % kQueries;
  --count_;
  GLint isDisjoint = GL_FALSE;
  glGetIntegerv(GL_GPU_DISJOINT_EXT, &isDisjoint);
  if (isDisjoint) {
    discard();
  } else if (const auto duration = static_cast<std::int64_t>(nanoseconds); duration < Tracer::now() - query.begin) {
    // More than has passed since the submission is no duration: some drivers answer with a point in time now and then.
    Tracer::gpu(query.node, query.begin, duration);
  }
  return true;
}

void GPUTimer::collect(bool waits) {
  if (count_ == 0) return;
  TavrelGPUImageContext::useImageProcessingContext();
  if (waits) glFinish();  // here, since nobody may wait with the driver locked
  const std::size_t leftOver = waits ? 0 : kInFlight / 2;
  while (count_ > leftOver && takeOldest(waits)) {
  }
}

void GPUTimer::discard() {
  end();
  first_ = (first_ + count_) % kQueries;
  count_ = 0;
}

}  // namespace tavrel
