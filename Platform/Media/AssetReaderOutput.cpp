#include "Platform/Media/AssetReaderOutput.h"

#include <utility>

#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/Private/Reading/SampleReader.h"

namespace tavrel {

AssetReaderOutput::AssetReaderOutput() = default;
AssetReaderOutput::~AssetReaderOutput() = default;

void AssetReaderOutput::setSupportsRandomAccess(bool newValue) {
  if (samples_) fatalAssertion("An asset reader output cannot change its random access after reading has started");
  supportsRandomAccess_ = newValue;
}

Expected<void> AssetReaderOutput::prepare(const std::shared_ptr<AssetReader>& reader) {
  auto opened = open(*reader);
  if (!opened) return tl::unexpected(opened.error());
  samples_ = std::move(*opened);
  reader_ = reader;
  const MediaTimeRange range = reader->timeRange();
  const bool isAll = !(range.start > MediaTime::zero()) && !range.duration.isNumeric();
  if (!isAll) return samples_->seek(range, false);
  return {};
}

std::shared_ptr<SampleBuffer> AssetReaderOutput::copyNextSampleBuffer() {
  if (!samples_ || isDrained_) return nullptr;
  const auto reader = reader_.lock();
  if (!reader) return nullptr;
  auto sample = next(*reader);
  if (!sample) {
    reader->fail(std::move(sample.error()));
    return nullptr;
  }
  if (!*sample && reader->status() == AssetReaderStatus::reading) {
    isDrained_ = true;
    endIfOver();
  }
  return std::move(*sample);
}

Expected<std::shared_ptr<SampleBuffer>> AssetReaderOutput::next(const AssetReader& reader) {
  const auto goOn = [&reader] { return reader.status() == AssetReaderStatus::reading; };
  while (goOn()) {
    auto sample = samples_->next(goOn);
    if (!sample || *sample || ranges_.empty()) return sample;
    if (auto sought = samples_->seek(ranges_.back(), false); !sought) return tl::unexpected(sought.error());
    ranges_.pop_back();
  }
  return nullptr;
}

void AssetReaderOutput::resetForReadingTimeRanges(std::vector<MediaTimeRange> timeRanges) {
  if (!supportsRandomAccess_) fatalAssertion("An asset reader output without random access cannot be reset");
  if (isFinal_ || !samples_) return;
  const auto reader = reader_.lock();
  if (!reader || reader->status() != AssetReaderStatus::reading) return;
  if (!isDrained_) fatalAssertion("An asset reader output can be reset only once it was read to its end");
  std::erase_if(timeRanges, [](const MediaTimeRange& range) { return !range.start.isNumeric(); });
  if (timeRanges.empty()) return;
  ranges_.assign(timeRanges.rbegin(), timeRanges.rend());
  if (auto sought = samples_->seek(ranges_.back(), false); !sought) return reader->fail(std::move(sought.error()));
  ranges_.pop_back();
  isDrained_ = false;
}

void AssetReaderOutput::markConfigurationAsFinal() {
  isFinal_ = true;
  endIfOver();
}

void AssetReaderOutput::endIfOver() {
  if (!isDrained_ || hasEnded_ || (supportsRandomAccess_ && !isFinal_)) return;
  hasEnded_ = true;
  samples_.reset();
  if (const auto reader = reader_.lock()) reader->outputEnded();
}

}  // namespace tavrel
