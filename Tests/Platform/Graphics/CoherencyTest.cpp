// Which of a pixel buffer's two pictures is the newest, and what moves when.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Graphics/TextureCache.h"
#include "Support/GraphicsThread.h"

namespace tavrel {
namespace {

/// One buffer, its texture on the graphics thread, and a model of both.
class Scene {
 public:
  Scene(std::size_t width, std::size_t height)
      : buffer_(makeBuffer(width, height)), lastX_(width - 1), lastY_(height - 1) {}

  void step(char operation) {
    const auto before = TextureCache::statistics();
    switch (operation) {
      case 'w':  // the CPU writes
        expectDownload(gpuNewer_);
        writeColour(*buffer_, nextColour());
        cpuNewer_ = true;
        gpuNewer_ = false;
        break;
      case 'd':  // the GPU draws
        expectUpload(cpuNewer_);
        refreshTexture();
        graphics_.run([&] { drawColour(*texture_, nextColour()); });
        gpuNewer_ = true;
        break;
      case 'r':  // the CPU reads
        expectDownload(gpuNewer_);
        EXPECT_EQ(bufferPixel(*buffer_, lastX_, lastY_), colour_);
        gpuNewer_ = false;
        break;
      case 's':  // somebody takes a snapshot, and keeps the one before
        expectDownload(gpuNewer_);
        checkSnapshots();
        older_ = std::move(newer_);
        newer_ = {buffer_->snapshot(), colour_};
        gpuNewer_ = false;
        break;
      case 't':  // the GPU reads
        expectUpload(cpuNewer_);
        refreshTexture();
        graphics_.run([&] {
          EXPECT_EQ(texturePixel(*texture_, static_cast<GLint>(lastX_), static_cast<GLint>(lastY_)), colour_);
        });
        break;
      default: FAIL() << operation;
    }
    checkSnapshots();
    if (!buffer_->sharesMemory()) {
      const auto after = TextureCache::statistics();
      EXPECT_EQ(after.uploads - before.uploads, uploads_);
      EXPECT_EQ(after.downloads - before.downloads, downloads_);
    }
    uploads_ = downloads_ = 0;
  }

 private:
  struct Kept {
    std::shared_ptr<const PixelBufferSnapshot> snapshot;
    BGRA colour{};
  };

  const BGRA& nextColour() {
    ++serial_;
    colour_ = {static_cast<std::uint8_t>(serial_), static_cast<std::uint8_t>(serial_ >> 8), 77, 255};
    return colour_;
  }

  void refreshTexture() {
    texture_ = textureOf(*graphics_.cache, buffer_);
    cpuNewer_ = false;
  }

  void checkSnapshots() {
    for (const Kept* kept : {&older_, &newer_}) {
      if (kept->snapshot == nullptr) continue;
      EXPECT_EQ(snapshotPixel(*kept->snapshot, lastX_, lastY_), kept->colour);
    }
  }

  void expectUpload(bool expected) { uploads_ = expected ? 1 : 0; }
  void expectDownload(bool expected) { downloads_ = expected ? 1 : 0; }

