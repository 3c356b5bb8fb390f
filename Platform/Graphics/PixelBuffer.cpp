#include "Platform/Graphics/PixelBuffer.h"

#include <map>
#include <mutex>
#include <utility>

#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Graphics/Private/DmaBufBacking.h"
#include "Platform/Graphics/Private/GLFence.h"
#include "Platform/Graphics/Private/GraphicsFailure.h"
#include "Platform/Graphics/Private/PixelBufferBacking.h"
#include "Platform/Graphics/Private/StagedBacking.h"

namespace tavrel {

struct PixelBuffer::Implementation {
  struct Attachment {
    std::string value;
    bool propagates;
  };

  explicit Implementation(std::unique_ptr<PixelBufferBacking> memory)
      : layout(memory->layout()), backing(std::move(memory)) {}

  const PixelLayout layout;
  mutable std::mutex mutex;
  std::unique_ptr<PixelBufferBacking> backing;
  std::map<std::string, Attachment, std::less<>> attachments;
  std::unique_ptr<PixelBuffer> planes = nullptr;
};

Expected<std::shared_ptr<PixelBuffer>> PixelBuffer::create(std::size_t width, std::size_t height, PixelFormat format,
                                                           PixelBufferUse use) {
  const auto layout = PixelLayout::create(width, height, format);
  if (!layout) return tl::unexpected<Error>(layout.error());
  return std::shared_ptr<PixelBuffer>(make(*layout, std::make_shared<PixelBlockAllocator>(layout->byteCount), use));
}

std::unique_ptr<PixelBuffer> PixelBuffer::make(const PixelLayout& layout,
                                               std::shared_ptr<PixelBlockAllocator> allocator, PixelBufferUse use) {
  std::unique_ptr<PixelBufferBacking> backing;
  const DmaBufDevice* device = use == PixelBufferUse::byCPUAndGPU ? DmaBufDevice::shared() : nullptr;
  if (device != nullptr) backing = DmaBufBacking::create(*device, layout);
  if (backing == nullptr) backing = std::make_unique<StagedBacking>(layout, std::move(allocator));
  return make(std::move(backing));
}

std::unique_ptr<PixelBuffer> PixelBuffer::make(std::unique_ptr<PixelBufferBacking> backing) {
  return std::unique_ptr<PixelBuffer>(new PixelBuffer(std::make_unique<Implementation>(std::move(backing))));
}

PixelBuffer::PixelBuffer(std::unique_ptr<Implementation> implementation) : implementation_(std::move(implementation)) {}

PixelBuffer::~PixelBuffer() = default;

std::size_t PixelBuffer::width() const { return implementation_->layout.width; }

std::size_t PixelBuffer::height() const { return implementation_->layout.height; }

PixelFormat PixelBuffer::pixelFormat() const { return implementation_->layout.format; }

const PixelLayout& PixelBuffer::layout() const { return implementation_->layout; }

std::size_t PixelBuffer::planeCount() const { return implementation_->layout.planeCount; }

std::size_t PixelBuffer::bytesPerRow() const { return implementation_->layout.planes[0].bytesPerRow; }

std::size_t PixelBuffer::bytesPerRowOfPlane(std::size_t plane) const {
  return plane < planeCount() ? implementation_->layout.planes[plane].bytesPerRow : 0;
}

bool PixelBuffer::sharesMemory() const { return implementation_->backing->sharesMemory(); }

bool PixelBuffer::isLent() const { return implementation_->backing->isLent(); }

std::shared_ptr<PixelBuffer> PixelBuffer::planesOf(const std::shared_ptr<PixelBuffer>& buffer) {
  PixelBuffer* const planes = buffer != nullptr ? buffer->planes() : nullptr;
  return planes != nullptr ? std::shared_ptr<PixelBuffer>(buffer, planes) : nullptr;
}

PixelBuffer* PixelBuffer::planes() const { return implementation_->planes.get(); }

void PixelBuffer::setPlanes(std::unique_ptr<PixelBuffer> planes) { implementation_->planes = std::move(planes); }

void PixelBuffer::lockBaseAddress(PixelBufferLock lock) {
  std::unique_lock guard(implementation_->mutex);
  implementation_->backing->lockBytes(guard, lock);
}

void PixelBuffer::unlockBaseAddress(PixelBufferLock lock) {
  std::unique_lock guard(implementation_->mutex);
  if (!implementation_->backing->unlockBytes(lock)) {
    fatalAssertion("Unbalanced unlock of a pixel buffer: it holds no {} lock",
                   lock == PixelBufferLock::readOnly ? "read-only" : "read-write");
  }
}

std::uint8_t* PixelBuffer::baseAddress() { return baseAddressOfPlane(0); }

std::uint8_t* PixelBuffer::baseAddressOfPlane(std::size_t plane) {
  if (plane >= planeCount()) return nullptr;
  std::unique_lock guard(implementation_->mutex);
  std::uint8_t* bytes = implementation_->backing->bytes(guard);
  return bytes != nullptr ? bytes + implementation_->layout.planes[plane].offset : nullptr;
}

void PixelBuffer::noteGPUWrite() {
  std::unique_lock guard(implementation_->mutex);
  implementation_->backing->noteGPUWrite();
}

std::shared_ptr<const PixelBufferSnapshot> PixelBuffer::snapshot() {
  std::unique_lock guard(implementation_->mutex);
  std::shared_ptr<PixelBlock> block = implementation_->backing->snapshot(guard);
  if (block == nullptr) {
    ConsoleLog::write("No snapshot of a pixel buffer of {}x{}: its picture could not be read", width(), height());
    return nullptr;
  }
  PixelBufferSnapshot::Attachments attachments;
  for (const auto& [key, attachment] : implementation_->attachments) attachments.emplace(key, attachment.value);
  return std::shared_ptr<const PixelBufferSnapshot>(
      new PixelBufferSnapshot(implementation_->layout, std::move(block), std::move(attachments)));
}

void PixelBuffer::setAttachment(std::string key, std::string value, bool propagates) {
  std::lock_guard guard(implementation_->mutex);
  implementation_->attachments.insert_or_assign(std::move(key),
                                                Implementation::Attachment{std::move(value), propagates});
}

void PixelBuffer::removeAttachment(std::string_view key) {
  std::lock_guard guard(implementation_->mutex);
  auto found = implementation_->attachments.find(key);
  if (found != implementation_->attachments.end()) implementation_->attachments.erase(found);
}

std::optional<std::string> PixelBuffer::attachment(std::string_view key) const {
  std::lock_guard guard(implementation_->mutex);
  auto found = implementation_->attachments.find(key);
  if (found == implementation_->attachments.end()) return std::nullopt;
  return found->second.value;
}

void PixelBuffer::copyPropagatedAttachments(PixelBuffer& to) const {
  if (&to == this) return;
  std::scoped_lock guard(implementation_->mutex, to.implementation_->mutex);
  for (const auto& [key, attachment] : implementation_->attachments) {
    if (attachment.propagates) to.implementation_->attachments.insert_or_assign(key, attachment);
  }
}

Expected<std::shared_ptr<GLTexture>> PixelBuffer::texture(const std::shared_ptr<TextureCacheCore>& core,
                                                          const TextureRequest& request) {
  PixelBufferBacking& backing = *implementation_->backing;
  {
    std::unique_lock guard(implementation_->mutex);
    if (!backing.fetchFromOtherSharegroups(guard, *core->sharegroup())) {
      return graphicsFailure(GraphicsStatus::graphicsCommandFailed,
                             "the picture that another sharegroup drew into the pixel buffer could not be read");
    }
  }
  Expected<std::shared_ptr<GLTexture>> texture;
  const bool ran = core->run([&](NativeContext&) {
    std::lock_guard guard(implementation_->mutex);
    texture = backing.texture(core, request);
  });
  if (ran) return texture;
  return graphicsFailure(GraphicsStatus::contextUnavailable,
                         "no context of the texture cache's sharegroup could be made current");
}

void PixelBuffer::refresh(GLTexture& texture) {
  std::lock_guard guard(implementation_->mutex);
  implementation_->backing->refresh(texture);
}

void PixelBuffer::noteGPURead(const GLTexture& texture) {
  if (!sharesMemory()) return;
  GLSharegroup& sharegroup = *texture.sharegroup();
  if (!isLent()) {
    // The next owner of the memory waits for commands that the driver has, not for those that it is yet to be sent.
    if (sharegroup.isCurrent()) glFlush();
    return;
  }
  // Nor does a camera wait for commands at all. Not under the lock, for which the GL thread may wait.
  GLFence read;
  const auto mark = [&read](NativeContext&) { read = GLFence::afterCurrentCommands(); };
  sharegroup.perform(mark);
  std::lock_guard guard(implementation_->mutex);
  implementation_->backing->noteGPURead(std::move(read));
}

void PixelBuffer::exclusively(const std::function<void()>& work) {
  std::lock_guard guard(implementation_->mutex);
  work();
}

void PixelBuffer::prepareForReuse() {
  std::lock_guard guard(implementation_->mutex);
  implementation_->backing->discardPicture();
  implementation_->attachments.clear();
}

}  // namespace tavrel
