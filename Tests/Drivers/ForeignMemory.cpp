#include "ForeignMemory.h"

#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
#include <gbm.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <thread>
#include <utility>

#include "NextFunction.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kReading = 30ms;
constexpr std::uint64_t kNoModifier = 0x00FFFFFFFFFFFFFF;

/// Where red, green and blue are in a pixel of four bytes.
struct Places {
  EGLint format;
  std::array<std::size_t, 3> of;
};
constexpr Places kPlaces[] = {{GBM_FORMAT_XRGB8888, {2, 1, 0}},
                              {GBM_FORMAT_XBGR8888, {0, 1, 2}},
                              {GBM_FORMAT_BGRX8888, {1, 2, 3}},
                              {GBM_FORMAT_RGBX8888, {3, 2, 1}}};

const Places* placesOf(std::uint32_t format) {
  for (const Places& places : kPlaces) {
    if (static_cast<std::uint32_t>(places.format) == format) return &places;
  }
  return nullptr;
}

template <typename Function>
Function real(const char* name) {
  return reinterpret_cast<Function>(NEXT(eglGetProcAddress)(name));
}

struct Sync {
  EGLSyncKHR real;
  Clock::time_point due;
  Readings readings;
};

}  // namespace

std::vector<std::uint64_t> ForeignMemory::modifiersOf(EGLint format) {
  if (placesOf(static_cast<std::uint32_t>(format))) return {0, kUpsideDown, kExternalOnly};
  if (format == GBM_FORMAT_R8 || format == GBM_FORMAT_GR88) return {0};
  return {};
}

std::shared_ptr<ForeignMemory> ForeignMemory::create(const std::map<EGLint, EGLint>& description) {
  const auto valueOf = [&](EGLint name) {
    const auto found = description.find(name);
    return found != description.end() ? static_cast<std::uint32_t>(found->second) : 0;
  };
  const char* const wish = std::getenv("TAVREL_TEST_IMPORT");
  if (wish && std::string_view(wish) == "refuse") return nullptr;
  std::shared_ptr<ForeignMemory> made(new ForeignMemory());
  made->format_ = valueOf(EGL_LINUX_DRM_FOURCC_EXT);
  made->width_ = valueOf(EGL_WIDTH);
  made->height_ = valueOf(EGL_HEIGHT);
  made->offset_ = valueOf(EGL_DMA_BUF_PLANE0_OFFSET_EXT);
  made->bytesPerRow_ = valueOf(EGL_DMA_BUF_PLANE0_PITCH_EXT);
  const bool isNamed = description.contains(EGL_DMA_BUF_PLANE0_MODIFIER_LO_EXT);
  const std::uint64_t modifier =
      std::uint64_t{valueOf(EGL_DMA_BUF_PLANE0_MODIFIER_HI_EXT)} << 32 | valueOf(EGL_DMA_BUF_PLANE0_MODIFIER_LO_EXT);
  made->isUpsideDown_ = isNamed && modifier == kUpsideDown;
  const bool isLinear = !isNamed || modifier == 0 || modifier == kNoModifier;
  if (modifiersOf(static_cast<EGLint>(made->format_)).empty() || (!isLinear && !made->isUpsideDown_)) return nullptr;

  const auto file = static_cast<int>(valueOf(EGL_DMA_BUF_PLANE0_FD_EXT));
  const off_t length = lseek(file, 0, SEEK_END);
  const std::size_t row = made->width_ * made->pixelBytes();
  const std::size_t end = made->offset_ + std::size_t{made->bytesPerRow_} * (made->height_ - 1) + row;
  if (made->height_ == 0 || made->bytesPerRow_ < row || length < 0 || static_cast<std::size_t>(length) < end) {
    return nullptr;
  }
  made->length_ = static_cast<std::size_t>(length);
  void* const address = mmap(nullptr, made->length_, PROT_READ, MAP_SHARED, file, 0);
  if (address == MAP_FAILED) return nullptr;
  made->bytes_ = static_cast<const std::uint8_t*>(address);
  return made;
}

ForeignMemory::~ForeignMemory() {
  if (bytes_) munmap(const_cast<std::uint8_t*>(bytes_), length_);
}

std::size_t ForeignMemory::pixelBytes() const {
  return placesOf(format_) ? 4 : format_ == static_cast<std::uint32_t>(GBM_FORMAT_GR88) ? 2 : 1;
}

