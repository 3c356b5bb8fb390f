#include "UsbCamera.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "Platform/Imaging/Image.h"
#include "Platform/Imaging/ImageDestination.h"
#include "UsbCameraDescriptors.h"

namespace tavrel::test {
namespace {

constexpr const char* kBus = "/sys/devices/platform/vhci_hcd.0/";
constexpr std::size_t kHeader = 48;
enum : std::uint32_t { kSubmit = 1, kUnlink = 2, kSubmitted = 3, kUnlinked = 4 };

// Requests of the USB Video Class 1.0, A.8.
enum : std::uint8_t { kSetCurrent = 1, kGetCurrent = 0x81, kGetMinimum, kGetMaximum, kGetResolution };
enum : std::uint8_t { kGetInformation = 0x86, kGetDefault = 0x87 };
constexpr std::size_t kSettingsSize = 26;

struct TerminalControl {
  int selector;
  std::size_t size;
  int minimum;
  int maximum;
  int resolution;
  int initial;
};

/// Automatic exposure (manual 1, aperture priority 8), exposure in 100 µs, focus, automatic focus, zoom.
constexpr TerminalControl kControls[] = {{2, 1, 1, 8, 9, 8},
                                         {4, 4, 1, 5000, 1, 157},
                                         {6, 2, 0, 250, 5, 50},
                                         {8, 1, 0, 1, 1, 1},
                                         {0x0b, 2, 100, 400, 1, 100}};

std::uint32_t little(const std::uint8_t* bytes, int count) {
  std::uint32_t value = 0;
  for (int i = count; i-- > 0;) value = value << 8 | bytes[i];
  return value;
}

Data yuyvPicture() {
  Data picture;
  for (int i = 0; i < UsbCamera::kWidth * UsbCamera::kHeight / 2; ++i) {
    const bool isRed = i % (UsbCamera::kWidth / 2) < UsbCamera::kWidth / 4;
    append(picture, {isRed ? 81 : 41, isRed ? 90 : 240, isRed ? 81 : 41, isRed ? 240 : 110});
  }
  return picture;
}

Data jpegPicture() {
  Data pixels;
  for (int i = 0; i < UsbCamera::kWidth * UsbCamera::kHeight; ++i) {
    const bool isRed = i % UsbCamera::kWidth < UsbCamera::kWidth / 2;
    append(pixels, {isRed ? 0 : 255, 0, isRed ? 255 : 0, 255});
  }
  const auto image = Image::create(UsbCamera::kWidth, UsbCamera::kHeight, 8, 32, UsbCamera::kWidth * 4,
                                   kBitmapOpaqueBGRX, DataProvider::create(pixels));
  return ImageDestination::encode(image, "image/jpeg").value();
}

bool readAll(int socket, std::uint8_t* bytes, std::size_t count) {
  for (ssize_t got = 0; count > 0; bytes += got, count -= static_cast<std::size_t>(got)) {
    got = recv(socket, bytes, count, MSG_WAITALL);
    if (got <= 0) return false;
  }
  return true;
}

void writeAll(int socket, const Data& data) {
  for (std::size_t at = 0; at < data.size();) {
    const ssize_t put = send(socket, data.data() + at, data.size() - at, MSG_NOSIGNAL);
    if (put <= 0) return;
    at += static_cast<std::size_t>(put);
  }
}

void appendBig(Data& data, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) data.push_back(static_cast<std::uint8_t>(value >> shift));
}

std::uint32_t big(const std::uint8_t* bytes) {
  std::uint32_t value = 0;
  std::memcpy(&value, bytes, sizeof value);
  return ntohl(value);
}

std::int64_t now() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

}  // namespace

UsbCamera::UsbCamera() : pictures_{yuyvPicture(), jpegPicture()} {
  for (const TerminalControl& control : kControls) controls_[control.selector] = control.initial;
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) throw std::runtime_error("no sockets");
  socket_ = ends[0];
  thread_ = std::jthread([this](const std::stop_token& stop) { run(stop); });
  // The first port, a device number, high speed. The port of one that was plugged out just now takes a moment.
  int code = 0;
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::ofstream attach(std::string(kBus) + "attach");
    attach << "0 " << ends[1] << " 65537 3" << std::flush;
    code = attach ? 0 : errno;
    if (code == 0) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  close(ends[1]);  // the kernel has its own
  if (code == 0) return;
  shutdown(socket_, SHUT_RDWR);
  thread_ = {};
  close(socket_);
  throw std::runtime_error(std::string(kBus) + "attach: " + std::system_category().message(code));
}