  GraphicsThread graphics_;
  std::shared_ptr<PixelBuffer> buffer_;
  std::shared_ptr<TextureCacheTexture> texture_;
  std::size_t lastX_;
  std::size_t lastY_;
  Kept older_, newer_;
  BGRA colour_{};
  int serial_ = 0;
  bool cpuNewer_ = false;
  bool gpuNewer_ = false;
  std::uint64_t uploads_ = 0;
  std::uint64_t downloads_ = 0;
};

class SequenceOfAccesses : public testing::TestWithParam<const char*> {};

TEST_P(SequenceOfAccesses, ShowsTheNewestPictureAndMovesItOnce) {
  Scene scene(4, 3);
  const std::string sequence = GetParam();
  for (std::size_t i = 0; i < sequence.size(); ++i) {
    SCOPED_TRACE(sequence.substr(0, i + 1));
    scene.step(sequence[i]);
  }
}

INSTANTIATE_TEST_SUITE_P(Coherency, SequenceOfAccesses,
                         testing::Values("rs", "wttrt", "wrtrt", "dtrrtr", "dwt", "wdr", "wtdrrtt", "drwtr", "dssr",
                                         "dsdsds", "wswsrs", "dswst", "dsdrdt", "wwtt", "ddrr"));

TEST(Coherency, HoldsOverRandomSequencesAndOddSizes) {
  const std::pair<std::size_t, std::size_t> sizes[] = {{1, 1}, {3, 5}, {17, 2}};
  for (auto [width, height] : sizes) {
    std::mt19937 random(static_cast<unsigned>(width * 100 + height));
    Scene scene(width, height);
    std::string sequence;
    for (int i = 0; i < 300 && !testing::Test::HasFailure(); ++i) {
      sequence.push_back("wdrst"[random() % 5]);
      SCOPED_TRACE(sequence);
      scene.step(sequence.back());
    }
  }
}

TEST(Coherency, ReadOnlyLockDoesNotUploadAgain) {
  GraphicsThread graphics;
  auto buffer = makeBuffer(4, 4);
  writeColour(*buffer, {1, 2, 3, 4});
  auto texture = textureOf(*graphics.cache, buffer);
  const auto before = TextureCache::statistics();
  bufferPixel(*buffer);
  auto again = textureOf(*graphics.cache, buffer);
  EXPECT_EQ(again->name(), texture->name());
  EXPECT_EQ(TextureCache::statistics().uploads, before.uploads);
}

TEST(Coherency, WhatTheGPUDrawsDuringAWriteLockIsNotLost) {
  GraphicsThread graphics;
  auto buffer = makeBuffer(4, 4);
  auto texture = textureOf(*graphics.cache, buffer);
  buffer->lockBaseAddress(PixelBufferLock::readWrite);
  graphics.run([&] { drawColour(*texture, {9, 8, 7, 255}); });
  buffer->unlockBaseAddress(PixelBufferLock::readWrite);
  EXPECT_EQ(bufferPixel(*buffer), (BGRA{9, 8, 7, 255}));
}

TEST(Coherency, BytesWrittenDuringALockReachATextureMadeBefore) {
  GraphicsThread graphics;
  auto buffer = makeBuffer(1, 1);
  buffer->lockBaseAddress(PixelBufferLock::readWrite);
  buffer->baseAddress()[0] = 1;
  auto texture = textureOf(*graphics.cache, buffer);
  graphics.run([&] { EXPECT_EQ(texturePixel(*texture)[0], 1); });
  buffer->baseAddress()[0] = 2;
  buffer->unlockBaseAddress(PixelBufferLock::readWrite);
  texture = textureOf(*graphics.cache, buffer);
  graphics.run([&] { EXPECT_EQ(texturePixel(*texture)[0], 2); });
}

TEST(Coherency, ContextsOfOneSharegroupShareTheTexture) {
  GraphicsThread first;
  GraphicsThread second(first.context->sharegroup());
  auto buffer = makeBuffer(4, 4);
  auto texture = textureOf(*first.cache, buffer);
  first.run([&] {
    drawColour(*texture, {5, 6, 7, 255});
    glFinish();
  });
  const auto before = TextureCache::statistics();
  auto same = textureOf(*second.cache, buffer);
  EXPECT_EQ(same->name(), texture->name());
  EXPECT_EQ(TextureCache::statistics().uploads, before.uploads);
  EXPECT_EQ(TextureCache::statistics().downloads, before.downloads);
  second.run([&] { EXPECT_EQ(texturePixel(*same), (BGRA{5, 6, 7, 255})); });
}

TEST(Coherency, PictureTravelsBetweenSharegroups) {
  GraphicsThread first;
  GraphicsThread second;
  auto buffer = makeBuffer(3, 5);
  auto here = textureOf(*first.cache, buffer);
  for (std::uint8_t i = 1; i < 5; ++i) {
    first.run([&] { drawColour(*here, {i, 0, 0, 255}); });
    auto there = textureOf(*second.cache, buffer);
    second.run([&] {
      EXPECT_EQ(texturePixel(*there, 2, 4), (BGRA{i, 0, 0, 255}));
      drawColour(*there, {0, i, 0, 255});
    });
    here = textureOf(*first.cache, buffer);
    first.run([&] { EXPECT_EQ(texturePixel(*here, 2, 4), (BGRA{0, i, 0, 255})); });
    EXPECT_EQ(bufferPixel(*buffer), (BGRA{0, i, 0, 255}));
  }
}

}  // namespace
}  // namespace tavrel
