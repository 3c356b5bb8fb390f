#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Capture/CaptureSession.h"
#include "Platform/Capture/Private/CaptureSource.h"
#include "Platform/Dispatch/DispatchQueue.h"

namespace tavrel {

/// The session itself, which devices and the watch over them hold weakly; what its users hold stops it at its end.
///
/// Devices open on a queue of the session's own, since one that does not start takes seconds: of those who change the
/// session only `startRunning` waits for that. Two locks: `operation_` is held through a whole change, `state_` only
/// while values are read or written, so that getters never wait for a device that closes.
class CaptureSessionCore : public CaptureSession, public std::enable_shared_from_this<CaptureSessionCore> {
 public:
  ~CaptureSessionCore() override;

  void setOwner(std::weak_ptr<CaptureSession> owner);

  std::string sessionPreset() const override;
  bool canSetSessionPreset(std::string_view preset) const override;
  void setSessionPreset(std::string_view preset) override;
  void beginConfiguration() override;
  void commitConfiguration() override;
  bool canAddInput(const std::shared_ptr<CaptureDeviceInput>& input) const override;
  void addInput(const std::shared_ptr<CaptureDeviceInput>& input) override;
  void removeInput(const std::shared_ptr<CaptureDeviceInput>& input) override;
  std::vector<std::shared_ptr<CaptureDeviceInput>> inputs() const override;
  bool canAddOutput(const std::shared_ptr<CaptureOutput>& output) const override;
  void addOutput(const std::shared_ptr<CaptureOutput>& output) override;
  void removeOutput(const std::shared_ptr<CaptureOutput>& output) override;
  std::vector<std::shared_ptr<CaptureOutput>> outputs() const override;
  void startRunning() override;
  void stopRunning() override;
  bool isRunning() const override { return isRunning_; }
  std::optional<Error> runtimeError() const override;

  // From devices and sources; none of these blocks, except the first, which may reopen the device.
  void deviceFormatWasSet();
  void deviceWentAway(const std::shared_ptr<CaptureDevice>& device);
  void deviceCameBack();
  void sourceDelivers(const std::shared_ptr<CaptureSource>& source);
  void sourceFailed(const std::shared_ptr<CaptureSource>& source, Error error);

 private:
  /// What is open of one media type.
  struct Slot {
    std::shared_ptr<CaptureSource> source;
    bool isOpening = false;  // the driver has not answered yet
    bool hasFailed = false;  // and has been reported
  };

  // All of these with `operation_` held.
  void refresh();
  void refreshSlot(MediaType mediaType, Slot& slot);
  void open(Slot& slot, const std::shared_ptr<CaptureDevice>& device);
  void finishOpening(Slot& slot, const CaptureRun& run, Expected<void> started);
  void close(Slot& slot);
  void fail(Slot& slot, Error error);
  void watch(unsigned runNumber);
  void look();
  void chooseFormat(const std::shared_ptr<CaptureDevice>& device) const;
  Slot* slotOf(const std::shared_ptr<CaptureSource>& source);

  /// Takes the lock when the driver has answered.
  void didOpen(const std::shared_ptr<CaptureSource>& source, const CaptureRun& run, Expected<void> started);

  std::shared_ptr<CaptureDevice> deviceOf(MediaType mediaType) const;
  std::vector<std::shared_ptr<CaptureOutput>> outputsOf(MediaType mediaType) const;
  bool isInputAddable(const std::shared_ptr<CaptureDeviceInput>& input) const;
  void post(const char* name);

  static constexpr std::array<MediaType, 2> kMediaTypes = {MediaType::video, MediaType::audio};

  std::mutex operation_;
  std::condition_variable changed_;  // a slot has opened or was closed
  std::shared_ptr<DispatchQueue> opener_;
  int configurationDepth_ = 0;
  std::array<Slot, 2> slots_;  // by media type
  unsigned runNumber_ = 0;
  std::atomic<bool> isRunning_ = false;

  mutable std::mutex state_;
  std::weak_ptr<CaptureSession> owner_;
  std::string preset_ = kCaptureSessionPresetHigh;
  std::vector<std::shared_ptr<CaptureDeviceInput>> inputs_;
  std::vector<std::shared_ptr<CaptureOutput>> outputs_;
  std::optional<Error> runtimeError_;
};

}  // namespace tavrel
