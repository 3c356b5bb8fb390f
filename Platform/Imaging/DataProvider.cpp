#include "Platform/Imaging/DataProvider.h"

#include <utility>

namespace tavrel {

std::shared_ptr<DataProvider> DataProvider::create(void* info, const void* data, std::size_t size,
                                                   ReleaseCallback release) {
  std::shared_ptr<DataProvider> provider(new DataProvider);
  provider->bytes_ = {static_cast<const std::uint8_t*>(data), size};
  provider->info_ = info;
  provider->release_ = release;
  return provider;
}

std::shared_ptr<DataProvider> DataProvider::create(Data data) {
  std::shared_ptr<DataProvider> provider(new DataProvider);
  provider->owned_ = std::move(data);
  provider->bytes_ = provider->owned_;
  return provider;
}

DataProvider::~DataProvider() {
  if (release_) release_(info_, bytes_.data(), bytes_.size());
}

}  // namespace tavrel
