#include "GPUImage/Sources/Private/PicturePlanes.h"

#include <GLES2/gl2ext.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <string>
#include <utility>

#include "GPUImage/Private/FramebufferContents.h"
#include "GPUImage/Private/PendingDrawing.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebufferCache.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/Environment.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Graphics/GLDriverLock.h"
#include "Platform/Graphics/PixelBufferAttachments.h"

namespace tavrel {
namespace {

/// What red and blue have of luma.
struct Matrix {
  std::string_view name;
  double red, blue;
};
constexpr Matrix kMatrices[] = {{kYCbCrMatrixITU_R_601_4, 0.299, 0.114},
                                {kYCbCrMatrixITU_R_470_BG, 0.299, 0.114},
                                {kYCbCrMatrixITU_R_709_2, 0.2126, 0.0722},
                                {kYCbCrMatrixITU_R_2020, 0.2627, 0.0593}};

const Matrix& matrixOf(const PixelBuffer& picture) {
  const auto name = picture.attachment(kPixelBufferYCbCrMatrixKey);
  const auto* const known = std::find_if(std::begin(kMatrices), std::end(kMatrices),
                                         [&name](const Matrix& each) { return name == each.name; });
  return known == std::end(kMatrices) ? kMatrices[0] : *known;
}

/// The inverse of the signals' definition in ITU-R BT.709, in 8 bits.
std::string shaderOf(const Matrix& matrix, bool isFullRange, const char* chromaChannels) {
  const double green = 1 - matrix.red - matrix.blue;
  const double black = isFullRange ? 0 : 16.0 / 255;
  const double luma = isFullRange ? 1 : 255.0 / 219;
  const double chroma = isFullRange ? 2 : 2 * 255.0 / 224;
  const double red = (1 - matrix.red) * chroma;
  const double blue = (1 - matrix.blue) * chroma;
  return fmt::format(
      "varying highp vec2 textureCoordinate; varying highp vec2 textureCoordinate2; uniform sampler2D "
      "inputImageTexture; uniform sampler2D inputImageTexture2; void main() {{ highp float luma = (texture2D("
      "inputImageTexture, textureCoordinate).r - {:.9f}) * {:.9f}; highp vec2 chroma = texture2D(inputImageTexture2, "
      "textureCoordinate2).{} - {:.9f}; gl_FragColor = vec4(luma + {:.9f} * chroma.y, luma - {:.9f} * chroma.x - "
      "{:.9f} * chroma.y, luma + {:.9f} * chroma.x, 1.0); }}",
      black, luma, chromaChannels, 128.0 / 255, red, matrix.blue / green * blue, matrix.red / green * red, blue);
}

/// Memory of a device has channels of colours, which is all that it can be told to have.
bool isInPlace(const PixelBuffer& picture) { return picture.sharesMemory(); }

const std::shared_ptr<const ShaderStage>& stageFor(const PixelBuffer& picture) {
  using OfEachRange = std::array<std::shared_ptr<const ShaderStage>, 2>;
  using OfEachMatrix = std::array<OfEachRange, std::size(kMatrices)>;
  static auto* const made = new std::array<OfEachMatrix, 2>;
  const Matrix& matrix = matrixOf(picture);
  const bool isFullRange = picture.pixelFormat() == PixelFormat::biPlanar420FullRange;
  auto& ofMatrices = made->at(isInPlace(picture) ? 1 : 0);
  auto& stage = ofMatrices.at(static_cast<std::size_t>(&matrix - std::begin(kMatrices))).at(isFullRange ? 1 : 0);
  if (!stage) stage = ShaderStage::of(shaderOf(matrix, isFullRange, isInPlace(picture) ? "rg" : "ra"));
  return stage;
}

TavrelGPUImageFramebufferLease planeOf(const std::shared_ptr<PixelBuffer>& picture, std::size_t index, GLenum format) {
  const PixelPlane& plane = picture->layout().planes[index];
  const auto texture =
      TavrelGPUImageContext::sharedImageProcessingContext()->coreVideoTextureCache()->createTextureFromPixelBuffer(
          picture, static_cast<GLint>(format), static_cast<GLsizei>(plane.width), static_cast<GLsizei>(plane.height),
          format, GL_UNSIGNED_BYTE, index);
  if (!texture) {
    ConsoleLog::write("The planes of a picture cannot go up: {}", texture.error().description);
    fatalAssertion("Camera failure");
  }
  return TavrelGPUImageFramebufferLease(std::make_shared<TavrelGPUImageFramebuffer>(*texture, index));
}

}  // namespace

bool PicturePlanes::areShownSooner() {
  if (!TavrelGPUImageContext::supportsFastTextureUpload()) return false;
  const auto wish = environmentVariable("TAVREL_MOVIE_PLANES");
  // The driver that needs the lock is the one that draws with the processor.
  return wish ? *wish != "0" : !GLDriverLock::isNeeded();
}

std::shared_ptr<TavrelGPUImageFramebuffer> PicturePlanes::framebufferOf(const std::shared_ptr<PixelBuffer>& picture) {
  auto luma = planeOf(picture, 0, isInPlace(*picture) ? GL_RED_EXT : GL_LUMINANCE);
  auto chroma = planeOf(picture, 1, isInPlace(*picture) ? GL_RG_EXT : GL_LUMINANCE_ALPHA);
  const Size size = luma.get()->size();
  const Size half = chroma.get()->size();
  auto framebuffer =
      TavrelGPUImageContext::sharedFramebufferCache()->fetchFramebufferForSize(size, TavrelGPUTextureOptions{}, false);
  PendingDrawing drawing(std::move(luma));
  // Of an odd width, half of the last pair is none of the picture's.
  drawing.add({.shader = stageFor(*picture),
               .uniforms = nullptr,
               .locations = nullptr,
               .second = std::move(chroma),
               .secondPlace = {size.width / (2 * half.width), 0, 0, size.height / (2 * half.height), 0, 0}});
  FramebufferContents::defer(*framebuffer, std::move(drawing));
  return framebuffer;
}

}  // namespace tavrel