const std::uint8_t* ForeignMemory::row(std::uint32_t y) const {
  return bytes_ + offset_ + std::size_t{bytesPerRow_} * (isUpsideDown_ ? height_ - 1 - y : y);
}

void ForeignMemory::upload() const {
  const std::size_t bytes = pixelBytes();
  std::vector<std::uint8_t> pixels;
  for (std::uint32_t y = 0; y < height_; ++y) pixels.insert(pixels.end(), row(y), row(y) + width_ * bytes);
  if (const Places* const places = placesOf(format_)) {
    for (std::size_t i = 0; i < pixels.size(); i += 4) {
      std::array<std::uint8_t, 4> pixel{};
      std::memcpy(pixel.data(), &pixels[i], 4);
      for (std::size_t channel = 0; channel < 3; ++channel) pixels[i + channel] = pixel.at(places->of.at(channel));
      pixels[i + 3] = 255;
    }
  }
  const GLenum format = bytes == 4 ? GL_RGBA : bytes == 2 ? GL_RG_EXT : GL_RED_EXT;
  GLint alignment = 0;
  NEXT(glGetIntegerv)(GL_UNPACK_ALIGNMENT, &alignment);
  NEXT(glPixelStorei)(GL_UNPACK_ALIGNMENT, 1);
  NEXT(glTexImage2D)
  (GL_TEXTURE_2D, 0, static_cast<GLint>(format), static_cast<GLsizei>(width_), static_cast<GLsizei>(height_), 0, format,
   GL_UNSIGNED_BYTE, pixels.data());
  NEXT(glPixelStorei)(GL_UNPACK_ALIGNMENT, alignment);
}

std::uint64_t ForeignMemory::checksum() const {
  std::uint64_t sum = 14695981039346656037U;
  for (std::uint32_t y = 0; y < height_; ++y) {
    for (std::size_t x = 0; x < width_ * pixelBytes(); ++x) sum = (sum ^ row(y)[x]) * 1099511628211U;
  }
  return sum;
}

void expectUnchanged(const Readings& readings) {
  for (const auto& [memory, sum] : readings) {
    if (memory->checksum() == sum) continue;
    std::fprintf(stderr, "A picture in another device's memory was written while the GPU was still to read it\n");
    std::abort();
  }
}

EGLSyncKHR createSync(EGLDisplay display, EGLenum type, const EGLint* attributes) {
  static const auto next = real<PFNEGLCREATESYNCKHRPROC>("eglCreateSyncKHR");
  Readings readings = takeReadings();
  const auto due = Clock::now() + (readings.empty() ? 0ms : kReading);
  return new Sync{next(display, type, attributes), due, std::move(readings)};
}

EGLBoolean destroySync(EGLDisplay display, EGLSyncKHR sync) {
  static const auto next = real<PFNEGLDESTROYSYNCKHRPROC>("eglDestroySyncKHR");
  const std::unique_ptr<Sync> ours(static_cast<Sync*>(sync));
  return ours->real != EGL_NO_SYNC_KHR ? next(display, ours->real) : EGL_TRUE;
}

EGLint clientWaitSync(EGLDisplay display, EGLSyncKHR sync, EGLint flags, EGLTimeKHR timeout) {
  static const auto next = real<PFNEGLCLIENTWAITSYNCKHRPROC>("eglClientWaitSyncKHR");
  auto& ours = *static_cast<Sync*>(sync);
  if (timeout > 0) std::this_thread::sleep_until(ours.due);
  if (Clock::now() < ours.due) return EGL_TIMEOUT_EXPIRED_KHR;
  expectUnchanged(std::exchange(ours.readings, {}));
  return ours.real != EGL_NO_SYNC_KHR ? next(display, ours.real, flags, timeout) : EGL_CONDITION_SATISFIED_KHR;
}

EGLint waitSync(EGLDisplay display, EGLSyncKHR sync, EGLint flags) {
  static const auto next = real<PFNEGLWAITSYNCKHRPROC>("eglWaitSyncKHR");
  const auto& ours = *static_cast<Sync*>(sync);
  return ours.real != EGL_NO_SYNC_KHR ? next(display, ours.real, flags) : EGL_TRUE;
}
