#include "Platform/Capture/PipeWire/Private/PipeWirePictures.h"

#include <libyuv/planar_functions.h>
#include <spa/param/buffers.h>
#include <spa/param/param.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/PipeWire/Private/DmaBufReading.h"
#include "Platform/Capture/Private/FrameShape.h"

namespace tavrel {
namespace {

constexpr int kBufferCount = 8;

const spa_pod* metadataOf(spa_pod_builder& builder, spa_meta_type type, std::size_t size) {
  return static_cast<const spa_pod*>(
      spa_pod_builder_add_object(&builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
                                 SPA_POD_Id(type), SPA_PARAM_META_size, SPA_POD_Int(static_cast<int>(size))));
}

struct Turning {
  int degrees = 0;  ///< clockwise
  bool isMirrored = false;
};

/// Undoes what was done to the buffer: it was mirrored, then turned counter-clockwise.
Turning turningOf(const spa_buffer& buffer) {
  const auto* transform = static_cast<const spa_meta_videotransform*>(
      spa_buffer_find_meta_data(&buffer, SPA_META_VideoTransform, sizeof(spa_meta_videotransform)));
  if (!transform || transform->transform > SPA_META_TRANSFORMATION_Flipped270) return {};
  return {static_cast<int>(transform->transform % 4 * 90), transform->transform >= SPA_META_TRANSFORMATION_Flipped};
}

/// The part of the picture that counts; the whole without metadata, or with such as name no part.
spa_region partOf(const spa_buffer& buffer, int width, int height) {
  const spa_region whole = {{0, 0}, {static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)}};
  const auto* crop = static_cast<const spa_meta_region*>(
      spa_buffer_find_meta_data(&buffer, SPA_META_VideoCrop, sizeof(spa_meta_region)));
  if (!crop || !spa_meta_region_is_valid(crop)) return whole;
  const spa_region& part = crop->region;
  const bool isInside = part.position.x >= 0 && part.position.y >= 0 &&
                        std::cmp_less_equal(part.position.x + std::int64_t{part.size.width}, width) &&
                        std::cmp_less_equal(part.position.y + std::int64_t{part.size.height}, height);
  return isInside ? part : whole;
}

}  // namespace

PipeWirePictures::Mapping::~Mapping() {
  for (const Block& block : blocks) {
    if (block.address) munmap(block.address, block.length);
  }
}

void PipeWirePictures::add(const pw_buffer& buffer) {
  auto mapping = std::make_unique<Mapping>();
  for (std::uint32_t i = 0; i < std::min(buffer.buffer->n_datas, std::uint32_t{3}); ++i) {
    const spa_data& data = buffer.buffer->datas[i];
    if (data.data || (data.type != SPA_DATA_DmaBuf && data.type != SPA_DATA_MemFd)) continue;
    // Drivers need not say how long a dma-buf is.
    const off_t end = lseek(static_cast<int>(data.fd), 0, SEEK_END);
    const std::size_t length = end > 0 ? static_cast<std::size_t>(end) : std::size_t{data.mapoffset} + data.maxsize;
    void* address = mmap(nullptr, length, PROT_READ, MAP_SHARED, static_cast<int>(data.fd), 0);
    if (address != MAP_FAILED) mapping->blocks.at(i) = {address, length};  // NOLINT(performance-no-int-to-ptr)
  }
  mappings_[&buffer] = std::move(mapping);
  loans_.add(buffer);
}

void PipeWirePictures::remove(const pw_buffer& buffer) {
  loans_.remove(buffer);
  mappings_.erase(&buffer);
}

void PipeWirePictures::end() {
  while (!mappings_.empty()) remove(*mappings_.begin()->first);
}

