#include "Platform/Media/AssetWriterInput.h"

#include "Platform/Foundation/Finite.h"
#include "Platform/Media/Private/Writing/InputPipeline.h"

namespace tavrel {

std::shared_ptr<AssetWriterInput> AssetWriterInput::create(MediaType mediaType, std::optional<Dictionary> settings,
                                                           std::shared_ptr<const FormatDescription> sourceFormatHint) {
  return std::shared_ptr<AssetWriterInput>(new AssetWriterInput(
      std::make_shared<InputPipeline>(mediaType, std::move(settings), std::move(sourceFormatHint))));
}

AssetWriterInput::AssetWriterInput(std::shared_ptr<InputPipeline> pipeline) : pipeline_(std::move(pipeline)) {}

AssetWriterInput::~AssetWriterInput() = default;

MediaType AssetWriterInput::mediaType() const { return pipeline_->mediaType(); }

bool AssetWriterInput::expectsMediaDataInRealTime() const { return pipeline_->configuration().isRealTime; }

void AssetWriterInput::setExpectsMediaDataInRealTime(bool expects) {
  pipeline_->configure([&](InputPipeline::Configuration& configuration) { configuration.isRealTime = expects; });
}

AffineTransform AssetWriterInput::transform() const { return pipeline_->configuration().transform; }

void AssetWriterInput::setTransform(const AffineTransform& transform) {
  if (!isFinite(transform)) return;
  pipeline_->configure([&](InputPipeline::Configuration& configuration) { configuration.transform = transform; });
}

std::string AssetWriterInput::languageCode() const { return pipeline_->configuration().languageCode; }

void AssetWriterInput::setLanguageCode(std::string code) {
  pipeline_->configure(
      [&](InputPipeline::Configuration& configuration) { configuration.languageCode = std::move(code); });
}

std::int32_t AssetWriterInput::mediaTimeScale() const { return pipeline_->configuration().timescale; }

void AssetWriterInput::setMediaTimeScale(std::int32_t timescale) {
  pipeline_->configure(
      [&](InputPipeline::Configuration& configuration) { configuration.timescale = timescale < 0 ? 0 : timescale; });
}

Size AssetWriterInput::encodedSize() const { return pipeline_->encodedSize(); }

bool AssetWriterInput::isReadyForMoreMediaData() const { return pipeline_->isReady(); }

bool AssetWriterInput::append(const std::shared_ptr<SampleBuffer>& sampleBuffer) {
  return sampleBuffer && pipeline_->append(*sampleBuffer);
}

void AssetWriterInput::markAsFinished() { pipeline_->markAsFinished(); }

void AssetWriterInput::requestMediaDataWhenReady(const std::shared_ptr<DispatchQueue>& queue,
                                                 std::function<void()> block) {
  pipeline_->requestMediaData(queue, std::move(block));
}

bool AssetWriterInput::waitUntilReady(std::chrono::nanoseconds timeout) { return pipeline_->waitUntilReady(timeout); }

}  // namespace tavrel
