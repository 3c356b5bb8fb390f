// Context, cache, queue, buffer and texture end in any order, and after main.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "Platform/Graphics/TextureCache.h"
#include "Support/GraphicsThread.h"

namespace tavrel {
namespace {

/// What may be torn down, in every order: the context, the cache, the buffer and the texture.
class TeardownOrder : public testing::TestWithParam<const char*> {};

TEST_P(TeardownOrder, FreesTexturesAndKeepsThePicture) {
  const auto before = TextureCache::statistics();
  auto graphics = std::make_unique<GraphicsThread>();
  auto buffer = makeBuffer(4, 4);
  auto texture = textureOf(*graphics->cache, buffer);
  graphics->run([&] {
    drawColour(*texture, kColour);
    glFinish();
  });
  for (const char* step = GetParam(); *step != 0; ++step) {
    switch (*step) {
      case 'x': graphics->context.reset(); break;
      case 'c': graphics->cache.reset(); break;
      case 'q': graphics->queue->shutDown(); break;
      case 't': texture.reset(); break;
      case 'r': EXPECT_EQ(bufferPixel(*buffer, 3, 3), kColour); break;
      case 'b': buffer.reset(); break;
      default: FAIL() << *step;
    }
  }
  graphics.reset();
  const auto after = TextureCache::statistics();
  EXPECT_EQ(after.texturesCreated - before.texturesCreated, 1U);
  EXPECT_EQ(after.texturesDeleted - before.texturesDeleted, 1U);
}

INSTANTIATE_TEST_SUITE_P(TextureCache, TeardownOrder,
                         testing::Values("btxcq", "tbcxq", "xrtbc", "xcrtb", "cxrbt", "crtbx", "cqxrtb", "qrxctb",
                                         "qxtrcb", "qcrbtx", "txbqc"));

// Runs in a process of its own: what it keeps is destroyed after main, in an order that nobody chose.
[[noreturn]] void leaveWithEverythingAlive() {
  static std::shared_ptr<PixelBuffer> buffer = makeBuffer(4, 4);
  static GraphicsThread graphics;
  static std::shared_ptr<GLContext> current = GLContext::create(graphics.context->sharegroup()).value();
  static std::shared_ptr<TextureCacheTexture> texture = textureOf(*graphics.cache, buffer);
  graphics.run([&] { drawColour(*texture, kColour); });
  if (!current->makeCurrent()) std::_Exit(1);
  std::exit(0);  // NOLINT(concurrency-mt-unsafe): this is what is tested
}

TEST(TextureTeardownDeathTest, ObjectsMayDieAfterMain) {
  EXPECT_EXIT(leaveWithEverythingAlive(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace tavrel
