#include "Platform/Media/AudioBufferList.h"

#include <cstdlib>
#include <cstring>

namespace tavrel {
namespace {

constexpr std::size_t kAlignment = 16;

std::size_t aligned(std::size_t size) { return (size + kAlignment - 1) / kAlignment * kAlignment; }

}  // namespace

void AudioBufferList::Free::operator()(void* memory) const { std::free(memory); }

std::shared_ptr<AudioBufferList> AudioBufferList::create(const AudioFormat& format, std::size_t frameCount) {
  const std::size_t bufferSize = frameCount * format.bytesPerSample() * format.channelsPerBuffer();
  const std::size_t stride = aligned(bufferSize);
  const std::size_t total = aligned(stride * format.bufferCount() + 1);
  std::shared_ptr<AudioBufferList> list(new AudioBufferList());
  list->memory_.reset(std::aligned_alloc(kAlignment, total));
  std::memset(list->memory_.get(), 0, total);
  auto* const bytes = static_cast<std::uint8_t*>(list->memory_.get());
  for (std::uint32_t i = 0; i < format.bufferCount(); ++i) {
    list->buffers_.push_back({format.channelsPerBuffer(), bufferSize, bytes + i * stride});
  }
  return list;
}

}  // namespace tavrel
