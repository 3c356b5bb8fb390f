#include "Platform/Graphics/TextureCache.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <thread>
#include <vector>

#include "Platform/Graphics/GraphicsStatus.h"
#include "Platform/Graphics/PixelBufferPool.h"
#include "Support/GraphicsThread.h"

namespace tavrel {
namespace {

struct Refusal {
  GLint internalFormat;
  GLsizei width, height;
  GLenum format, type;
  std::size_t plane;
  GraphicsStatus status;
};

TEST(TextureCache, SaysWhyARequestIsRefused) {
  GraphicsThread graphics;
  const Refusal refusals[] = {
      {GL_RGBA, 4, 3, GL_BGRA_EXT, GL_UNSIGNED_BYTE, 1, GraphicsStatus::invalidArgument},
      {GL_RGBA, 3, 3, GL_BGRA_EXT, GL_UNSIGNED_BYTE, 0, GraphicsStatus::invalidSize},
      {GL_RGBA, -4, 3, GL_BGRA_EXT, GL_UNSIGNED_BYTE, 0, GraphicsStatus::invalidSize},
      {GL_RGB, 4, 3, GL_RGB, GL_UNSIGNED_BYTE, 0, GraphicsStatus::incompatibleFormat},
      {GL_RGBA, 4, 3, GL_BGRA_EXT, GL_FLOAT, 0, GraphicsStatus::incompatibleFormat},
      {GL_LUMINANCE, 4, 3, GL_LUMINANCE, GL_UNSIGNED_BYTE, 0, GraphicsStatus::incompatibleFormat},
  };
  auto buffer = makeBuffer(4, 3);
  for (const Refusal& refusal : refusals) {
    auto texture = graphics.cache->createTextureFromPixelBuffer(
        buffer, refusal.internalFormat, refusal.width, refusal.height, refusal.format, refusal.type, refusal.plane);
    ASSERT_FALSE(texture);
    EXPECT_EQ(texture.error().code, static_cast<std::int64_t>(refusal.status)) << texture.error().description;
  }
  EXPECT_FALSE(graphics.cache->createTextureFromPixelBuffer(nullptr, GL_RGBA, 1, 1, GL_BGRA_EXT, GL_UNSIGNED_BYTE, 0));
  EXPECT_FALSE(TextureCache::create(nullptr, {}));

  auto huge = makeBuffer(32767, 1);  // wider than the driver's limit of this machine or another
  GLint limit = 0;
  graphics.run([&] { glGetIntegerv(GL_MAX_TEXTURE_SIZE, &limit); });
  if (limit < 32767) {
    auto texture =
        graphics.cache->createTextureFromPixelBuffer(huge, GL_RGBA, 32767, 1, GL_BGRA_EXT, GL_UNSIGNED_BYTE, 0);
    ASSERT_FALSE(texture);
    EXPECT_EQ(texture.error().code, static_cast<std::int64_t>(GraphicsStatus::graphicsCommandFailed));
  }
}

TEST(TextureCache, LeavesGLAsItWas) {
  GraphicsThread graphics;
  auto buffer = makeBuffer(3, 5);
  writeColour(*buffer, kColour);
  graphics.run([&] {
    GLuint mine = 0, framebuffer = 0;
    glGenTextures(1, &mine);
    glBindTexture(GL_TEXTURE_2D, mine);
    glGenFramebuffers(1, &framebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 2);
    glPixelStorei(GL_PACK_ALIGNMENT, 8);
    auto texture = textureOf(*graphics.cache, buffer);
    buffer->noteGPUWrite();
    EXPECT_EQ(bufferPixel(*buffer, 2, 4), kColour);
    const std::pair<GLenum, GLint> expected[] = {{GL_TEXTURE_BINDING_2D, static_cast<GLint>(mine)},
                                                 {GL_FRAMEBUFFER_BINDING, static_cast<GLint>(framebuffer)},
                                                 {GL_UNPACK_ALIGNMENT, 2},
                                                 {GL_PACK_ALIGNMENT, 8}};
    for (auto [parameter, value] : expected) {
      GLint found = -1;
      glGetIntegerv(parameter, &found);
      EXPECT_EQ(found, value) << std::hex << parameter;
    }
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
    GLint filter = 0;
    glBindTexture(GL_TEXTURE_2D, texture->name());
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &filter);
    EXPECT_EQ(filter, GL_LINEAR);
    glDeleteFramebuffers(1, &framebuffer);
    glDeleteTextures(1, &mine);
  });
}

TEST(TextureCache, ShowsThePlanesOf420) {
  GraphicsThread graphics;
  auto buffer = makeBuffer(5, 3, PixelFormat::biPlanar420VideoRange);
  buffer->lockBaseAddress(PixelBufferLock::readWrite);
  for (std::size_t plane = 0; plane < 2; ++plane) {
    const PixelPlane& layout = buffer->layout().planes[plane];
    for (std::size_t y = 0; y < layout.height; ++y) {
      for (std::size_t i = 0; i < layout.width * layout.bytesPerSample; ++i) {
        buffer->baseAddressOfPlane(plane)[y * layout.bytesPerRow + i] =
            static_cast<std::uint8_t>(100 * plane + 10 * y + i);
      }
    }
  }
  buffer->unlockBaseAddress(PixelBufferLock::readWrite);
  const auto before = TextureCache::statistics();
  auto luma = graphics.cache->createTextureFromPixelBuffer(buffer, GL_RED_EXT, 5, 3, GL_RED_EXT, GL_UNSIGNED_BYTE, 0);
  auto chroma = graphics.cache->createTextureFromPixelBuffer(buffer, GL_RG_EXT, 3, 2, GL_RG_EXT, GL_UNSIGNED_BYTE, 1);
  ASSERT_TRUE(luma && chroma);
  EXPECT_EQ(TextureCache::statistics().bytesUploaded - before.bytesUploaded, 5U * 3 + 3 * 2 * 2);
  graphics.run([&] {
    EXPECT_EQ(texturePixel(**luma, 4, 2)[2], 24);
    EXPECT_EQ(texturePixel(**chroma, 2, 1)[2], 114);
    EXPECT_EQ(texturePixel(**chroma, 2, 1)[1], 115);
  });
  auto asLuminance =
      graphics.cache->createTextureFromPixelBuffer(buffer, GL_LUMINANCE, 5, 3, GL_LUMINANCE, GL_UNSIGNED_BYTE, 0);
  ASSERT_TRUE(asLuminance);
  EXPECT_NE((*asLuminance)->name(), (*luma)->name()) << "a texture in use keeps its format";
}

TEST(TextureCache, OnlyBuffersForBothShareMemory) {
  GraphicsThread graphics;
  EXPECT_EQ(makeBuffer(16, 8)->sharesMemory(), TextureCache::sharesMemory());
  EXPECT_FALSE(makeStagedBuffer(16, 8)->sharesMemory());
}

TEST(TextureCache, WorksWhereverTheCallComesFrom) {
  auto context = GLContext::create().value();
  auto cache = TextureCache::create(context, {}).value();  // no executor: the sharegroup's own context helps out
  auto buffer = makeBuffer(4, 4);
  writeColour(*buffer, kColour);
  auto stranger = GLContext::create().value();
  ASSERT_TRUE(stranger->makeCurrent());
  auto texture = textureOf(*cache, buffer);
  EXPECT_EQ(GLContext::current(), stranger.get());
  GLint version = 0;
  glGetIntegerv(GL_MAX_TEXTURE_SIZE, &version);
  EXPECT_GT(version, 0) << "the caller's context is put back";
  ASSERT_TRUE(context->makeCurrent());
  EXPECT_EQ(texturePixel(*texture), kColour);
  drawColour(*texture, {1, 2, 3, 255});
  glFinish();
  GLContext::clearCurrent();
  EXPECT_EQ(bufferPixel(*buffer), (BGRA{1, 2, 3, 255}));
}

TEST(TextureCache, ThreadsMayShareOneBuffer) {
  GraphicsThread graphics;
  auto buffer = makeBuffer(32, 16);
  auto pool = PixelBufferPool::create(8, 8, PixelFormat::bgra32).value();
  writeColour(*buffer, kColour);
  constexpr int kRounds = 60;
  std::vector<std::thread> threads;
  threads.emplace_back([&] {
    for (int i = 0; i < kRounds; ++i) {
      graphics.run([&] { drawColour(*textureOf(*graphics.cache, buffer), {static_cast<std::uint8_t>(i), 1, 1, 255}); });
    }
  });
  threads.emplace_back([&] {
    std::deque<std::shared_ptr<const PixelBufferSnapshot>> kept;
    for (int i = 0; i < kRounds; ++i) {
      kept.push_back(buffer->snapshot());
      ASSERT_NE(kept.back(), nullptr);
      EXPECT_EQ(snapshotPixel(*kept.front()), snapshotPixel(*kept.front(), 31, 15)) << "a picture is never torn";
      if (kept.size() > 3) kept.pop_front();
    }
  });
  threads.emplace_back([&] {
    for (int i = 0; i < kRounds; ++i) EXPECT_EQ(bufferPixel(*buffer)[3], 255);
  });
  threads.emplace_back([&] {
    for (int i = 0; i < kRounds; ++i) {
      auto mine = pool->createPixelBuffer().value();
      writeColour(*mine, kColour);
      auto texture = textureOf(*graphics.cache, mine);
      if (i % 8 == 0) graphics.cache->flush();
    }
  });
  for (std::thread& thread : threads) thread.join();
}

// Runs in a process of its own, where nobody has asked yet.
[[noreturn]] void decideAndReport(const char* environment, int choice) {
  if (environment != nullptr) setenv("TAVREL_FAST_TEXTURE_UPLOAD", environment, 1);  // NOLINT(concurrency-mt-unsafe)
  if (choice >= 0) TextureCache::setSupported(choice == 1);
  const bool first = TextureCache::isSupported();
  TextureCache::setSupported(!first);
  std::_Exit((first ? 1 : 0) | (TextureCache::isSupported() == first ? 2 : 0));
}

TEST(TextureCacheDeathTest, SupportIsDecidedOnce) {
  EXPECT_EXIT(decideAndReport("1", -1), testing::ExitedWithCode(2 | 1), "");
  EXPECT_EXIT(decideAndReport("0", -1), testing::ExitedWithCode(2), "");
  EXPECT_EXIT(decideAndReport("0", 1), testing::ExitedWithCode(2 | 1), "");
  EXPECT_EXIT(decideAndReport("1", 0), testing::ExitedWithCode(2), "");
}

}  // namespace
}  // namespace tavrel
