#include "Platform/Graphics/Private/DmaBufImport.h"

#include <array>
#include <utility>

#include "Platform/Foundation/Environment.h"
#include "Platform/Graphics/GLDriverLock.h"
#include "Platform/Graphics/GraphicsDisplay.h"
#include "Platform/Graphics/Private/EGLFunctions.h"
#include "Platform/Graphics/Private/GLStateKeepers.h"
#include "Platform/Graphics/Private/GraphicsFailure.h"
#include "Platform/Graphics/Private/TransferCounters.h"

namespace tavrel {
namespace {

struct PartNames {
  EGLint file, offset, bytesPerRow, modifierLow, modifierHigh;
};
constexpr std::array<PartNames, 3> kPartNames = {
    {{EGL_DMA_BUF_PLANE0_FD_EXT, EGL_DMA_BUF_PLANE0_OFFSET_EXT, EGL_DMA_BUF_PLANE0_PITCH_EXT,
      EGL_DMA_BUF_PLANE0_MODIFIER_LO_EXT, EGL_DMA_BUF_PLANE0_MODIFIER_HI_EXT},
     {EGL_DMA_BUF_PLANE1_FD_EXT, EGL_DMA_BUF_PLANE1_OFFSET_EXT, EGL_DMA_BUF_PLANE1_PITCH_EXT,
      EGL_DMA_BUF_PLANE1_MODIFIER_LO_EXT, EGL_DMA_BUF_PLANE1_MODIFIER_HI_EXT},
     {EGL_DMA_BUF_PLANE2_FD_EXT, EGL_DMA_BUF_PLANE2_OFFSET_EXT, EGL_DMA_BUF_PLANE2_PITCH_EXT,
      EGL_DMA_BUF_PLANE2_MODIFIER_LO_EXT, EGL_DMA_BUF_PLANE2_MODIFIER_HI_EXT}}};

std::vector<EGLint> descriptionOf(const DeviceMemory& memory) {
  std::vector<EGLint> description = {EGL_WIDTH,
                                     static_cast<EGLint>(memory.width),
                                     EGL_HEIGHT,
                                     static_cast<EGLint>(memory.height),
                                     EGL_LINUX_DRM_FOURCC_EXT,
                                     static_cast<EGLint>(memory.format)};
  for (std::size_t i = 0; i < memory.parts.size() && memory.parts[i].fileDescriptor >= 0; ++i) {
    const DeviceMemory::Part& part = memory.parts[i];
    const PartNames& names = kPartNames[i];
    const auto add = [&](EGLint name, std::uint64_t value) {
      description.insert(description.end(), {name, static_cast<EGLint>(value & 0xFFFFFFFF)});
    };
    add(names.file, static_cast<std::uint64_t>(part.fileDescriptor));
    add(names.offset, part.offset);
    add(names.bytesPerRow, part.bytesPerRow);
    if (memory.modifier == DeviceMemory::kImplicit) continue;
    add(names.modifierLow, memory.modifier);
    add(names.modifierHigh, memory.modifier >> 32);
  }
  description.push_back(EGL_NONE);
  return description;
}

}  // namespace

Expected<std::shared_ptr<const DmaBufImage>> DmaBufImage::create(EGLDisplay display, const DeviceMemory& memory) {
  const auto description = descriptionOf(memory);
  EGLImageKHR image =
      EGLFunctions::shared().createImage(display, EGL_NO_CONTEXT, EGL_LINUX_DMA_BUF_EXT, nullptr, description.data());
  if (image != EGL_NO_IMAGE_KHR) return std::shared_ptr<const DmaBufImage>(new DmaBufImage(display, image));
  return graphicsFailure(GraphicsStatus::graphicsCommandFailed,
                         "cannot import a picture of {}x{}, format 0x{:08x}, modifier 0x{:x}: {}", memory.width,
                         memory.height, memory.format, memory.modifier, eglErrorName(eglGetError()));
}

DmaBufImage::~DmaBufImage() { EGLFunctions::shared().destroyImage(display_, image_); }

bool DmaBufImage::show(GLuint texture) const {
  clearGLErrors();
  {
    const GLDriverLock lock;
    BoundTexture bound(texture);
    EGLFunctions::shared().imageTargetTexture(GL_TEXTURE_2D, image_);
  }
  return glGetError() == GL_NO_ERROR;
}

Expected<GLuint> DmaBufImage::createTexture() const {
  GLuint name = 0;
  glGenTextures(1, &name);
  ++TransferCounters::shared().texturesCreated;
  setDefaultTextureParameters(name);
  if (show(name)) return name;
  glDeleteTextures(1, &name);
  ++TransferCounters::shared().texturesDeleted;
  return graphicsFailure(GraphicsStatus::graphicsCommandFailed, "GL makes no texture of an imported picture");
}

/// Memory that the GPU is not to see needs not be such as it can: rows that are padded for it would only be in the way.
bool DmaBufImport::isSwitchedOff() {
  return environmentVariable("TAVREL_ZERO_COPY") == "0" || environmentVariable("TAVREL_FAST_TEXTURE_UPLOAD") == "0";
}

const DmaBufImport* DmaBufImport::shared() {
  if (!GraphicsDisplay::isChosen()) return nullptr;
  static const DmaBufImport* const import = []() -> const DmaBufImport* {
    if (isSwitchedOff()) return nullptr;
    static auto* const candidate = new DmaBufImport();  // like the display, never destroyed
    return candidate->open() ? candidate : nullptr;
  }();
  return import;
}

bool DmaBufImport::open() {
  display_ = GraphicsDisplay::shared().nativeDisplay();
  if (display_ == EGL_NO_DISPLAY) return false;
  const char* extensions = eglQueryString(display_, EGL_EXTENSIONS);
  const EGLFunctions& egl = EGLFunctions::shared();
  if (!containsWord(extensions, "EGL_EXT_image_dma_buf_import") || !egl.hasImages()) return false;
  namesModifiers_ = containsWord(extensions, "EGL_EXT_image_dma_buf_import_modifiers") && egl.queryModifiers;
  auto sharegroup = GLSharegroup::create();
  if (!sharegroup) return false;
  sharegroup_ = std::move(*sharegroup);
  bool hasImages = false;
  sharegroup_->perform([&](NativeContext&) {
    hasImages = containsWord(reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS)), "GL_OES_EGL_image");
  });
  return hasImages;
}

