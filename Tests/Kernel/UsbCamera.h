#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "Platform/Foundation/Data.h"

namespace tavrel::test {

/// A webcam on the kernel's virtual USB bus (vhci-hcd), plugged in while this lives. The kernel's own driver takes it
/// for a real one: USB/IP (https://docs.kernel.org/usb/usbip_protocol.html) carries what a device of the USB Video
/// Class 1.0 with a bulk endpoint says. Its picture is red on the left and blue on the right.
class UsbCamera {
 public:
  static constexpr int kWidth = 160;
  static constexpr int kHeight = 120;
  static constexpr int kYuyvRate = 10;
  static constexpr int kJpegRate = 20;

  /// Throws with the system's reason when it cannot be plugged in.
  UsbCamera();
  UsbCamera(const UsbCamera&) = delete;
  UsbCamera& operator=(const UsbCamera&) = delete;
  ~UsbCamera();

  /// From now on it stalls when its stream is to start.
  void refuseStarts(bool isRefusing);
  /// It calls its next pictures damaged.
  void damagePictures(int count);
  /// How often a stream of it was to start.
  int starts() const;
  /// What a control of its camera terminal stands at, by the control's selector.
  int control(int selector) const;

 private:
  struct Transfer {
    std::uint32_t sequence = 0;
    std::uint32_t length = 0;
  };

  void run(const std::stop_token& stop);
  bool handleRequest();
  /// The answer to a control transfer; nothing: stalled.
  std::optional<Data> answer(const std::array<std::uint8_t, 8>& setup, const Data& received);
  std::optional<Data> answerStreaming(const std::array<std::uint8_t, 8>& setup, const Data& received);
  std::optional<Data> answerTerminal(const std::array<std::uint8_t, 8>& setup, const Data& received);
  void complete(std::uint32_t sequence, std::int32_t status, std::size_t length, const Data& data) const;
  /// Fills waiting transfers, the last one of each picture not to its end.
  void sendPictures();
  void beginPicture();

  int socket_ = -1;
  std::array<Data, 2> pictures_;  // by format
  std::deque<Transfer> waiting_;
  Data settings_;  // of the stream, as they were tried or committed to last
  bool isStreaming_ = false;
  Data payload_;
  std::size_t sent_ = 0;
  std::uint32_t count_ = 0;
  std::int64_t due_ = 0;

  mutable std::mutex mutex_;
  bool isRefusing_ = false;
  int toDamage_ = 0;
  int starts_ = 0;
  std::map<int, int> controls_;
  std::jthread thread_;
};

}  // namespace tavrel::test