Expected<void> PipeWirePictures::begin(const PipeWireAgreement& agreed) {
  frame_ = agreed.frame;
  modifier_ = agreed.modifier;
  loans_.begin(agreed);
  converter_.forget();
  auto pool = PixelBufferPool::create(static_cast<std::size_t>(frame_.width), static_cast<std::size_t>(frame_.height),
                                      PixelFormat::bgra32);
  if (!pool) return tl::unexpected(pool.error());
  pool_ = std::move(*pool);
  return {};
}

std::vector<const spa_pod*> PipeWirePictures::parameters(spa_pod_builder& builder) const {
  constexpr int kDmaBuf = 1 << SPA_DATA_DmaBuf;
  constexpr int kAny = (1 << SPA_DATA_MemPtr) | (1 << SPA_DATA_MemFd) | kDmaBuf;
  return {static_cast<const spa_pod*>(spa_pod_builder_add_object(
              &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
              SPA_POD_CHOICE_RANGE_Int(kBufferCount, 2, 16), SPA_PARAM_BUFFERS_dataType,
              SPA_POD_CHOICE_FLAGS_Int(modifier_ ? kDmaBuf : kAny))),
          metadataOf(builder, SPA_META_Header, sizeof(spa_meta_header)),
          metadataOf(builder, SPA_META_VideoCrop, sizeof(spa_meta_region)),
          metadataOf(builder, SPA_META_VideoTransform, sizeof(spa_meta_videotransform))};
}

RawFrame::Plane PipeWirePictures::planeOf(const pw_buffer& buffer, std::uint32_t number) const {
  const spa_data& data = buffer.buffer->datas[number];
  const auto found = mappings_.find(&buffer);
  const Mapping* mapping = found != mappings_.end() ? found->second.get() : nullptr;
  RawFrame::Plane plane = pipeWirePlane(data);
  const bool isMappedHere = !data.data && data.chunk && mapping && number < std::uint32_t{3};
  if (isMappedHere && mapping->blocks.at(number).address) {
    const auto& [address, length] = mapping->blocks.at(number);
    const std::size_t offset = std::min<std::size_t>(std::size_t{data.mapoffset} + data.chunk->offset, length);
    plane = {static_cast<const std::uint8_t*>(address) + offset,
             std::min<std::size_t>(data.chunk->size, length - offset),
             static_cast<std::size_t>(std::abs(std::int64_t{data.chunk->stride}))};
    // Of device memory many say no size, or just that there is something.
    const bool isEncoded = frame_.layout == FrameLayout::mjpeg || frame_.layout == FrameLayout::h264;
    if (data.type == SPA_DATA_DmaBuf && !isEncoded && plane.byteCount > 0) plane.byteCount = length - offset;
  }
  if (!plane.bytes || !data.chunk || data.chunk->stride >= 0) return plane;
  // Rows from the bottom up may be told by where the last one begins, which is the first of the picture.
  const std::size_t rows = FrameShape::of(frame_).rows(number, static_cast<std::size_t>(frame_.height));
  const std::size_t above = plane.bytesPerRow * (rows - 1);
  if (!data.data || std::min(data.chunk->offset, data.maxsize) < above) return plane;
  return {plane.bytes - above, plane.byteCount + above, plane.bytesPerRow};
}

PipeWireLoans::Blocks PipeWirePictures::blocksOf(const pw_buffer& buffer) const {
  PipeWireLoans::Blocks blocks;
  const auto found = mappings_.find(&buffer);
  for (std::uint32_t i = 0; i < std::min(buffer.buffer->n_datas, std::uint32_t{3}); ++i) {
    const spa_data& data = buffer.buffer->datas[i];
    if (data.data) {
      blocks.at(i) = {static_cast<const std::uint8_t*>(data.data), data.maxsize, data.mapoffset};
    } else if (found != mappings_.end()) {
      const auto& [address, length] = found->second->blocks.at(i);
      blocks.at(i) = {static_cast<const std::uint8_t*>(address), length, 0};
    }
  }
  return blocks;
}

