#include "Platform/Media/AssetReader.h"

#include <algorithm>
#include <utility>

#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Media/MediaError.h"

namespace tavrel {

Expected<std::shared_ptr<AssetReader>> AssetReader::create(std::shared_ptr<const Asset> asset) {
  if (!asset) return failure(MediaErrorCode::invalidArgument, "a reader needs an asset to read from");
  return std::shared_ptr<AssetReader>(new AssetReader(std::move(asset)));
}

AssetReader::AssetReader(std::shared_ptr<const Asset> asset) : asset_(std::move(asset)) {}

std::vector<std::shared_ptr<AssetReaderOutput>> AssetReader::outputs() const {
  const std::lock_guard lock(mutex_);
  return outputs_;
}

void AssetReader::addOutput(std::shared_ptr<AssetReaderOutput> output) {
  if (!output) fatalAssertion("An asset reader cannot add an output that is not there");
  const std::lock_guard lock(mutex_);
  if (status_ != AssetReaderStatus::unknown)
    fatalAssertion("An asset reader cannot add outputs after reading has started");
  if (std::exchange(output->isTaken_, true)) fatalAssertion("An asset reader output serves one reader only");
  outputs_.push_back(std::move(output));
}

void AssetReader::setTimeRange(const MediaTimeRange& range) {
  const std::lock_guard lock(mutex_);
  if (status_ == AssetReaderStatus::unknown) timeRange_ = range;
}

MediaTimeRange AssetReader::timeRange() const {
  const std::lock_guard lock(mutex_);
  return timeRange_;
}

bool AssetReader::startReading() {
  {
    const std::lock_guard lock(mutex_);
    if (status_ != AssetReaderStatus::unknown) return false;
    if (outputs_.empty()) {
      changeStatus(AssetReaderStatus::failed,
                   makeError(MediaErrorCode::nothingAdded, "a reader needs at least one output before it can read"));
      return false;
    }
    // From here on `outputs_` stays as it is, so that it can be walked without the lock.
    status_ = AssetReaderStatus::reading;
  }
  for (const auto& output : outputs_) {
    const auto prepared = output->prepare(shared_from_this());
    if (prepared) continue;
    fail(prepared.error());
    return false;
  }
  return true;
}

void AssetReader::cancelReading() {
  const std::lock_guard lock(mutex_);
  changeStatus(AssetReaderStatus::cancelled, std::nullopt);
}

AssetReaderStatus AssetReader::status() const {
  const std::lock_guard lock(mutex_);
  return status_;
}

std::optional<Error> AssetReader::error() const {
  const std::lock_guard lock(mutex_);
  return error_;
}

void AssetReader::outputEnded() {
  const std::lock_guard lock(mutex_);
  if (++endedOutputs_ == outputs_.size()) changeStatus(AssetReaderStatus::completed, std::nullopt);
}

void AssetReader::fail(Error error) {
  const std::lock_guard lock(mutex_);
  changeStatus(AssetReaderStatus::failed, std::move(error));
}

void AssetReader::changeStatus(AssetReaderStatus status, std::optional<Error> error) {
  const bool isOver = status_ != AssetReaderStatus::reading &&
                      !(status_ == AssetReaderStatus::unknown && status == AssetReaderStatus::failed);
  if (isOver) return;
  status_ = status;
  error_ = std::move(error);
}

}  // namespace tavrel
