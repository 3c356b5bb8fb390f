#include "Platform/Media/AssetWriterInputPixelBufferAdaptor.h"

#include "Platform/Graphics/PixelBufferPool.h"
#include "Platform/Media/Private/Writing/InputPipeline.h"

namespace tavrel {
namespace {

std::size_t sideFor(const Dictionary& attributes, const char* key, double otherwise) {
  const double side = numberFor(attributes, key).value_or(otherwise);
  return side >= 1 ? static_cast<std::size_t>(side) : 0;
}

}  // namespace

std::shared_ptr<AssetWriterInputPixelBufferAdaptor> AssetWriterInputPixelBufferAdaptor::create(
    std::shared_ptr<AssetWriterInput> input, Dictionary sourceAttributes) {
  if (!input) return nullptr;
  return std::shared_ptr<AssetWriterInputPixelBufferAdaptor>(
      new AssetWriterInputPixelBufferAdaptor(std::move(input), std::move(sourceAttributes)));
}

AssetWriterInputPixelBufferAdaptor::AssetWriterInputPixelBufferAdaptor(std::shared_ptr<AssetWriterInput> input,
                                                                       Dictionary sourceAttributes)
    : input_(std::move(input)), sourceAttributes_(std::move(sourceAttributes)) {}

std::shared_ptr<PixelBufferPool> AssetWriterInputPixelBufferAdaptor::pixelBufferPool() {
  const std::lock_guard lock(mutex_);
  if (pool_ || !input_->pipeline_->hasStarted()) return pool_;
  const Size size = input_->encodedSize();
  const auto format = static_cast<PixelFormat>(static_cast<std::uint32_t>(
      numberFor(sourceAttributes_, kPixelBufferPixelFormatTypeKey).value_or(static_cast<double>(PixelFormat::bgra32))));
  auto pool = PixelBufferPool::create(sideFor(sourceAttributes_, kPixelBufferWidthKey, size.width),
                                      sideFor(sourceAttributes_, kPixelBufferHeightKey, size.height), format);
  if (pool) pool_ = std::move(*pool);
  return pool_;
}

bool AssetWriterInputPixelBufferAdaptor::append(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                MediaTime presentationTime) {
  return pixelBuffer && input_->pipeline_->appendPicture(*pixelBuffer, presentationTime);
}

}  // namespace tavrel