Expected<std::shared_ptr<PixelBuffer>> PipeWirePictures::convert(const pw_buffer& buffer) {
  auto whole = pool_->createPixelBuffer();
  if (!whole) return whole;
  if (isOnlyForGPU()) {
    if (!loans_.copy(buffer, frame_, **whole)) {
      return failure(CaptureErrorCode::damagedFrame, "its memory can be read neither here nor by the GPU");
    }
  } else {
    const DmaBufReading reading(*buffer.buffer);
    if (auto converted = converter_.convert(frame_, **whole); !converted) return tl::unexpected(converted.error());
  }
  const spa_region part = partOf(*buffer.buffer, frame_.width, frame_.height);
  const auto [width, height] = part.size;
  if (isWhole(part)) return whole;
  if (!partPool_ || partPool_->width() != width || partPool_->height() != height) {
    auto pool = PixelBufferPool::create(width, height, PixelFormat::bgra32);
    if (!pool) return tl::unexpected(pool.error());
    partPool_ = std::move(*pool);
  }
  auto cut = partPool_->createPixelBuffer();
  if (!cut) return cut;
  (*whole)->lockBaseAddress(PixelBufferLock::readOnly);
  (*cut)->lockBaseAddress(PixelBufferLock::readWrite);
  const std::size_t row = (*whole)->bytesPerRow();
  libyuv::ARGBCopy((*whole)->baseAddress() + static_cast<std::size_t>(part.position.y) * row +
                       static_cast<std::size_t>(part.position.x) * 4,
                   static_cast<int>(row), (*cut)->baseAddress(), static_cast<int>((*cut)->bytesPerRow()),
                   static_cast<int>(width), static_cast<int>(height));
  (*cut)->unlockBaseAddress(PixelBufferLock::readWrite);
  (*whole)->unlockBaseAddress(PixelBufferLock::readOnly);
  return cut;
}

Expected<std::shared_ptr<SampleBuffer>> PipeWirePictures::pictureOf(pw_buffer& buffer, const SampleTiming& timing) {
  const RawFrame::Plane first = planeOf(buffer, 0);
  if (!first.bytes && !isOnlyForGPU()) return failure(CaptureErrorCode::damagedFrame, "its buffers cannot be mapped");
  if (buffer.buffer->datas[0].chunk->size == 0 || (first.bytes && first.byteCount == 0))
    return failure(CaptureErrorCode::damagedFrame, "a buffer came empty");
  if (!pool_) return failure(CaptureErrorCode::damagedFrame, "a picture came before its format");
  frame_.bytes = first.bytes;
  frame_.byteCount = first.byteCount;
  frame_.bytesPerRow = std::max(first.bytesPerRow, FrameConverter::tightRow(frame_));
  const auto* chunk = buffer.buffer->datas[0].chunk;
  frame_.isBottomUp = chunk && chunk->stride < 0;
  for (std::uint32_t i = 0; i < frame_.chroma.size(); ++i) {
    frame_.chroma.at(i) = i + 1 < buffer.buffer->n_datas ? planeOf(buffer, i + 1) : RawFrame::Plane();
  }
  FrameConverter::findPaddedRows(frame_);
  Expected<std::shared_ptr<PixelBuffer>> picture;
  if (isWhole(partOf(*buffer.buffer, frame_.width, frame_.height))) {
    picture = loans_.lend(buffer, frame_, blocksOf(buffer));
  }
  isInPlace_ = *picture != nullptr;
  if (!isInPlace_) picture = convert(buffer);
  if (!picture) return tl::unexpected(picture.error());
  auto sample = SampleBuffer::createImage(std::move(*picture), timing);
  if (!sample) return sample;
  const Turning turning = turningOf(*buffer.buffer);
  auto upright = turner_.turned(*sample, turning.degrees, turning.isMirrored);
  if (!upright) return failure(CaptureErrorCode::outOfMemory, "no memory to turn a picture");
  return upright;
}

}  // namespace tavrel
