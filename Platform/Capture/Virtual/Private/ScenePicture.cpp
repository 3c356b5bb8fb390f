#include "Platform/Capture/Virtual/Private/ScenePicture.h"

#include "Platform/Capture/CaptureError.h"
#include "Platform/Imaging/BitmapContext.h"
#include "Platform/Imaging/ImageSource.h"

namespace tavrel {

Expected<BgraPicture> loadScenePicture(const std::filesystem::path& path) {
  const auto source = ImageSource::createWithFile(path);
  if (!source) return tl::unexpected(source.error());
  const auto stored = (*source)->imageAtIndex(0);
  if (!stored) return tl::unexpected(stored.error());
  const auto image = normalizedImage(*stored);

  // Transparent parts lie on black.
  BgraPicture picture;
  picture.resize(static_cast<int>(image->width()), static_cast<int>(image->height()));
  const BgraCanvas canvas = picture.canvas();
  fillRect(canvas, {0, 0, canvas.width, canvas.height}, kBlack);
  const auto context = BitmapContext::create(canvas.bytes, image->width(), image->height(), 8, canvas.bytesPerRow,
                                             kBitmapPremultipliedBGRA);
  if (!context) return failure(CaptureErrorCode::badScene, "the picture cannot be drawn");
  context->drawImage(*image, {{0, 0}, {static_cast<double>(canvas.width), static_cast<double>(canvas.height)}});
  return picture;
}

}  // namespace tavrel
