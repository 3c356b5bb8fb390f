#pragma once

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Support/GraphTestSupport.h"
#include "Support/ReaderMovies.h"

namespace tavrel::test {

/// A target that notes when frames come and how bright their middle is.
class MovieTarget : public RecordingTarget {
 public:
  void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer, Index) override {
    framebuffer_ = std::move(framebuffer);
    if (framebuffer_) framebuffer_->lock();
  }
  void newFrameReadyAtTime(MediaTime time, Index) override {
    times.push_back(time.seconds());
    arrivals.push_back(DisplayLink::hostTime());
    if (framebuffer_) {
      levels.push_back(middleOf(framebuffer_->texture(), framebuffer_->size()));
      framebuffer_->unlock();
    }
    framebuffer_.reset();
    if (onFrame) onFrame();
  }
  void endProcessing() override { ++ends; }

  std::vector<double> times;
  std::vector<double> arrivals;
  std::vector<int> levels;
  std::atomic<int> ends = 0;
  std::function<void()> onFrame;

 private:
  static int middleOf(GLuint texture, Size size) {
    GLuint name = 0;
    glGenFramebuffers(1, &name);
    glBindFramebuffer(GL_FRAMEBUFFER, name);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
    std::array<std::uint8_t, 4> pixel{};
    glReadPixels(static_cast<GLint>(size.width / 2), static_cast<GLint>(size.height / 2), 1, 1, GL_RGBA,
                 GL_UNSIGNED_BYTE, pixel.data());
    glDeleteFramebuffers(1, &name);
    return pixel[1];
  }

  std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer_;
};

class MovieDelegate : public TavrelGPUImageMovieDelegate {
 public:
  void didCompletePlayingMovie() override {
    if (++completions == 1) completed.set_value();
  }
  std::shared_ptr<PixelBuffer> didOutputPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                    MediaTime) override {
    return replacement ? replacement : pixelBuffer;
  }

  std::atomic<int> completions = 0;
  std::promise<void> completed;
  std::shared_ptr<PixelBuffer> replacement;
};

/// A movie in front of a target, with files that ffmpeg makes.
class MovieTest : public ::testing::Test {
 protected:
  /// Frames that get brighter by 6 of 255 from one to the next, at 25 a second.
  void makeRamp(const char* name, int frames, const std::string& encoding = "-c:v libx264 -qp 5 -bf 2 -g 8",
                const std::string& sound = "") {
    makeMovie(folder_ / name, "-f lavfi -i \"color=black:size=64x48:rate=25:duration=" + std::to_string(frames / 25.0) +
                                  ",format=gray,geq=lum='20+6*N',format=yuv420p\" " + sound + " " + encoding + " -t " +
                                  std::to_string(frames / 25.0) + " OUT");
  }
  void connect(const std::shared_ptr<TavrelGPUImageMovie>& movie) {
    movie_ = movie;
    movie_->addTarget(target_);
    movie_->setDelegate(delegate_);
  }
  void openFile(const char* name) { connect(std::make_shared<TavrelGPUImageMovie>(folder_ / name)); }
  void openAsset(const char* name) {
    connect(std::make_shared<TavrelGPUImageMovie>(Asset::create(folder_ / name).value()));
  }
  void waitForTheEnd() {
    ASSERT_EQ(delegate_->completed.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
  }

  ReaderFolder folder_;
  std::shared_ptr<MovieTarget> target_ = std::make_shared<MovieTarget>();
  std::shared_ptr<MovieDelegate> delegate_ = std::make_shared<MovieDelegate>();
  std::shared_ptr<TavrelGPUImageMovie> movie_;
};

}  // namespace tavrel::test
