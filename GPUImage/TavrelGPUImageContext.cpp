#include "GPUImage/TavrelGPUImageContext.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <sstream>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "GPUImage/Private/ContextLending.h"
#include "GPUImage/TavrelGLProgram.h"
#include "GPUImage/TavrelGPUImageFramebufferCache.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Foundation/ProcessEnd.h"
#include "Platform/Tracing/Tracer.h"

namespace tavrel {
namespace {

std::atomic<const void*> openGLESContextQueueKey = nullptr;

DispatchQueueAttribute contextQueueAttribute() {
  DispatchQueueAttribute attribute = TavrelGPUImageDefaultQueueAttribute();
  attribute.usesDriver = true;
  return attribute;
}

struct Device {
  GLint maximumTextureSize = 0;
  GLint maximumTextureUnits = 0;
  GLint maximumVaryingVectors = 0;
  std::vector<std::string> extensions;
  std::optional<TavrelGPUTextureOptions> deepTextureOptions;

  bool has(std::string_view extension) const {
    return std::find(extensions.begin(), extensions.end(), extension) != extensions.end();
  }
};

std::optional<TavrelGPUTextureOptions> deepTextureOptionsOf(const Device& device) {
  // A context that was asked for as ES 2.0 is one of a later version where the driver has that.
  const auto* const text = reinterpret_cast<const char*>(glGetString(GL_VERSION));
  const std::string_view version = text ? text : "";
  if (!version.starts_with("OpenGL ES 3")) return std::nullopt;
  if (device.has("GL_EXT_texture_norm16") && !version.starts_with("OpenGL ES 3.0"))
    return TavrelGPUTextureOptions{.internalFormat = GL_RGBA16_EXT, .format = GL_RGBA, .type = GL_UNSIGNED_SHORT};
  if (device.has("GL_EXT_color_buffer_half_float") || device.has("GL_EXT_color_buffer_float"))
    return TavrelGPUTextureOptions{.internalFormat = GL_RGBA16F_EXT, .format = GL_RGBA, .type = GL_FLOAT};
  return std::nullopt;
}

Device readDevice() {
  Device device;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    TavrelGPUImageContext::useImageProcessingContext();
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &device.maximumTextureSize);
    glGetIntegerv(GL_MAX_TEXTURE_IMAGE_UNITS, &device.maximumTextureUnits);
    glGetIntegerv(GL_MAX_VARYING_VECTORS, &device.maximumVaryingVectors);
    const GLubyte* const list = glGetString(GL_EXTENSIONS);
    std::istringstream names(list ? reinterpret_cast<const char*>(list) : "");
    for (std::string name; std::getline(names, name, ' ');) device.extensions.push_back(std::move(name));
    device.deepTextureOptions = deepTextureOptionsOf(device);
  });
  return device;
}

/// Read once for the process. Not behind the guard of a static: the video-processing queue must not wait there for a
/// thread that waits for it.
const Device& device() {
  static std::atomic<const Device*> known = nullptr;
  if (!known) {
    auto read = std::make_unique<const Device>(readDevice());
    const Device* none = nullptr;
    if (known.compare_exchange_strong(none, read.get())) static_cast<void>(read.release());
  }
  return *known;
}

[[noreturn]] void stopWithoutContext(const Error& reason) {
  ConsoleLog::write("{}", reason.description);
  fatalAssertion(
      "Unable to create an OpenGL ES 2.0 context. The TavrelGPUImage framework requires OpenGL ES 2.0 support to "
      "work.");
}

}  // namespace

struct TavrelGPUImageContext::Implementation {
  const std::shared_ptr<DispatchQueue> contextQueue =
      DispatchQueue::create("org.tavrel.TavrelGPUImage.openGLESContextQueue", contextQueueAttribute());
  ContextLending lending{contextQueue};
  std::shared_ptr<TavrelGLProgram> currentShaderProgram;
  std::vector<std::string> shaderProgramUsageHistory;
  std::unordered_map<std::string, std::shared_ptr<TavrelGLProgram>> shaderProgramCache;

  std::mutex creationMutex;  // of what is made on first request
  std::atomic<bool> hasContext = false;
  std::shared_ptr<GLSharegroup> sharegroup;
  std::shared_ptr<GLContext> context;
  std::shared_ptr<TextureCache> coreVideoTextureCache;
  std::shared_ptr<TavrelGPUImageFramebufferCache> framebufferCache;
};

