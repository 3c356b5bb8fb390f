// A stream of frames creates nothing anew: textures, framebuffers and pixel memory serve again.
#include <gtest/gtest.h>

#include <deque>
#include <utility>

#include "Platform/Graphics/PixelBufferPool.h"
#include "Platform/Graphics/TextureCache.h"
#include "Support/GraphicsThread.h"

namespace tavrel {
namespace {

/// The statistics before and after forty frames, once the first few were made.
std::pair<TextureCache::Statistics, TextureCache::Statistics> aroundFortyFrames(
    const std::function<void(int index)>& makeFrame) {
  for (int i = 0; i < 6; ++i) makeFrame(i);
  const auto before = TextureCache::statistics();
  for (int i = 6; i < 46; ++i) makeFrame(i);
  return {before, TextureCache::statistics()};
}

std::uint64_t texturesAlive() {
  const auto statistics = TextureCache::statistics();
  return statistics.texturesCreated - statistics.texturesDeleted;
}

TEST(TextureReuse, CameraFramesFromAPoolMakeNothingNew) {
  GraphicsThread graphics;
  auto pool = PixelBufferPool::create(16, 8, PixelFormat::bgra32).value();
  std::deque<std::shared_ptr<TextureCacheTexture>> inFlight;
  const auto frame = [&](int index) {
    auto buffer = pool->createPixelBuffer().value();
    writeColour(*buffer, {static_cast<std::uint8_t>(index), 1, 2, 255});
    inFlight.push_back(textureOf(*graphics.cache, buffer));
    if (inFlight.size() > 2) inFlight.pop_front();
    graphics.run([&] {
      EXPECT_EQ(texturePixel(*inFlight.back())[0], index & 255);
      if (index % 10 == 0) graphics.cache->flush();
    });
  };
  const auto [before, after] = aroundFortyFrames(frame);
  EXPECT_EQ(after.texturesCreated, before.texturesCreated);
  EXPECT_EQ(after.texturesDeleted, before.texturesDeleted);
  EXPECT_EQ(after.blocksAllocated, before.blocksAllocated);
  EXPECT_EQ(after.uploads - before.uploads, TextureCache::sharesMemory() ? 0U : 40U);
  EXPECT_EQ(after.downloads, before.downloads);
}

TEST(TextureReuse, RecordingMakesNothingNew) {
  GraphicsThread graphics;
  auto buffer = makeStagedBuffer(16, 8);
  auto texture = textureOf(*graphics.cache, buffer);
  std::deque<std::pair<std::shared_ptr<const PixelBufferSnapshot>, BGRA>> encoder;
  const auto frame = [&](int index) {
    const BGRA colour = {static_cast<std::uint8_t>(index), 3, 4, 255};
    graphics.run([&] {
      drawColour(*texture, colour);
      encoder.emplace_back(buffer->snapshot(), colour);
    });
    if (encoder.size() <= 3) return;
    EXPECT_EQ(snapshotPixel(*encoder.front().first, 15, 7), encoder.front().second);
    encoder.pop_front();
  };
  const auto [before, after] = aroundFortyFrames(frame);
  EXPECT_EQ(after.blocksAllocated, before.blocksAllocated);
  EXPECT_EQ(after.framebuffersCreated, before.framebuffersCreated);
  EXPECT_EQ(after.bytesCopied, before.bytesCopied);
  EXPECT_EQ(after.downloads - before.downloads, 40U);
  EXPECT_EQ(after.bytesDownloaded - before.bytesDownloaded, 40U * 16 * 8 * 4);
}

TEST(TextureReuse, AContextThatDownloadedLeavesNoFramebufferBehind) {
  GraphicsThread graphics;
  const auto framebuffers = [&graphics] {
    int count = 0;
    graphics.run([&] {
      for (GLuint name = 1; name < 200; ++name) count += glIsFramebuffer(name) ? 1 : 0;
    });
    return count;
  };
  const int before = framebuffers();
  for (int i = 0; i < 3; ++i) {
    GraphicsThread recorder(graphics.context->sharegroup());
    auto buffer = makeBuffer(16, 8);
    auto texture = textureOf(*recorder.cache, buffer);
    std::shared_ptr<const PixelBufferSnapshot> snapshot;
    recorder.run([&] {
      drawColour(*texture, kColour);
      snapshot = buffer->snapshot();
    });
    EXPECT_EQ(snapshotPixel(*snapshot, 3, 3), kColour);
  }
  EXPECT_EQ(framebuffers(), before);
}

TEST(TextureReuse, RenderTargetThatNobodyReadsCostsNoMemory) {
  GraphicsThread graphics;
  const auto before = TextureCache::statistics();
  auto buffer = makeStagedBuffer(64, 64);
  auto texture = textureOf(*graphics.cache, buffer);
  for (int i = 0; i < 3; ++i) graphics.run([&] { drawColour(*texture, kColour); });
  EXPECT_EQ(TextureCache::statistics().blocksAllocated, before.blocksAllocated);
  EXPECT_EQ(TextureCache::statistics().uploads, before.uploads);
  EXPECT_EQ(TextureCache::statistics().downloads, before.downloads);
}

TEST(TextureReuse, RecyclesTexturesOfDeadBuffersAndDeletesThemAtFlush) {
  GraphicsThread graphics;
  const auto before = TextureCache::statistics();
  const auto aliveBefore = texturesAlive();
  for (int i = 0; i < 5; ++i) {
    auto buffer = makeStagedBuffer(16, 8);
    writeColour(*buffer, kColour);
    textureOf(*graphics.cache, buffer);
  }
  EXPECT_EQ(TextureCache::statistics().texturesCreated, before.texturesCreated + 1);
  graphics.cache->flush();
  EXPECT_EQ(TextureCache::statistics().texturesDeleted, before.texturesDeleted + 1);

  for (GLsizei side = 1; side <= 100; ++side) textureOf(*graphics.cache, makeBuffer(side, 1));
  EXPECT_LT(texturesAlive(), 25 + aliveBefore) << "idle textures are bounded without a flush too";
}

// A buffer that goes while its sharegroup is current, as in a movie's source, and one that goes anywhere.
TEST(TextureReuse, OfBuffersThatWereSeenOnceNoTexturesPileUp) {
  GraphicsThread graphics;
  const auto before = texturesAlive();
  std::deque<std::shared_ptr<PixelBuffer>> held;
  for (int i = 0; i < 100; ++i) {
    held.push_back(makeBuffer(16, 8));
    writeColour(*held.back(), kColour);
    textureOf(*graphics.cache, held.back());
    if (held.size() <= 4) continue;
    if (i % 2 == 0) {
      held.pop_front();
    } else {
      graphics.run([&] { held.pop_front(); });
    }
  }
  EXPECT_LT(texturesAlive() - before, 10U);
}

}  // namespace
}  // namespace tavrel
