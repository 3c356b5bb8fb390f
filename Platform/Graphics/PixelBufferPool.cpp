#include "Platform/Graphics/PixelBufferPool.h"

#include <mutex>
#include <utility>
#include <vector>

#include "Platform/Graphics/Private/PixelBlock.h"

namespace tavrel {

/// What buffers come back to; lives as long as the pool or one of its buffers does.
class PixelBufferPool::Core : public std::enable_shared_from_this<Core> {
 public:
  explicit Core(const PixelLayout& layout)
      : layout_(layout), allocator_(std::make_shared<PixelBlockAllocator>(layout.byteCount)) {}

  const PixelLayout& layout() const { return layout_; }

  std::shared_ptr<PixelBuffer> take() {
    std::unique_ptr<PixelBuffer> buffer;
    {
      std::lock_guard guard(mutex_);
      if (!idle_.empty()) {
        buffer = std::move(idle_.back());
        idle_.pop_back();
      }
    }
    if (buffer == nullptr) buffer = PixelBuffer::make(layout_, allocator_);
    return {buffer.release(), [self = shared_from_this()](PixelBuffer* returned) {
              self->takeBack(std::unique_ptr<PixelBuffer>(returned));
            }};
  }

  void flush() {
    dropIdle(false);
    allocator_->flush();
  }

  void close() { dropIdle(true); }

  std::size_t idleCount() {
    std::lock_guard guard(mutex_);
    return idle_.size();
  }

 private:
  void takeBack(std::unique_ptr<PixelBuffer> buffer) {
    buffer->prepareForReuse();
    std::lock_guard guard(mutex_);
    if (!closed_) idle_.push_back(std::move(buffer));
  }

  void dropIdle(bool closing) {
    std::vector<std::unique_ptr<PixelBuffer>> dropped;  // freed without the lock, since textures go with them
    std::lock_guard guard(mutex_);
    closed_ = closed_ || closing;
    dropped.swap(idle_);
  }

  const PixelLayout layout_;
  const std::shared_ptr<PixelBlockAllocator> allocator_;
  std::mutex mutex_;
  std::vector<std::unique_ptr<PixelBuffer>> idle_;
  bool closed_ = false;
};

Expected<std::shared_ptr<PixelBufferPool>> PixelBufferPool::create(std::size_t width, std::size_t height,
                                                                   PixelFormat format) {
  const auto layout = PixelLayout::create(width, height, format);
  if (!layout) return tl::unexpected<Error>(layout.error());
  return std::shared_ptr<PixelBufferPool>(new PixelBufferPool(std::make_shared<Core>(*layout)));
}

PixelBufferPool::PixelBufferPool(std::shared_ptr<Core> core) : core_(std::move(core)) {}

PixelBufferPool::~PixelBufferPool() { core_->close(); }

Expected<std::shared_ptr<PixelBuffer>> PixelBufferPool::createPixelBuffer() { return core_->take(); }

void PixelBufferPool::flush() { core_->flush(); }

std::size_t PixelBufferPool::width() const { return core_->layout().width; }

std::size_t PixelBufferPool::height() const { return core_->layout().height; }

PixelFormat PixelBufferPool::pixelFormat() const { return core_->layout().format; }

std::size_t PixelBufferPool::idleCount() const { return core_->idleCount(); }

}  // namespace tavrel