std::vector<std::uint64_t> DmaBufImport::modifiersOf(std::uint32_t format) const {
  if (!namesModifiers_) return {DeviceMemory::kImplicit};
  constexpr EGLint kMost = 256;
  std::array<EGLuint64KHR, kMost> all{};
  std::array<EGLBoolean, kMost> isExternalOnly{};
  EGLint count = 0;
  if (!EGLFunctions::shared().queryModifiers(display_, static_cast<EGLint>(format), kMost, all.data(),
                                             isExternalOnly.data(), &count)) {
    return {};
  }
  std::vector<std::uint64_t> modifiers;
  for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
    if (!isExternalOnly.at(i)) modifiers.push_back(all.at(i));
  }
  return modifiers;
}

Expected<std::shared_ptr<const DmaBufImage>> DmaBufImport::import(const DeviceMemory& memory) const {
  DeviceMemory named = memory;
  if (!namesModifiers_) named.modifier = DeviceMemory::kImplicit;
  return DmaBufImage::create(display_, named);
}

bool DmaBufImport::read(const DmaBufImage& image, const PixelLayout& layout, std::uint8_t* bytes) const {
  bool isRead = false;
  sharegroup_->perform([&](NativeContext& context) {
    const auto name = image.createTexture();
    if (!name) return;
    GLTexture texture(sharegroup_, *name,
                      {.width = static_cast<GLsizei>(layout.width),
                       .height = static_cast<GLsizei>(layout.height),
                       .isImported = true});
    isRead = downloadPixels(texture, context.scratchFramebuffer(), {bytes, layout.planes[0].bytesPerRow, 4});
  });
  return isRead;
}

}  // namespace tavrel