UsbCamera::~UsbCamera() {
  thread_.request_stop();
  shutdown(socket_, SHUT_RDWR);
  thread_.join();
  close(socket_);
}

void UsbCamera::refuseStarts(bool isRefusing) {
  const std::lock_guard lock(mutex_);
  isRefusing_ = isRefusing;
}

void UsbCamera::damagePictures(int count) {
  const std::lock_guard lock(mutex_);
  toDamage_ = count;
}

int UsbCamera::starts() const {
  const std::lock_guard lock(mutex_);
  return starts_;
}

int UsbCamera::control(int selector) const {
  const std::lock_guard lock(mutex_);
  return controls_.at(selector);
}

void UsbCamera::run(const std::stop_token& stop) {
  while (!stop.stop_requested()) {
    const bool isSending = isStreaming_ && !waiting_.empty();
    const std::int64_t wait = payload_.empty() ? std::max<std::int64_t>(0, due_ - now()) / 1'000'000 : 0;
    pollfd descriptor = {socket_, POLLIN, 0};
    const int ready = poll(&descriptor, 1, isSending ? static_cast<int>(wait) : -1);
    if (ready > 0 && !handleRequest()) return;
    if (isStreaming_) sendPictures();
  }
}

bool UsbCamera::handleRequest() {
  std::array<std::uint8_t, kHeader> header{};
  if (!readAll(socket_, header.data(), header.size())) return false;
  const std::uint32_t sequence = big(&header[4]);
  if (big(header.data()) == kUnlink) {
    const std::uint32_t unlinked = big(&header[20]);
    const bool isWaiting = std::erase_if(waiting_, [&](const Transfer& one) { return one.sequence == unlinked; }) > 0;
    Data reply;
    for (const std::uint32_t word : {std::uint32_t{kUnlinked}, sequence, 0U, 0U, 0U}) appendBig(reply, word);
    appendBig(reply, isWaiting ? static_cast<std::uint32_t>(-ECONNRESET) : 0);
    reply.resize(kHeader);
    writeAll(socket_, reply);
    return true;
  }
  const bool isIn = big(&header[12]) != 0;
  const std::uint32_t length = big(&header[24]);
  Data received(isIn ? 0 : length);
  if (!readAll(socket_, received.data(), received.size())) return false;
  if (big(&header[16]) != 0) {  // the endpoint
    waiting_.push_back({sequence, length});
    return true;
  }
  std::array<std::uint8_t, 8> setup{};
  std::copy_n(&header[40], setup.size(), setup.begin());
  std::optional<Data> data = answer(setup, received);
  if (data && isIn) data->resize(std::min<std::size_t>(data->size(), length));
  complete(sequence, data ? 0 : -EPIPE, isIn && data ? data->size() : received.size(), data.value_or(Data()));
  return true;
}

void UsbCamera::complete(std::uint32_t sequence, std::int32_t status, std::size_t length, const Data& data) const {
  Data reply;
  for (const std::uint32_t word : {std::uint32_t{kSubmitted}, sequence, 0U, 0U, 0U}) appendBig(reply, word);
  appendBig(reply, static_cast<std::uint32_t>(status));
  appendBig(reply, static_cast<std::uint32_t>(length));
  reply.resize(kHeader);
  reply.insert(reply.end(), data.begin(), data.end());
  writeAll(socket_, reply);
}

