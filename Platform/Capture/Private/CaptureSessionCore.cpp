#include <algorithm>
#include <chrono>
#include <utility>

#include "Platform/Capture/Private/CaptureDeviceImplementation.h"
#include "Platform/Capture/Private/CaptureSessionCore.h"
#include "Platform/Capture/Private/CaptureSystem.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Foundation/NotificationCenter.h"
#include "Platform/Foundation/Notifications.h"

namespace tavrel {
namespace {

constexpr std::chrono::seconds kPatienceForOpening(1);

}  // namespace

std::shared_ptr<CaptureSession> CaptureSession::create() {
  auto core = std::make_shared<CaptureSessionCore>();
  auto* const face = core.get();
  std::shared_ptr<CaptureSession> session(face, [core = std::move(core)](CaptureSession*) mutable {
    core->stopRunning();
    core = nullptr;
  });
  face->setOwner(session);
  return session;
}

CaptureSessionCore::~CaptureSessionCore() {
  for (Slot& slot : slots_) close(slot);
}

void CaptureSessionCore::setOwner(std::weak_ptr<CaptureSession> owner) {
  const std::lock_guard lock(state_);
  owner_ = std::move(owner);
}

std::string CaptureSessionCore::sessionPreset() const {
  const std::lock_guard lock(state_);
  return preset_;
}

bool CaptureSessionCore::canSetSessionPreset(std::string_view preset) const {
  if (preset == kCaptureSessionPresetInputPriority) return true;
  if (!dimensionsOfPreset(preset)) return false;
  const auto device = deviceOf(MediaType::video);
  if (!device) return true;
  const std::lock_guard lock(device->implementation_->mutex);
  return device->implementation_->formatForPreset(preset, true) != nullptr;
}

void CaptureSessionCore::setSessionPreset(std::string_view preset) {
  const std::lock_guard operation(operation_);
  if (!canSetSessionPreset(preset)) return;
  {
    const std::lock_guard lock(state_);
    preset_ = preset;
  }
  if (const auto device = deviceOf(MediaType::video)) chooseFormat(device);
  refresh();
}

void CaptureSessionCore::beginConfiguration() {
  const std::lock_guard operation(operation_);
  ++configurationDepth_;
}

void CaptureSessionCore::commitConfiguration() {
  const std::lock_guard operation(operation_);
  if (configurationDepth_ == 0) fatalAssertion("commitConfiguration was called without beginConfiguration");
  --configurationDepth_;
  refresh();
}

bool CaptureSessionCore::canAddInput(const std::shared_ptr<CaptureDeviceInput>& input) const {
  const std::lock_guard lock(state_);
  return isInputAddable(input);
}

bool CaptureSessionCore::isInputAddable(const std::shared_ptr<CaptureDeviceInput>& input) const {
  if (!input) return false;
  const MediaType mediaType = input->device()->mediaType();
  const bool isTaken = std::any_of(inputs_.begin(), inputs_.end(),
                                   [&](const auto& other) { return other->device()->mediaType() == mediaType; });
  const auto refuses = CaptureSystem::shared().virtualBackend().refusals().input;
  return !isTaken && !(refuses && refuses(*input->device()));
}

void CaptureSessionCore::addInput(const std::shared_ptr<CaptureDeviceInput>& input) {
  const std::lock_guard operation(operation_);
  {
    const std::lock_guard lock(state_);
    if (!isInputAddable(input)) fatalAssertion("addInput was called with an input that canAddInput refuses");
    inputs_.push_back(input);
  }
  const auto& device = input->device();
  // At once, so that settings made before the commit are made on the format that will be used.
  if (device->mediaType() == MediaType::video) chooseFormat(device);
  {
    const std::lock_guard lock(device->implementation_->mutex);
    device->implementation_->user = weak_from_this();
  }
  refresh();
}

void CaptureSessionCore::removeInput(const std::shared_ptr<CaptureDeviceInput>& input) {
  const std::lock_guard operation(operation_);
  {
    const std::lock_guard lock(state_);
    if (std::erase(inputs_, input) == 0) return;
  }
  {
    CaptureDevice::Implementation& device = *input->device()->implementation_;
    const std::lock_guard lock(device.mutex);
    if (device.user.lock().get() == this) device.user.reset();
  }
  refresh();
}

std::vector<std::shared_ptr<CaptureDeviceInput>> CaptureSessionCore::inputs() const {
  const std::lock_guard lock(state_);
  return inputs_;
}

bool CaptureSessionCore::canAddOutput(const std::shared_ptr<CaptureOutput>& output) const {
  if (!output) return false;
  {
    const std::lock_guard lock(output->connectionMutex_);
    if (output->connection_) return false;
  }
  const auto refuses = CaptureSystem::shared().virtualBackend().refusals().output;
  return !(refuses && refuses(*output));
}

void CaptureSessionCore::addOutput(const std::shared_ptr<CaptureOutput>& output) {
  const std::lock_guard operation(operation_);
  if (!canAddOutput(output)) fatalAssertion("addOutput was called with an output that canAddOutput refuses");
  {
    const std::lock_guard lock(output->connectionMutex_);
    output->connection_ = std::make_shared<CaptureConnection>(output->mediaType());
  }
  {
    const std::lock_guard lock(state_);
    outputs_.push_back(output);
  }
  refresh();
}

void CaptureSessionCore::removeOutput(const std::shared_ptr<CaptureOutput>& output) {
  const std::lock_guard operation(operation_);
  {
    const std::lock_guard lock(state_);
    if (std::erase(outputs_, output) == 0) return;
  }
  {
    const std::lock_guard lock(output->connectionMutex_);
    output->connection_->setActive(false);
    output->connection_ = nullptr;
  }
  output->isRunning_ = false;
  refresh();
  output->deliveryEnded();
}

std::vector<std::shared_ptr<CaptureOutput>> CaptureSessionCore::outputs() const {
  const std::lock_guard lock(state_);
  return outputs_;
}

std::shared_ptr<CaptureDevice> CaptureSessionCore::deviceOf(MediaType mediaType) const {
  const std::lock_guard lock(state_);
  for (const auto& input : inputs_) {
    if (input->device()->mediaType() == mediaType) return input->device();
  }
  return nullptr;
}

std::vector<std::shared_ptr<CaptureOutput>> CaptureSessionCore::outputsOf(MediaType mediaType) const {
  auto all = outputs();
  std::erase_if(all, [&](const auto& output) { return output->mediaType() != mediaType; });
  return all;
}

void CaptureSessionCore::startRunning() {
  std::unique_lock operation(operation_);
  if (isRunning_) return;
  isRunning_ = true;
  {
    const std::lock_guard lock(state_);
    runtimeError_.reset();
  }
  const unsigned run = ++runNumber_;
  refresh();
  watch(run);
  changed_.wait(operation, [&] {
    return runNumber_ != run ||
           std::none_of(slots_.begin(), slots_.end(), [](const Slot& slot) { return slot.isOpening; });
  });
}

void CaptureSessionCore::stopRunning() {
  std::shared_ptr<DispatchQueue> opener;
  {
    const std::lock_guard operation(operation_);
    if (!isRunning_) return;
    isRunning_ = false;
    ++runNumber_;
    for (Slot& slot : slots_) {
      close(slot);
      slot.hasFailed = false;
    }
    for (const auto& output : outputs()) {
      output->isRunning_ = false;
      output->deliveryEnded();
    }
    opener = opener_;
  }
  // So that whoever opens the device next finds it free; one that does not let itself be cancelled is not waited for.
  if (opener) opener->trySync(kPatienceForOpening, [] {});
}

std::optional<Error> CaptureSessionCore::runtimeError() const {
  const std::lock_guard lock(state_);
  return runtimeError_;
}

void CaptureSessionCore::chooseFormat(const std::shared_ptr<CaptureDevice>& device) const {
  const std::string preset = sessionPreset();
  CaptureDevice::Implementation& chosen = *device->implementation_;
  const std::lock_guard lock(chosen.mutex);
  if (auto format = chosen.formatForPreset(preset, false); format && format != chosen.activeFormat) {
    chosen.useFormat(std::move(format));
  }
}

void CaptureSessionCore::refresh() {
  for (const MediaType mediaType : kMediaTypes) {
    const bool isActive = deviceOf(mediaType) != nullptr;
    for (const auto& output : outputsOf(mediaType)) {
      output->isRunning_ = isRunning_.load();
      output->connection_->setActive(isActive);
    }
    if (configurationDepth_ == 0) refreshSlot(mediaType, slots_[static_cast<std::size_t>(mediaType)]);
  }
}

void CaptureSessionCore::refreshSlot(MediaType mediaType, Slot& slot) {
  const auto device = deviceOf(mediaType);
  const auto wanted = outputsOf(mediaType);
  if (!isRunning_ || !device || wanted.empty()) {
    const bool wasOpen = slot.source != nullptr;
    close(slot);
    slot.hasFailed = false;
    if (wasOpen && !device) {
      for (const auto& output : wanted) output->deliveryEnded();
    }
    return;
  }
  if (slot.source && (slot.source->device() != device || slot.source->format != device->activeFormat())) {
    if (slot.source->device() != device) slot.hasFailed = false;
    close(slot);
  }
  if (slot.source) {
    slot.source->setOutputs(wanted);
  } else {
    open(slot, device);
  }
}

void CaptureSessionCore::fail(Slot& slot, Error error) {
  close(slot);
  {
    const std::lock_guard lock(state_);
    runtimeError_ = std::move(error);
  }
  // Once for each time that something breaks, not for each attempt to mend it.
  if (!std::exchange(slot.hasFailed, true)) post(kCaptureSessionRuntimeErrorNotification);
}

void CaptureSessionCore::post(const char* name) {
  std::shared_ptr<CaptureSession> owner;
  {
    const std::lock_guard lock(state_);
    owner = owner_.lock();
  }
  if (!owner) return;
  DispatchQueue::global()->async(
      [name, owner = std::move(owner)] { NotificationCenter::defaultCenter().post(name, owner.get()); });
}

}  // namespace tavrel
