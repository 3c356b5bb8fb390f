#pragma once

#include <EGL/egl.h>
#include <EGL/eglext.h>

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

/// A picture in a file of another device's, as a camera's, which somebody writes without the driver's knowledge.
/// TAVREL_TEST_IMPORT=refuse in the environment refuses them.
///
/// The driver plays a GPU that takes its time: a picture that was drawn is read until the mark behind the drawing is
/// reached, some while after it was set. Bytes that change meanwhile end the process.
class ForeignMemory {
 public:
  /// Rows from the bottom up, as a device of some maker might lay them.
  static constexpr std::uint64_t kUpsideDown = 0x7F00000000000003;
  /// What textures of GL_TEXTURE_2D cannot show.
  static constexpr std::uint64_t kExternalOnly = 0x7F00000000000002;

  /// From the description of an image; nullptr for what no device has.
  static std::shared_ptr<ForeignMemory> create(const std::map<EGLint, EGLint>& description);
  static std::vector<std::uint64_t> modifiersOf(EGLint format);
  ForeignMemory(const ForeignMemory&) = delete;
  ForeignMemory& operator=(const ForeignMemory&) = delete;
  ~ForeignMemory();

  /// Gives the bound texture the picture that is in the memory now.
  void upload() const;
  std::uint64_t checksum() const;

 private:
  ForeignMemory() = default;
  const std::uint8_t* row(std::uint32_t y) const;
  std::size_t pixelBytes() const;

  std::uint32_t format_ = 0;
  std::uint32_t width_ = 0;
  std::uint32_t height_ = 0;
  std::uint32_t offset_ = 0;
  std::uint32_t bytesPerRow_ = 0;
  bool isUpsideDown_ = false;
  const std::uint8_t* bytes_ = nullptr;
  std::size_t length_ = 0;
};

/// Pictures that are being read, with their sums.
using Readings = std::map<std::shared_ptr<ForeignMemory>, std::uint64_t>;
/// Ends the process when one has changed.
void expectUnchanged(const Readings& readings);

/// Marks in the stream of commands, behind what is being read: the functions of EGL_KHR_fence_sync.
EGLSyncKHR createSync(EGLDisplay display, EGLenum type, const EGLint* attributes);
EGLBoolean destroySync(EGLDisplay display, EGLSyncKHR sync);
EGLint clientWaitSync(EGLDisplay display, EGLSyncKHR sync, EGLint flags, EGLTimeKHR timeout);
EGLint waitSync(EGLDisplay display, EGLSyncKHR sync, EGLint flags);
/// What the current context was told to read; the driver's.
Readings takeReadings();