TavrelGPUImageContext::TavrelGPUImageContext() : implementation_(std::make_unique<Implementation>()) {
  openGLESContextQueueKey = contextKey();
  contextQueue()->setSpecific(contextKey(), this);
}

TavrelGPUImageContext::~TavrelGPUImageContext() {
  Implementation& self = *implementation_;
  if (ProcessEnd::isOnEndingThread()) {
    // The driver is gone, through which all this would be deleted.
    static_cast<void>(implementation_.release());
    return;
  }
  self.framebufferCache.reset();
  const auto releaseObjects = [&] {
    if (self.context) useAsCurrentContext();  // programs and textures are deleted through it
    self.currentShaderProgram.reset();
    self.shaderProgramCache.clear();
    self.coreVideoTextureCache.reset();
    if (GLContext::current() == self.context.get()) GLContext::clearCurrent();
    self.context.reset();
  };
  if (contextQueue()->isCurrent()) {
    releaseObjects();
  } else {
    contextQueue()->sync(releaseObjects);
  }
  contextQueue()->setSpecific(contextKey(), nullptr);
}

const void* TavrelGPUImageContext::contextKey() { return &openGLESContextQueueKey; }

const std::shared_ptr<TavrelGPUImageContext>& TavrelGPUImageContext::sharedImageProcessingContext() {
  // Never destroyed: nodes that are destroyed late still ask for it.
  static const auto* shared = [] {
    auto* created = new std::shared_ptr<TavrelGPUImageContext>(std::make_shared<TavrelGPUImageContext>());
    (*created)->contextQueue()->async([] { Tracer::nameThread("video-processing queue"); });
    DispatchQueue::global()->async([] { purgeFrameBufferCache(); });
    return created;
  }();
  return *shared;
}

const std::shared_ptr<DispatchQueue>& TavrelGPUImageContext::sharedContextQueue() {
  return sharedImageProcessingContext()->contextQueue();
}

const std::shared_ptr<TavrelGPUImageFramebufferCache>& TavrelGPUImageContext::sharedFramebufferCache() {
  return sharedImageProcessingContext()->framebufferCache();
}

void TavrelGPUImageContext::useImageProcessingContext() { sharedImageProcessingContext()->useAsCurrentContext(); }

void TavrelGPUImageContext::setActiveShaderProgram(const std::shared_ptr<TavrelGLProgram>& program) {
  sharedImageProcessingContext()->setContextShaderProgram(program);
}

GLint TavrelGPUImageContext::maximumTextureSizeForThisDevice() { return device().maximumTextureSize; }

GLint TavrelGPUImageContext::maximumTextureUnitsForThisDevice() { return device().maximumTextureUnits; }

GLint TavrelGPUImageContext::maximumVaryingVectorsForThisDevice() { return device().maximumVaryingVectors; }

bool TavrelGPUImageContext::deviceSupportsOpenGLESExtension(std::string_view extension) {
  return device().has(extension);
}

namespace {

std::atomic<TavrelGPUImageScaling> usedScaling = TavrelGPUImageScaling{};
std::atomic<bool> usedDepth = false;

}  // namespace

TavrelGPUImageScaling TavrelGPUImageContext::scaling() { return usedScaling; }
void TavrelGPUImageContext::setScaling(TavrelGPUImageScaling newValue) { usedScaling = newValue; }
bool TavrelGPUImageContext::worksDeep() { return usedDepth; }
void TavrelGPUImageContext::setWorksDeep(bool newValue) { usedDepth = newValue; }

std::optional<TavrelGPUTextureOptions> TavrelGPUImageContext::deepTextureOptions() {
  return device().deepTextureOptions;
}

bool TavrelGPUImageContext::deviceSupportsRedTextures() { return deviceSupportsOpenGLESExtension("GL_EXT_texture_rg"); }

bool TavrelGPUImageContext::deviceSupportsFramebufferReads() {
  return deviceSupportsOpenGLESExtension("GL_EXT_shader_framebuffer_fetch");
}

Size TavrelGPUImageContext::sizeThatFitsWithinATextureForSize(Size size) {
  return sizeThatFitsWithin(maximumTextureSizeForThisDevice(), size);
}

Size TavrelGPUImageContext::sizeThatFitsWithin(double maximum, Size size) {
  if (size.width < maximum && size.height < maximum) return size;
  if (size.width > size.height) return {maximum, (maximum / size.width) * size.height};
  return {(maximum / size.height) * size.width, maximum};
}

bool TavrelGPUImageContext::supportsFastTextureUpload() { return TextureCache::isSupported(); }

