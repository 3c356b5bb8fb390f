#include "Platform/Graphics/LentPixelBuffer.h"

#include <utility>

#include "Platform/Graphics/Private/GraphicsFailure.h"
#include "Platform/Graphics/Private/LentBacking.h"

namespace tavrel {

std::vector<std::uint64_t> LentPixelBuffer::modifiersOf(std::uint32_t format) {
  const DmaBufImport* const import = DmaBufImport::shared();
  return import != nullptr ? import->modifiersOf(format) : std::vector<std::uint64_t>();
}

std::unique_ptr<PixelBuffer> LentPixelBuffer::makeBuffer(std::unique_ptr<LentBacking> backing, LentBacking*& observed) {
  observed = backing.get();
  return PixelBuffer::make(std::move(backing));
}

Expected<std::shared_ptr<LentPixelBuffer>> LentPixelBuffer::create(Picture picture) {
  const DmaBufImport* const import = DmaBufImport::shared();
  if (import == nullptr) {
    return graphicsFailure(GraphicsStatus::graphicsCommandFailed, "the display imports no memory of devices");
  }
  const DeviceMemory& first = picture.planes[0];
  const auto layout = PixelLayout::create(first.width, first.height, PixelFormat::bgra32);
  const auto planarLayout = PixelLayout::create(first.width, first.height, picture.planarFormat);
  if (!layout || !planarLayout) return tl::unexpected<Error>(layout ? planarLayout.error() : layout.error());
  LentBacking::Images images;
  for (std::size_t i = 0; i < images.size() && picture.planes.at(i).format != 0; ++i) {
    auto image = import->import(picture.planes.at(i));
    if (!image) return tl::unexpected<Error>(image.error());
    images.at(i) = std::move(*image);
  }
  LentBacking::Reader reader = std::move(picture.read);
  if (!reader) {
    reader = [import, image = images[0]](const PixelLayout& wanted, std::uint8_t* bytes) {
      return wanted.planeCount == 1 && import->read(*image, wanted, bytes);
    };
  }
  std::shared_ptr<LentPixelBuffer> made(new LentPixelBuffer());
  made->planes_ = picture.planes;
  if (!picture.hasPlanes()) {
    made->buffer_ =
        makeBuffer(std::make_unique<LentBacking>(*layout, std::move(images), std::move(reader)), made->backings_[0]);
    return made;
  }
  made->buffer_ = makeBuffer(std::make_unique<LentBacking>(*layout, LentBacking::Images(), reader), made->backings_[0]);
  made->buffer_->setPlanes(makeBuffer(
      std::make_unique<LentBacking>(*planarLayout, std::move(images), std::move(reader)), made->backings_[1]));
  return made;
}

LentPixelBuffer::~LentPixelBuffer() = default;

std::shared_ptr<PixelBuffer> LentPixelBuffer::lend() {
  buffer_->prepareForReuse();
  buffer_->exclusively([this] { backings_[0]->showNext(); });
  if (backings_[1] != nullptr) buffer_->planes()->exclusively([this] { backings_[1]->showNext(); });
  isHeld_ = true;
  return {buffer_.get(), [self = shared_from_this()](PixelBuffer*) { self->isHeld_ = false; }};
}

bool LentPixelBuffer::isOut() const {
  if (isHeld_) return true;
  bool isRead = true;
  buffer_->exclusively([&] { isRead = backings_[0]->isRead(); });
  if (backings_[1] != nullptr) buffer_->planes()->exclusively([&] { isRead = backings_[1]->isRead() && isRead; });
  return !isRead;
}

void LentPixelBuffer::end() {
  buffer_->exclusively([this] { backings_[0]->end(); });
  if (backings_[1] != nullptr) buffer_->planes()->exclusively([this] { backings_[1]->end(); });
}

}  // namespace tavrel
