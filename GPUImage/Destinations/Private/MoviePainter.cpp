#include "GPUImage/Destinations/Private/MoviePainter.h"

#include <GLES2/gl2ext.h>

#include <cstring>
#include <string>
#include <vector>

#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "GPUImage/Private/FramebufferContents.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Foundation/ProcessEnd.h"
#include "Platform/Graphics/PixelBufferPool.h"
#include "Platform/Tracing/Tracer.h"

namespace tavrel {
namespace {

/// Adds Bayer's pattern of 8×8 pixels, so that areas keep their mean.
std::string ditheringShader() {
  return std::string(
             "#ifdef GL_FRAGMENT_PRECISION_HIGH\nprecision highp float;\n#else\nprecision mediump float;\n#endif\n"
             "varying vec2 textureCoordinate; uniform sampler2D inputImageTexture; float two(vec2 place) { place = "
             "floor(place); return fract(place.x / 2.0 + place.y * place.y * 0.75); } float four(vec2 place) { return "
             "two(place / 2.0) / 4.0 + two(place); } void main() { vec2 place = mod(floor(gl_FragCoord.xy), 8.0); "
             "float step = four(place / 2.0) / 4.0 + two(place) + 1.0 / 128.0 - 0.5; gl_FragColor = (texture2D("
             "inputImageTexture, textureCoordinate) + step / 255.0)") +
         (TavrelGPUImageContext::supportsFastTextureUpload() ? "; }" : ".bgra; }");
}

}  // namespace

MoviePainter::MoviePainter(Size videoSize)
    : videoSize_(videoSize), movieWriterContext_(std::make_shared<TavrelGPUImageContext>()) {}

MoviePainter::~MoviePainter() {
  // Without the program there was no context; when the process ends, there is none any more.
  if (colorSwizzlingProgram_ && !ProcessEnd::isOnEndingThread()) destroyDataFBO();
}

Expected<void> MoviePainter::prepare() {
  movieWriterContext_->useSharegroup(TavrelGPUImageContext::sharedImageProcessingContext()->context()->sharegroup());
  if (auto prepared = movieWriterContext_->prepareContext(); !prepared) return prepared;

  movieWriterContext_->contextQueue()->async([] { Tracer::nameThread("writer queue"); });
  TavrelRunSynchronouslyOnContextQueue(*movieWriterContext_, [this] {
    // A pixel buffer is drawn into directly; what is read back as RGBA is drawn with red and blue exchanged.
    colorSwizzlingProgram_ = QuadProgram(*movieWriterContext_, kTavrelGPUImageVertexShaderString,
                                         TavrelGPUImageContext::supportsFastTextureUpload()
                                             ? kTavrelGPUImagePassthroughFragmentShaderString
                                             : kTavrelGPUImageColorSwizzlingFragmentShaderString);
  });
  return {};
}

// Straight to the writer's own queue: the functions of the context would run the block inline on the video-processing
// queue, and the graph would wait for each frame to be encoded.
void MoviePainter::runOnWriterQueue(const std::function<void()>& block) const {
  const std::shared_ptr<DispatchQueue>& queue = movieWriterContext_->contextQueue();
  if (queue->isCurrent()) return block();
  queue->sync(block);
}

TavrelGPUImageFramebufferLease MoviePainter::scaled(TavrelGPUImageFramebufferLease frame) {
  const GLfloat* const corners = TavrelGPUImageFilter::textureCoordinatesForRotation(inputRotation_);
  const InputScaling::Scaled* const made = scaling_.scale(frame, corners, videoSize_);
  if (!made) return frame;
  TavrelGPUImageFramebufferLease result(made->framebuffer.get());
  scaling_.letGo();
  return result;
}

std::shared_ptr<PixelBuffer> MoviePainter::readyPixelBuffer(const TavrelGPUImageFramebuffer& framebuffer) const {
  const bool isAsWanted = framebuffer.size() == videoSize_ && inputRotation_ == kTavrelGPUImageNoRotation;
  if (!isAsWanted) return nullptr;
  // A movie's own picture needs not even be read back.
  if (auto picture = FramebufferContents::finalPicture(framebuffer)) return picture;
  if (!framebuffer.renderTarget()) return nullptr;
  // Where pixel buffers can be read in place, drawing into one is cheaper than reading back.
  if (TextureCache::sharesMemory() && !framebuffer.renderTarget()->sharesMemory()) return nullptr;
  // Its bytes are read on this thread, by this context.
  movieWriterContext_->useAsCurrentContext();
  return framebuffer.renderTarget();
}

bool MoviePainter::renderAtInternalSizeUsingFramebuffer(const TavrelGPUImageFramebuffer& framebuffer,
                                                        PixelBufferPool& pool) {
  movieWriterContext_->useAsCurrentContext();
  if (!setFilterFBO(pool)) return false;
  if (renderTarget_) renderTarget_->noteGPUWrite();
  const QuadTexture texture(&framebuffer);
  if (texture.isDeep && !ditheringProgram_) {
    ditheringProgram_ = QuadProgram(*movieWriterContext_, kTavrelGPUImageVertexShaderString, ditheringShader());
  }
  const QuadProgram& program = texture.isDeep ? ditheringProgram_ : colorSwizzlingProgram_;
  program.use();
  glClearColor(1.0F, 0.0F, 0.0F, 1.0F);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
  program.setTexture(0, texture, 4, TavrelGPUImageFilter::textureCoordinatesForRotation(inputRotation_));
  program.draw(TavrelGPUImageFilter::fullFrameVertices());
  glFinish();
  return true;
}

std::shared_ptr<PixelBuffer> MoviePainter::drawnPixelBuffer(PixelBufferPool& pool) const {
  if (renderTarget_) return renderTarget_;
  auto created = pool.createPixelBuffer();
  if (!created) return nullptr;
  PixelBuffer& pixelBuffer = **created;
  const std::size_t rowBytes = pixelBuffer.width() * 4;
  const bool isPadded = pixelBuffer.bytesPerRow() != rowBytes;
  std::vector<std::uint8_t> tight(isPadded ? rowBytes * pixelBuffer.height() : 0);
  pixelBuffer.lockBaseAddress(PixelBufferLock::readWrite);
  std::uint8_t* const bytes = pixelBuffer.baseAddress();
  glReadPixels(0, 0, width(), height(), GL_RGBA, GL_UNSIGNED_BYTE, isPadded ? tight.data() : bytes);
  for (std::size_t row = 0; row * rowBytes < tight.size(); ++row) {
    std::memcpy(bytes + row * pixelBuffer.bytesPerRow(), &tight[row * rowBytes], rowBytes);
  }
  pixelBuffer.unlockBaseAddress(PixelBufferLock::readWrite);
  return *created;
}

bool MoviePainter::setFilterFBO(PixelBufferPool& pool) {
  if (!movieFramebuffer_ && !createDataFBO(pool)) return false;
  glBindFramebuffer(GL_FRAMEBUFFER, movieFramebuffer_);
  glViewport(0, 0, width(), height());
  return true;
}

bool MoviePainter::createDataFBO(PixelBufferPool& pool) {
  glActiveTexture(GL_TEXTURE1);
  glGenFramebuffers(1, &movieFramebuffer_);
  glBindFramebuffer(GL_FRAMEBUFFER, movieFramebuffer_);
  if (!TavrelGPUImageContext::supportsFastTextureUpload()) {
    attachRenderbuffer();
  } else if (!attachRenderTarget(pool)) {
    glDeleteFramebuffers(1, &movieFramebuffer_);
    movieFramebuffer_ = 0;
    return false;
  }
  const GLenum status = glCheckFramebufferStatus(GL_FRAMEBUFFER);
  if (status != GL_FRAMEBUFFER_COMPLETE) fatalAssertion("Incomplete filter FBO: {}", status);
  return true;
}

bool MoviePainter::attachRenderTarget(PixelBufferPool& pool) {
  const auto target = pool.createPixelBuffer();
  if (!target) return false;
  for (const auto& [key, value] : {std::pair(kPixelBufferColorPrimariesKey, kColorPrimariesITU_R_709_2),
                                   std::pair(kPixelBufferYCbCrMatrixKey, kYCbCrMatrixITU_R_601_4),
                                   std::pair(kPixelBufferTransferFunctionKey, kTransferFunctionITU_R_709_2)}) {
    (*target)->setAttachment(std::string(key), std::string(value), true);
  }
  const auto texture = movieWriterContext_->coreVideoTextureCache()->createTextureFromPixelBuffer(*target);
  if (!texture) return false;
  renderTarget_ = *target;
  renderTexture_ = *texture;
  glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, renderTexture_->name(), 0);
  return true;
}

void MoviePainter::attachRenderbuffer() {
  glGenRenderbuffers(1, &movieRenderbuffer_);
  glBindRenderbuffer(GL_RENDERBUFFER, movieRenderbuffer_);
  glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8_OES, width(), height());
  glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, movieRenderbuffer_);
}

void MoviePainter::destroyDataFBO() {
  runOnWriterQueue([this] {
    movieWriterContext_->useAsCurrentContext();
    if (movieFramebuffer_) glDeleteFramebuffers(1, &movieFramebuffer_);
    if (movieRenderbuffer_) glDeleteRenderbuffers(1, &movieRenderbuffer_);
    movieFramebuffer_ = 0;
    movieRenderbuffer_ = 0;
    renderTexture_.reset();
    renderTarget_.reset();
  });
}

}  // namespace tavrel
