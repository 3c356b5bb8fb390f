#include "Platform/Graphics/PixelBuffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>

#include "Platform/Graphics/GraphicsStatus.h"
#include "Platform/Graphics/PixelBufferPool.h"
#include "Platform/Graphics/TextureCache.h"
#include "Support/GraphicsThread.h"

namespace tavrel {
namespace {

constexpr BGRA kBlue = {255, 0, 0, 255};
constexpr BGRA kGreen = {0, 255, 0, 255};

TEST(PixelBuffer, RefusesImpossibleSizesAndFormats) {
  const std::pair<std::size_t, std::size_t> sizes[] = {{0, 1}, {1, 0}, {32768, 1}, {1, 32768}, {SIZE_MAX, SIZE_MAX}};
  for (auto [width, height] : sizes) {
    auto buffer = PixelBuffer::create(width, height, PixelFormat::bgra32);
    ASSERT_FALSE(buffer) << width << "x" << height;
    EXPECT_EQ(buffer.error().code, static_cast<std::int64_t>(GraphicsStatus::invalidSize));
    EXPECT_FALSE(PixelBufferPool::create(width, height, PixelFormat::bgra32));
  }
  auto unknown = PixelBuffer::create(4, 4, static_cast<PixelFormat>(0x12345678));
  ASSERT_FALSE(unknown);
  EXPECT_EQ(unknown.error().code, static_cast<std::int64_t>(GraphicsStatus::invalidPixelFormat));
}

TEST(PixelBuffer, LaysOutItsPlanes) {
  auto bgra = makeStagedBuffer(3, 5);
  EXPECT_EQ(bgra->bytesPerRow(), 12U);
  EXPECT_EQ(bgra->planeCount(), 1U);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(bgra->baseAddress()) % 64, 0U);
  EXPECT_EQ(bgra->baseAddressOfPlane(1), nullptr);

  auto planar = makeBuffer(35, 5, PixelFormat::biPlanar420VideoRange);
  ASSERT_EQ(planar->planeCount(), 2U);
  const PixelPlane& chroma = planar->layout().planes[1];
  EXPECT_EQ(chroma.width, 18U);
  EXPECT_EQ(chroma.height, 3U);
  EXPECT_EQ(planar->bytesPerRowOfPlane(0), 64U);
  EXPECT_EQ(planar->bytesPerRowOfPlane(1), 64U);
  EXPECT_GE(planar->baseAddressOfPlane(1), planar->baseAddressOfPlane(0) + 64 * 5);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(planar->baseAddressOfPlane(1)) % 64, 0U);
  planar->lockBaseAddress(PixelBufferLock::readWrite);
  std::fill_n(planar->baseAddressOfPlane(1), 64 * 3, std::uint8_t{7});  // the sanitizer watches the end
  planar->unlockBaseAddress(PixelBufferLock::readWrite);
  EXPECT_EQ(planar->baseAddressOfPlane(0)[0], 0) << "fresh bytes are zero";
}

TEST(PixelBuffer, AllocatesWhenBytesAreFirstAskedFor) {
  const auto before = TextureCache::statistics().blocksAllocated;
  auto buffer = makeStagedBuffer(16, 16);
  EXPECT_EQ(TextureCache::statistics().blocksAllocated, before);
  buffer->lockBaseAddress(PixelBufferLock::readOnly);
  buffer->unlockBaseAddress(PixelBufferLock::readOnly);
  EXPECT_EQ(TextureCache::statistics().blocksAllocated, before + 1);
}

TEST(PixelBufferDeathTest, StopsAtUnbalancedUnlocks) {
  auto buffer = makeBuffer(2, 2);
  buffer->lockBaseAddress(PixelBufferLock::readOnly);
  buffer->lockBaseAddress(PixelBufferLock::readOnly);
  buffer->lockBaseAddress(PixelBufferLock::readWrite);
  buffer->unlockBaseAddress(PixelBufferLock::readOnly);
  buffer->unlockBaseAddress(PixelBufferLock::readWrite);
  EXPECT_DEATH(buffer->unlockBaseAddress(PixelBufferLock::readWrite), "holds no read-write lock");
  buffer->unlockBaseAddress(PixelBufferLock::readOnly);
  EXPECT_DEATH(buffer->unlockBaseAddress(PixelBufferLock::readOnly), "holds no read-only lock");
}

TEST(PixelBuffer, PropagatesTheAttachmentsThatSaySo) {
  auto from = makeBuffer(2, 2);
  auto to = makeBuffer(2, 2);
  from->setAttachment(std::string(kPixelBufferYCbCrMatrixKey), std::string(kYCbCrMatrixITU_R_709_2), true);
  from->setAttachment(std::string(kPixelBufferYCbCrMatrixKey), std::string(kYCbCrMatrixITU_R_601_4), true);
  from->setAttachment("note", "mine", false);
  to->setAttachment("own", "kept", false);
  from->copyPropagatedAttachments(*to);
  EXPECT_EQ(to->attachment(kPixelBufferYCbCrMatrixKey), "ITU_R_601_4");
  EXPECT_EQ(to->attachment("note"), std::nullopt);
  EXPECT_EQ(to->attachment("own"), "kept");

  auto snapshot = from->snapshot();
  from->removeAttachment("note");
  from->copyPropagatedAttachments(*from);
  EXPECT_EQ(snapshot->attachment("note"), "mine") << "a snapshot keeps what it was taken with";
  EXPECT_EQ(from->attachment("note"), std::nullopt);
}

