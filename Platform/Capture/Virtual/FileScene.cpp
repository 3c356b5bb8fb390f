#include "Platform/Capture/Virtual/FileScene.h"

#include <fmt/format.h>

#include <system_error>
#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Virtual/Private/PixelBufferCanvas.h"
#include "Platform/Capture/Virtual/Private/SceneMovie.h"
#include "Platform/Capture/Virtual/Private/VirtualOptics.h"
#include "Platform/Imaging/BitmapContext.h"
#include "Platform/Imaging/ImageSource.h"

namespace tavrel {
namespace {

/// Upright and opaque.
Expected<BgraPicture> pictureOf(const Image& image) {
  BgraPicture picture;
  picture.resize(static_cast<int>(image.width()), static_cast<int>(image.height()));
  // Transparent parts lie on black.
  const BgraCanvas canvas = picture.canvas();
  fillRect(canvas, {0, 0, canvas.width, canvas.height}, kBlack);
  const auto context = BitmapContext::create(canvas.bytes, image.width(), image.height(), 8, canvas.bytesPerRow,
                                             kBitmapPremultipliedBGRA);
  if (!context) return failure(CaptureErrorCode::badScene, "the picture cannot be drawn");
  context->drawImage(image, {{0, 0}, {static_cast<double>(canvas.width), static_cast<double>(canvas.height)}});
  return picture;
}

}  // namespace

struct FileScene::Implementation {
  std::unique_ptr<SceneMovie> movie;  // nullptr for a picture
  BgraPicture picture;
  VirtualOptics optics;
  bool isNew = true;
};

Expected<std::shared_ptr<FileScene>> FileScene::create(const std::filesystem::path& path) {
  std::error_code error;
  if (!std::filesystem::exists(path, error)) {
    return failure(CaptureErrorCode::noSuchFile, fmt::format("there is no file {} to be a scene", path.string()));
  }
  auto implementation = std::make_unique<Implementation>();
  // Movies first, so that an animated picture moves; the movie reader refuses still pictures.
  if (auto asset = Asset::create(path)) {
    auto movie = SceneMovie::open(std::move(*asset));
    if (!movie) return failure(CaptureErrorCode::badScene, movie.error().description);
    implementation->movie = std::move(*movie);
  } else {
    auto picture = ImageSource::createWithFile(path)
                       .and_then([](const auto& source) { return source->imageAtIndex(0); })
                       .and_then([](const auto& image) { return pictureOf(*normalizedImage(image)); });
    if (!picture) {
      return failure(CaptureErrorCode::badScene,
                     fmt::format("{} can be no scene: neither a movie ({}) nor a picture ({})", path.string(),
                                 asset.error().description, picture.error().description));
    }
    implementation->picture = std::move(*picture);
  }
  return std::shared_ptr<FileScene>(new FileScene(std::move(implementation)));
}

FileScene::FileScene(std::unique_ptr<Implementation> implementation) : implementation_(std::move(implementation)) {}

FileScene::~FileScene() = default;

Expected<void> FileScene::render(PixelBuffer& buffer, const VirtualFrame& frame) {
  Implementation& scene = *implementation_;
  if (scene.movie) {
    const auto changed = scene.movie->seek(frame.sceneTime);
    if (!changed) return tl::unexpected(changed.error());
    scene.isNew = scene.isNew || *changed;
  }
  const PixelBufferCanvas locked(buffer);
  const BgraCanvas canvas = locked.canvas();
  const BgraCanvas source = scene.movie ? scene.movie->picture() : scene.picture.canvas();
  copyPicture(scene.optics.see(source, std::exchange(scene.isNew, false), canvas.width, canvas.height, frame), canvas);
  return {};
}

}  // namespace tavrel