std::optional<Data> UsbCamera::answer(const std::array<std::uint8_t, 8>& setup, const Data& received) {
  const std::uint8_t request = setup[1];
  if ((setup[0] & 0x60) == 0x20) {
    return setup[4] == 1 ? answerStreaming(setup, received) : answerTerminal(setup, received);
  }
  if (request == 6) {  // a descriptor
    switch (setup[3]) {
      case 1: return deviceDescriptor();
      case 2: return configurationDescriptor();
      case 3: return textDescriptor(setup[2]);
      default: return std::nullopt;
    }
  }
  if (request == 0) return Data{0, 0};           // its state
  if (request == 1 && (setup[0] & 0x1f) == 2) {  // the endpoint is to begin anew: the stream's end
    isStreaming_ = false;
    payload_.clear();
  }
  return Data();
}

std::optional<Data> UsbCamera::answerStreaming(const std::array<std::uint8_t, 8>& setup, const Data& received) {
  if (setup[1] == kGetInformation) return Data{3};
  Data settings;
  const int format = std::clamp<int>(received.size() > 2 ? received[2] : settings_.size() > 2 ? settings_[2] : 1, 1, 2);
  append(settings, {0, 0, format, 1});
  appendLittle(settings, 10'000'000U / (format == 1 ? kYuyvRate : kJpegRate), 4);
  settings.resize(18, 0);
  const std::uint32_t size = kWidth * kHeight * 2;
  appendLittle(settings, size, 4);
  appendLittle(settings, size + 2, 4);
  settings.resize(kSettingsSize, 0);
  if (setup[1] != kSetCurrent) return settings;
  settings_ = settings;
  if (setup[3] != 2) return Data();  // tried only
  const std::lock_guard lock(mutex_);
  ++starts_;
  if (isRefusing_) return std::nullopt;
  isStreaming_ = true;
  payload_.clear();
  due_ = now();
  return Data();
}

std::optional<Data> UsbCamera::answerTerminal(const std::array<std::uint8_t, 8>& setup, const Data& received) {
  const auto* control = std::find_if(std::begin(kControls), std::end(kControls),
                                     [&](const TerminalControl& one) { return one.selector == setup[3]; });
  if (setup[5] != 1 || control == std::end(kControls)) return std::nullopt;
  const std::lock_guard lock(mutex_);
  int value = controls_[control->selector];
  switch (setup[1]) {
    case kSetCurrent:
      controls_[control->selector] = static_cast<int>(little(received.data(), static_cast<int>(received.size())));
      return Data();
    case kGetMinimum: value = control->minimum; break;
    case kGetMaximum: value = control->maximum; break;
    case kGetResolution: value = control->resolution; break;
    case kGetDefault: value = control->initial; break;
    case kGetInformation: return Data{3};
    default: break;
  }
  Data data;
  appendLittle(data, static_cast<std::uint64_t>(value), static_cast<int>(control->size));
  return data;
}

void UsbCamera::beginPicture() {
  const bool isJpeg = settings_[2] == 2;
  bool isDamaged = false;
  {
    const std::lock_guard lock(mutex_);
    isDamaged = toDamage_ > 0;
    if (isDamaged) --toDamage_;
  }
  // A header of two bytes: which of two pictures in turn, the picture's end, damaged, the header's end.
  payload_ = {2, static_cast<std::uint8_t>((count_++ & 1U) | 0x82U | (isDamaged ? 0x40U : 0U))};
  const Data& picture = pictures_.at(isJpeg ? 1 : 0);
  payload_.insert(payload_.end(), picture.begin(), picture.end());
  sent_ = 0;
  due_ = std::max(due_, now() - 1'000'000'000) + 1'000'000'000 / (isJpeg ? kJpegRate : kYuyvRate);
}

void UsbCamera::sendPictures() {
  while (!waiting_.empty()) {
    if (payload_.empty()) {
      if (now() < due_) return;
      beginPicture();
    }
    const Transfer transfer = waiting_.front();
    waiting_.pop_front();
    const std::size_t count = std::min<std::size_t>(transfer.length, payload_.size() - sent_);
    const auto* first = payload_.data() + sent_;
    complete(transfer.sequence, 0, count, Data(first, first + count));
    sent_ += count;
    // A picture that fills its last transfer is followed by an empty one, unless it has the greatest size.
    const bool isWhole = payload_.size() == std::size_t{kWidth} * kHeight * 2 + 2;
    if (count < transfer.length || (sent_ == payload_.size() && isWhole)) payload_.clear();
  }
}

}  // namespace tavrel::test
