#include <utility>

#include "GPUImage/Private/Properties.h"
#include "GPUImage/Sources/Private/MovieImplementation.h"

namespace tavrel {

TavrelGPUImageMovie::TavrelGPUImageMovie(const std::filesystem::path& url)
    : implementation_(std::make_unique<Implementation>(*this)) {
  setUrl(url);
}

TavrelGPUImageMovie::TavrelGPUImageMovie(const std::shared_ptr<Asset>& asset)
    : implementation_(std::make_unique<Implementation>(*this)) {
  setAsset(asset);
}

TavrelGPUImageMovie::TavrelGPUImageMovie(const std::shared_ptr<PlayerItem>& playerItem)
    : implementation_(std::make_unique<Implementation>(*this)) {
  setPlayerItem(playerItem);
}

TavrelGPUImageMovie::~TavrelGPUImageMovie() = default;

float TavrelGPUImageMovie::progress() const {
  const std::shared_ptr<AssetReader> reader = assetReader();
  const AssetReaderStatus status = reader ? reader->status() : AssetReaderStatus::unknown;
  if (status == AssetReaderStatus::completed) return 1;
  if (status != AssetReaderStatus::reading) return 0;
  const MediaTime current = implementation_->processingFrameTime.get();
  const MediaTime whole = asset()->duration();
  if (current.timescale == 0 || whole.timescale == 0 || whole.value == 0) return 0;
  return (static_cast<float>(current.value) * 1.0F / static_cast<float>(current.timescale)) /
         (static_cast<float>(whole.value) * 1.0F / static_cast<float>(whole.timescale));
}

TAVREL_SHARED_PROPERTY(TavrelGPUImageMovie, std::filesystem::path, url, setUrl)
TAVREL_SHARED_PROPERTY(TavrelGPUImageMovie, std::shared_ptr<Asset>, asset, setAsset)
TAVREL_SHARED_PROPERTY(TavrelGPUImageMovie, std::shared_ptr<PlayerItem>, playerItem, setPlayerItem)

std::shared_ptr<AssetReader> TavrelGPUImageMovie::assetReader() const { return implementation_->reader.get(); }

std::shared_ptr<TavrelGPUImageMovieDelegate> TavrelGPUImageMovie::delegate() const {
  return implementation_->delegate.get().lock();
}

void TavrelGPUImageMovie::setDelegate(const std::shared_ptr<TavrelGPUImageMovieDelegate>& newValue) {
  implementation_->delegate.set(newValue);
}

bool TavrelGPUImageMovie::audioEncodingIsFinished() const { return implementation_->audioEncodingIsFinished; }

bool TavrelGPUImageMovie::videoEncodingIsFinished() const { return implementation_->videoEncodingIsFinished; }

TAVREL_ATOMIC_PROPERTY(TavrelGPUImageMovie, bool, runBenchmark, setRunBenchmark)
TAVREL_ATOMIC_PROPERTY(TavrelGPUImageMovie, bool, playAtActualSpeed, setPlayAtActualSpeed)
TAVREL_ATOMIC_PROPERTY(TavrelGPUImageMovie, bool, shouldRepeat, setShouldRepeat)
TAVREL_ATOMIC_PROPERTY(TavrelGPUImageMovie, bool, reverseVideo, setReverseVideo)
TAVREL_ATOMIC_PROPERTY(TavrelGPUImageMovie, double, startTime, setStartTime)
TAVREL_ATOMIC_PROPERTY(TavrelGPUImageMovie, double, duration, setDuration)

}  // namespace tavrel
