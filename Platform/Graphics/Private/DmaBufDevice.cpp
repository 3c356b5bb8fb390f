#include "Platform/Graphics/Private/DmaBufDevice.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <vector>

#include "Platform/Graphics/GraphicsDisplay.h"
#include "Platform/Graphics/Private/DmaBufImport.h"
#include "Platform/Graphics/Private/EGLFunctions.h"
#include "Platform/Graphics/Private/GLSharegroup.h"
#include "Platform/Graphics/Private/GLStateKeepers.h"
#include "Platform/Graphics/Private/GraphicsDevice.h"
#include "Platform/Graphics/Private/TransferCounters.h"

namespace tavrel {
namespace {

// Odd, so that padded rows are part of the test.
constexpr std::size_t kTestWidth = 37;
constexpr std::size_t kTestHeight = 5;

using Pixel = std::array<std::uint8_t, 4>;

/// A colour of its own for each pixel, without 0 and 255, which forgotten memory tends to hold.
Pixel testColour(std::size_t x, std::size_t y) {
  return {static_cast<std::uint8_t>(20 + x * 5), static_cast<std::uint8_t>(30 + y * 40),
          static_cast<std::uint8_t>(100 + x + y), static_cast<std::uint8_t>(200 - x)};
}

template <typename Function>
void forEachTestPixel(Function function) {
  for (std::size_t y = 0; y < kTestHeight; ++y) {
    for (std::size_t x = 0; x < kTestWidth; ++x) function(x, y);
  }
}

std::uint8_t* pixelOf(DmaBuf& buffer, std::size_t x, std::size_t y) {
  return buffer.bytes() + y * buffer.bytesPerRow() + x * 4;
}

}  // namespace

const DmaBufDevice* DmaBufDevice::shared() {
  if (!GraphicsDisplay::isChosen()) return nullptr;
  static const DmaBufDevice* const device = []() -> const DmaBufDevice* {
    static DmaBufDevice candidate;
    return !DmaBufImport::isSwitchedOff() && candidate.open() && candidate.passesSelfTest() ? &candidate : nullptr;
  }();
  return device;
}

bool DmaBufDevice::open() {
  display_ = GraphicsDisplay::shared().nativeDisplay();
  if (display_ == EGL_NO_DISPLAY) return false;
  const char* extensions = eglQueryString(display_, EGL_EXTENSIONS);
  if (!containsWord(extensions, "EGL_EXT_image_dma_buf_import")) return false;
  const std::string node = GraphicsDevice::ofDisplay(display_).node;
  if (node.empty()) return false;
  if (!EGLFunctions::shared().hasImages()) return false;

  const int file = ::open(node.c_str(), O_RDWR | O_CLOEXEC);
  if (file < 0) return false;
  device_ = gbm_create_device(file);
  if (device_ == nullptr) close(file);
  return device_ != nullptr;
}

std::unique_ptr<DmaBuf> DmaBufDevice::createBuffer(std::size_t width, std::size_t height) const {
  return DmaBuf::create(device_, width, height);
}

Expected<GLuint> DmaBufDevice::createTexture(const DmaBuf& buffer) const {
  DeviceMemory memory = {.format = GBM_FORMAT_ARGB8888,
                         .width = static_cast<std::uint32_t>(buffer.width()),
                         .height = static_cast<std::uint32_t>(buffer.height())};
  memory.parts[0] = {buffer.fileDescriptor(), 0, static_cast<std::uint32_t>(buffer.bytesPerRow())};
  const auto image = DmaBufImage::create(display_, memory);
  if (!image) return tl::unexpected<Error>(image.error());
  return (*image)->createTexture();  // the texture keeps the memory
}

bool DmaBufDevice::passesSelfTest() const {
  auto sharegroup = GLSharegroup::create();
  auto buffer = createBuffer(kTestWidth, kTestHeight);
  if (!sharegroup || buffer == nullptr) return false;
  bool passed = false;
  (*sharegroup)->perform([&](NativeContext& context) {
    const auto* extensions = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
    if (!containsWord(extensions, "GL_OES_EGL_image")) return;
    auto texture = createTexture(*buffer);
    if (!texture) return;
    {
      const GLuint framebuffer = context.scratchFramebuffer();
      BoundFramebuffer bound(framebuffer, *texture);
      passed = glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE && showsWhatTheCPUWrites(*buffer) &&
               showsWhatTheGPUDraws(*buffer);
    }
    glDeleteTextures(1, &*texture);
    ++TransferCounters::shared().texturesDeleted;
  });
  return passed && isReadFast();
}

bool DmaBufDevice::showsWhatTheCPUWrites(DmaBuf& buffer) {
  buffer.beginAccess(PixelBufferLock::readWrite);
  forEachTestPixel([&](std::size_t x, std::size_t y) {
    const Pixel bgra = testColour(x, y);
    std::memcpy(pixelOf(buffer, x, y), bgra.data(), bgra.size());
  });
  buffer.endAccess();

  std::vector<Pixel> rgba(kTestWidth * kTestHeight);
  glReadPixels(0, 0, kTestWidth, kTestHeight, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
  bool same = true;
  forEachTestPixel([&](std::size_t x, std::size_t y) {
    const Pixel bgra = testColour(x, y);
    same = same && rgba[y * kTestWidth + x] == Pixel{bgra[2], bgra[1], bgra[0], bgra[3]};
  });
  return same;
}

bool DmaBufDevice::showsWhatTheGPUDraws(DmaBuf& buffer) {
  const auto drawn = [](std::size_t x, std::size_t y) { return testColour(kTestWidth - 1 - x, kTestHeight - 1 - y); };
  glEnable(GL_SCISSOR_TEST);
  forEachTestPixel([&](std::size_t x, std::size_t y) {
    const Pixel bgra = drawn(x, y);
    const auto channel = [&](std::size_t index) { return static_cast<float>(bgra[index]) / 255.0F; };
    glScissor(static_cast<GLint>(x), static_cast<GLint>(y), 1, 1);
    glClearColor(channel(2), channel(1), channel(0), channel(3));
    glClear(GL_COLOR_BUFFER_BIT);
  });
  glDisable(GL_SCISSOR_TEST);
  glFinish();

  buffer.beginAccess(PixelBufferLock::readOnly);
  bool same = true;
  forEachTestPixel([&](std::size_t x, std::size_t y) {
    const Pixel bgra = drawn(x, y);
    same = same && std::memcmp(pixelOf(buffer, x, y), bgra.data(), bgra.size()) == 0;
  });
  buffer.endAccess();
  return same;
}

bool DmaBufDevice::isReadFast() const {
  // Write-combined video memory reads at a tenth of this; ordinary memory at ten times.
  constexpr double kBytesPerSecond = 1e9;
  // A busy machine may interrupt some of the reads. The first one maps the pages.
  constexpr int kReads = 20;
  auto buffer = createBuffer(1024, 512);
  if (buffer == nullptr) return false;
  std::vector<std::uint8_t> copy(buffer->byteCount());
  buffer->beginAccess(PixelBufferLock::readOnly);
  std::chrono::duration<double> shortest = std::chrono::hours(1);
  for (int i = 0; i < kReads; ++i) {
    const auto start = std::chrono::steady_clock::now();
    std::memcpy(copy.data(), buffer->bytes(), copy.size());
    shortest = std::min<std::chrono::duration<double>>(shortest, std::chrono::steady_clock::now() - start);
  }
  buffer->endAccess();
  return shortest.count() * kBytesPerSecond < static_cast<double>(copy.size());
}

}  // namespace tavrel