TEST(PixelBufferSnapshot, SharesBytesAndIsNotTouchedByLaterWrites) {
  auto buffer = makeStagedBuffer(8, 4);
  writeColour(*buffer, kBlue);
  const auto copied = TextureCache::statistics().bytesCopied;
  auto snapshot = buffer->snapshot();
  EXPECT_EQ(snapshot->bytes(), buffer->baseAddress());
  EXPECT_EQ(TextureCache::statistics().bytesCopied, copied);

  buffer->lockBaseAddress(PixelBufferLock::readWrite);
  buffer->baseAddress()[0] = 9;
  EXPECT_EQ(buffer->baseAddress()[4], kBlue[0]) << "the rest of the picture is kept";
  auto duringLock = buffer->snapshot();
  buffer->baseAddress()[0] = 10;
  buffer->unlockBaseAddress(PixelBufferLock::readWrite);
  EXPECT_EQ(snapshotPixel(*snapshot), kBlue);
  EXPECT_EQ(duringLock->bytes()[0], 9) << "a write lock goes on, the snapshot does not";
  EXPECT_EQ(buffer->baseAddress()[0], 10);

  buffer.reset();
  EXPECT_EQ(snapshotPixel(*snapshot, 7, 3), kBlue) << "a snapshot may outlive its buffer";
}

TEST(PixelBufferSnapshot, GivesItsMemoryBack) {
  auto buffer = makeBuffer(8, 4);
  writeColour(*buffer, kBlue);
  std::shared_ptr<const PixelBufferSnapshot> last;
  for (int i = 0; i < 3; ++i) {
    last = buffer->snapshot();
    writeColour(*buffer, kGreen);
  }
  const auto before = TextureCache::statistics().blocksAllocated;
  for (int i = 0; i < 20; ++i) {
    last = buffer->snapshot();
    writeColour(*buffer, i % 2 == 0 ? kBlue : kGreen);
  }
  EXPECT_EQ(TextureCache::statistics().blocksAllocated, before);
}

TEST(PixelBuffer, KeepsTheAddressOfAnEarlierLockReadable) {
  GraphicsThread graphics;
  auto buffer = makeStagedBuffer(8, 4);
  writeColour(*buffer, kBlue);
  auto texture = textureOf(*graphics.cache, buffer);
  buffer->lockBaseAddress(PixelBufferLock::readOnly);
  const std::uint8_t* address = buffer->baseAddress();
  graphics.run([&] { drawColour(*texture, kGreen); });
  EXPECT_EQ(bufferPixel(*buffer), kGreen);
  EXPECT_EQ(address[0], kBlue[0]) << "bytes must not change under a lock that shows them";
  buffer->unlockBaseAddress(PixelBufferLock::readOnly);
}

TEST(PixelBufferPool, HandsBuffersOutAgainWithoutTheirAttachments) {
  auto pool = PixelBufferPool::create(8, 4, PixelFormat::bgra32).value();
  auto first = pool->createPixelBuffer().value();
  auto second = pool->createPixelBuffer().value();
  EXPECT_NE(first, second);
  PixelBuffer* address = first.get();
  first->setAttachment("note", "mine", true);
  first->lockBaseAddress(PixelBufferLock::readOnly);
  first.reset();
  EXPECT_EQ(pool->idleCount(), 1U);
  first = pool->createPixelBuffer().value();
  EXPECT_EQ(first.get(), address);
  EXPECT_EQ(first->attachment("note"), std::nullopt);
  second.reset();
  pool->flush();
  EXPECT_EQ(pool->idleCount(), 0U);
  pool.reset();
  writeColour(*first, kBlue);
  EXPECT_EQ(bufferPixel(*first, 7, 3), kBlue) << "buffers may outlive their pool";
}

TEST(PixelBufferPool, RecycledBufferDoesNotDisturbASnapshotNorDownloadAnOldPicture) {
  GraphicsThread graphics;
  auto pool = PixelBufferPool::create(8, 4, PixelFormat::bgra32).value();
  auto buffer = pool->createPixelBuffer().value();
  auto texture = textureOf(*graphics.cache, buffer);
  graphics.run([&] { drawColour(*texture, kGreen); });
  auto snapshot = buffer->snapshot();
  graphics.run([&] { drawColour(*texture, kBlue); });
  const PixelBuffer* address = buffer.get();
  buffer.reset();
  EXPECT_EQ(pool->idleCount(), 0U) << "a texture in use holds its buffer";
  texture.reset();
  ASSERT_EQ(pool->idleCount(), 1U);

  const auto before = TextureCache::statistics();
  buffer = pool->createPixelBuffer().value();
  ASSERT_EQ(buffer.get(), address);
  writeColour(*buffer, kBlue);
  EXPECT_EQ(TextureCache::statistics().downloads, before.downloads);
  EXPECT_EQ(TextureCache::statistics().bytesCopied, before.bytesCopied);
  EXPECT_EQ(snapshotPixel(*snapshot), kGreen);
}

}  // namespace
}  // namespace tavrel