void TavrelGPUImageContext::purgeFrameBufferCache() {
  sharedFramebufferCache()->purgeAllUnassignedFramebuffers();
  DispatchQueue::main()->asyncAfter(std::chrono::seconds(1), [] { purgeFrameBufferCache(); });
}

void TavrelGPUImageContext::useAsCurrentContext() {
  GLContext* const own = context().get();
  if (GLContext::current() == own) return;
  if (!implementation_->lending.take(*own)) {
    fatalAssertion("The GL context is current on another thread. Run GL work on the context's queue.");
  }
}

void TavrelGPUImageContext::setContextShaderProgram(const std::shared_ptr<TavrelGLProgram>& program) {
  useAsCurrentContext();
  if (implementation_->currentShaderProgram == program) return;
  implementation_->currentShaderProgram = program;
  if (program) program->use();
}

const std::shared_ptr<TavrelGLProgram>& TavrelGPUImageContext::currentShaderProgram() const {
  return implementation_->currentShaderProgram;
}

void TavrelGPUImageContext::setCurrentShaderProgram(std::shared_ptr<TavrelGLProgram> program) {
  implementation_->currentShaderProgram = std::move(program);
}

const std::shared_ptr<DispatchQueue>& TavrelGPUImageContext::contextQueue() const {
  return implementation_->contextQueue;
}

bool TavrelGPUImageContext::hasContext() const { return implementation_->hasContext; }

void TavrelGPUImageContext::presentBufferForDisplay() { context()->presentRenderbuffer(); }

std::shared_ptr<TavrelGLProgram> TavrelGPUImageContext::programForVertexShaderString(
    std::string_view vertexShaderString, std::string_view fragmentShaderString) {
  std::shared_ptr<TavrelGLProgram>& program =
      implementation_->shaderProgramCache[fmt::format("V: {} - F: {}", vertexShaderString, fragmentShaderString)];
  if (!program) program = std::make_shared<TavrelGLProgram>(vertexShaderString, fragmentShaderString);
  return program;
}

void TavrelGPUImageContext::useSharegroup(std::shared_ptr<GLSharegroup> sharegroup) {
  const std::lock_guard lock(implementation_->creationMutex);
  if (implementation_->context) {
    fatalAssertion(
        "Unable to use a share group when the context has already been created. Call this method before you use the "
        "context for the first time.");
  }
  implementation_->sharegroup = std::move(sharegroup);
}

const std::shared_ptr<GLContext>& TavrelGPUImageContext::context() {
  if (const auto prepared = prepareContext(); !prepared) stopWithoutContext(prepared.error());
  return implementation_->context;
}

Expected<void> TavrelGPUImageContext::prepareContext() {
  Expected<void> result;
  // On the queue, where the new context is to be current.
  if (!implementation_->hasContext) TavrelRunSynchronouslyOnContextQueue(*this, [&] { result = makeContext(); });
  return result;
}

Expected<void> TavrelGPUImageContext::makeContext() {
  {
    const std::lock_guard lock(implementation_->creationMutex);
    if (implementation_->context) return {};
    auto created = GLContext::create(implementation_->sharegroup);
    if (!created) return tl::unexpected(created.error());
    implementation_->context = std::move(*created);
    implementation_->hasContext = true;
  }
  useAsCurrentContext();
  glDisable(GL_DEPTH_TEST);
  return {};
}

const std::shared_ptr<TextureCache>& TavrelGPUImageContext::coreVideoTextureCache() {
  const std::shared_ptr<GLContext>& cacheContext = context();
  const std::lock_guard lock(implementation_->creationMutex);
  if (!implementation_->coreVideoTextureCache) {
    auto created =
        TextureCache::create(cacheContext, [weakSelf = weak_from_this()](const std::function<void()>& block) {
          const auto self = weakSelf.lock();
          if (!self) return;
          TavrelRunSynchronouslyOnContextQueue(*self, [&] {
            self->useAsCurrentContext();
            block();
          });
        });
    if (!created) fatalAssertion("Error at CVOpenGLESTextureCacheCreate {}", created.error().code);
    implementation_->coreVideoTextureCache = *created;
  }
  return implementation_->coreVideoTextureCache;
}

const std::shared_ptr<TavrelGPUImageFramebufferCache>& TavrelGPUImageContext::framebufferCache() {
  const std::lock_guard lock(implementation_->creationMutex);
  if (!implementation_->framebufferCache)
    implementation_->framebufferCache = std::make_shared<TavrelGPUImageFramebufferCache>();
  return implementation_->framebufferCache;
}

}  // namespace tavrel
