#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Capture/CaptureAudioDataOutput.h"
#include "Platform/Capture/CaptureSession.h"
#include "Platform/Capture/CaptureStillImageOutput.h"
#include "Platform/Capture/CaptureVideoDataOutput.h"
#include "Platform/Foundation/NotificationCenter.h"

namespace tavrel::test {

/// Tests see the same devices on every machine, unless somebody asks for others.
inline const int kVirtualDevicesByDefault = setenv("TAVREL_CAPTURE", "virtual", 0);

/// How many times slower than others this machine is (TAVREL_TEST_PATIENCE), as one that is translated.
inline int patienceFactor() {
  const char* const factor = std::getenv("TAVREL_TEST_PATIENCE");
  return factor ? std::max(1, std::atoi(factor)) : 1;
}

/// Waits until `condition` holds; false when it does not within `patience`.
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds patience = std::chrono::seconds(20)) {
  const auto deadline = std::chrono::steady_clock::now() + patience * patienceFactor();
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

/// Keeps what a video data output delivers.
class FrameCollector : public CaptureVideoDataOutputSampleBufferDelegate {
 public:
  /// Called for each picture, on the delegate's queue.
  std::function<void(const std::shared_ptr<SampleBuffer>&)> onFrame;

  void didOutputSampleBuffer(CaptureVideoDataOutput&, const std::shared_ptr<SampleBuffer>& sample,
                             const std::shared_ptr<CaptureConnection>& connection) override {
    {
      const std::lock_guard lock(mutex_);
      latest_ = sample;
      connection_ = connection;
      times_.push_back(sample->presentationTimeStamp());
    }
    if (onFrame) onFrame(sample);
  }
  void didDropSampleBuffer(CaptureVideoDataOutput&, const SampleTiming& timing, CaptureDroppedFrameReason reason,
                           const std::shared_ptr<CaptureConnection>&) override {
    const std::lock_guard lock(mutex_);
    drops_.push_back(reason);
    dropTimes_.push_back(timing.presentationTimeStamp);
  }

  std::size_t count() const {
    const std::lock_guard lock(mutex_);
    return times_.size();
  }
  std::vector<MediaTime> times() const {
    const std::lock_guard lock(mutex_);
    return times_;
  }
  std::vector<CaptureDroppedFrameReason> drops() const {
    const std::lock_guard lock(mutex_);
    return drops_;
  }
  std::vector<MediaTime> dropTimes() const {
    const std::lock_guard lock(mutex_);
    return dropTimes_;
  }
  std::shared_ptr<SampleBuffer> latest() const {
    const std::lock_guard lock(mutex_);
    return latest_;
  }
  std::shared_ptr<CaptureConnection> connection() const {
    const std::lock_guard lock(mutex_);
    return connection_;
  }
  void clear() {
    const std::lock_guard lock(mutex_);
    latest_ = nullptr;
    times_.clear();
    drops_.clear();
    dropTimes_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<SampleBuffer> latest_;
  std::shared_ptr<CaptureConnection> connection_;
  std::vector<MediaTime> times_;
  std::vector<MediaTime> dropTimes_;
  std::vector<CaptureDroppedFrameReason> drops_;
};

/// Keeps the sound of an audio data output, its first channel as floats.
class SoundCollector : public CaptureAudioDataOutputSampleBufferDelegate {
 public:
  void didOutputSampleBuffer(CaptureAudioDataOutput&, const std::shared_ptr<SampleBuffer>& sample,
                             const std::shared_ptr<CaptureConnection>&) override {
    const std::lock_guard lock(mutex_);
    const AudioFormat& format = sample->format()->audioFormat;
    if (!start_.isValid()) start_ = sample->presentationTimeStamp();
    rate_ = format.sampleRate;
    const AudioBuffer& buffer = sample->audioBufferList()->buffers().front();
    const std::size_t step = format.channelsPerBuffer();
    for (std::size_t i = 0; i < static_cast<std::size_t>(sample->numSamples()); ++i) {
      samples_.push_back(format.sampleType == AudioSampleType::float32
                             ? static_cast<const float*>(buffer.data)[i * step]
                             : static_cast<const std::int16_t*>(buffer.data)[i * step] / 32768.0F);
    }
  }

  std::vector<float> samples() const {
    const std::lock_guard lock(mutex_);
    return samples_;
  }
  std::size_t count() const {
    const std::lock_guard lock(mutex_);
    return samples_.size();
  }
  MediaTime start() const {
    const std::lock_guard lock(mutex_);
    return start_;
  }
  double rate() const {
    const std::lock_guard lock(mutex_);
    return rate_;
  }
  void clear() {
    const std::lock_guard lock(mutex_);
    samples_.clear();
    start_ = {};
  }

 private:
  mutable std::mutex mutex_;
  std::vector<float> samples_;
  MediaTime start_;
  double rate_ = 0;
};

/// Counts posts of one notification while this lives.
class NotificationCounter {
 public:
  explicit NotificationCounter(const char* name, const void* object = nullptr)
      : token_(NotificationCenter::defaultCenter().addObserver(
            name, [count = count_](std::string_view, const void*) { ++*count; }, object)) {}
  NotificationCounter(const NotificationCounter&) = delete;
  NotificationCounter& operator=(const NotificationCounter&) = delete;
  ~NotificationCounter() { NotificationCenter::defaultCenter().removeObserver(token_); }

  int count() const { return *count_; }

 private:
  std::shared_ptr<std::atomic<int>> count_ = std::make_shared<std::atomic<int>>(0);
  NotificationCenter::ObserverToken token_;
};

/// A session with one camera, a data output and a still image output.
struct CameraBench {
  explicit CameraBench(const std::shared_ptr<CaptureDevice>& camera, const char* preset = "320x240")
      : device(camera), input(CaptureDeviceInput::create(camera).value()) {
    data->setSampleBufferDelegate(frames, queue);
    session->beginConfiguration();
    session->setSessionPreset(preset);
    session->addOutput(data);
    session->addOutput(still);
    session->addInput(input);
    session->commitConfiguration();
  }
  ~CameraBench() {
    session->stopRunning();
    queue->sync([] {});
  }
  CameraBench(const CameraBench&) = delete;
  CameraBench& operator=(const CameraBench&) = delete;

  /// Makes settings on the device.
  template <typename Change>
  void configure(Change change) const {
    ASSERT_TRUE(device->lockForConfiguration().has_value());
    change(*device);
    device->unlockForConfiguration();
  }

  std::shared_ptr<CaptureDevice> device;
  std::shared_ptr<CaptureDeviceInput> input;
  std::shared_ptr<CaptureSession> session = CaptureSession::create();
  std::shared_ptr<CaptureVideoDataOutput> data = CaptureVideoDataOutput::create();
  std::shared_ptr<CaptureStillImageOutput> still = CaptureStillImageOutput::create();
  std::shared_ptr<FrameCollector> frames = std::make_shared<FrameCollector>();
  std::shared_ptr<DispatchQueue> queue = DispatchQueue::create("test.capture");
};

}  // namespace tavrel::test
