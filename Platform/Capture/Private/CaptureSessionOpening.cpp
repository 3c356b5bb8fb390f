// How a session opens devices, which takes seconds where one does not start, and closes them.
#include <utility>

#include "Platform/Capture/Private/CaptureDeviceImplementation.h"
#include "Platform/Capture/Private/CaptureSessionCore.h"

namespace tavrel {

void CaptureSessionCore::open(Slot& slot, const std::shared_ptr<CaptureDevice>& device) {
  CaptureDevice::Implementation& opened = *device->implementation_;
  CaptureRun run;
  Expected<void> connected;
  std::shared_ptr<CaptureSource> source;
  {
    const std::lock_guard lock(opened.mutex);
    connected = opened.checkConnected();
    if (connected) source = std::make_shared<CaptureSource>(device, opened.driver, weak_from_this());
    run.format = opened.activeFormat;
    run.frameRate = opened.frameRate();
    run.controls = opened.controls;
  }
  if (!source) return fail(slot, connected.error());
  source->format = run.format;
  source->setOutputs(outputsOf(device->mediaType()));
  run.sink = source;
  run.cancellation = source->cancellation();
  // Before it delivers, so that its first sample finds it.
  slot.source = source;
  slot.isOpening = true;
  // Where time waits for the devices it would pass before this one is there.
  if (!source->isRealTime()) return finishOpening(slot, run, source->driver()->open(run));
  if (!opener_) opener_ = DispatchQueue::create("tavrel.opener");
  opener_->async([self = shared_from_this(), source, run = std::move(run)] {
    self->didOpen(source, run, source->driver()->open(run));
  });
}

void CaptureSessionCore::didOpen(const std::shared_ptr<CaptureSource>& source, const CaptureRun& run,
                                 Expected<void> started) {
  const std::lock_guard operation(operation_);
  // Where there is none, closing it comes next on this queue.
  if (Slot* const slot = slotOf(source)) finishOpening(*slot, run, std::move(started));
}

void CaptureSessionCore::finishOpening(Slot& slot, const CaptureRun& run, Expected<void> started) {
  slot.isOpening = false;
  changed_.notify_all();
  if (!started) return fail(slot, std::move(started.error()));
  // What was set on the device while it opened.
  CaptureDevice::Implementation& opened = *slot.source->device()->implementation_;
  CaptureDriver& driver = *slot.source->driver();
  const std::lock_guard lock(opened.mutex);
  if (opened.frameRate() != run.frameRate) driver.setFrameRate(opened.frameRate());
  if (opened.controls == run.controls) return;
  for (const CaptureControl control : kCaptureControls) driver.apply(control, opened.controls);
}

void CaptureSessionCore::close(Slot& slot) {
  const auto source = std::exchange(slot.source, nullptr);
  if (!source) return;
  source->cancel();
  if (!std::exchange(slot.isOpening, false)) return source->driver()->close();
  opener_->async([source] { source->driver()->close(); });
  changed_.notify_all();
}

}  // namespace tavrel
