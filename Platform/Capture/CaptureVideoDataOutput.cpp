#include "Platform/Capture/CaptureVideoDataOutput.h"

#include <atomic>
#include <utility>

#include "Platform/Capture/Private/CaptureSource.h"
#include "Platform/Capture/Private/DelegateHandover.h"
#include "Platform/Tracing/QueueWait.h"

namespace tavrel {
namespace {

constexpr unsigned kUnderWayWhenDiscarding = 2;
constexpr unsigned kUnderWayAtMost = 8;

TraceName nameOf(CaptureDroppedFrameReason reason) {
  const TraceNames& names = TraceNames::shared();
  switch (reason) {
    case CaptureDroppedFrameReason::outOfBuffers: return names.outOfBuffers;
    case CaptureDroppedFrameReason::discontinuity: return names.discontinuity;
    default: return names.late;
  }
}

}  // namespace

struct CaptureVideoDataOutput::Implementation : DelegateHandover<CaptureVideoDataOutputSampleBufferDelegate> {
  std::atomic<bool> discardsLate = true;
};

std::shared_ptr<CaptureVideoDataOutput> CaptureVideoDataOutput::create() {
  return std::shared_ptr<CaptureVideoDataOutput>(new CaptureVideoDataOutput);
}

CaptureVideoDataOutput::CaptureVideoDataOutput()
    : CaptureOutput(MediaType::video), implementation_(std::make_unique<Implementation>()) {}

CaptureVideoDataOutput::~CaptureVideoDataOutput() = default;

void CaptureVideoDataOutput::setAlwaysDiscardsLateVideoFrames(bool discards) {
  implementation_->discardsLate = discards;
}

void CaptureVideoDataOutput::setSampleBufferDelegate(std::weak_ptr<CaptureVideoDataOutputSampleBufferDelegate> delegate,
                                                     std::shared_ptr<DispatchQueue> queue) {
  implementation_->setDelegate(std::move(delegate), std::move(queue));
}

std::uint64_t CaptureVideoDataOutput::deliveredFrames() const { return implementation_->delivered; }

std::uint64_t CaptureVideoDataOutput::droppedFrames() const { return implementation_->dropped; }

void CaptureVideoDataOutput::deliver(const std::shared_ptr<SampleBuffer>& sample, CaptureSource& source) {
  Implementation& output = *implementation_;
  auto connection = connectionWithMediaType(MediaType::video);
  if (!connection) return;
  const bool discards = output.discardsLate;
  const unsigned limit = discards || !source.isRealTime() ? kUnderWayWhenDiscarding : kUnderWayAtMost;
  CaptureHandover::Ticket ticket;
  switch (output.handover->enter(limit, !source.isRealTime(), source.cancellation(), ticket)) {
    case CaptureHandover::Entry::closed: return;
    case CaptureHandover::Entry::full:
      return reportDrop(sample->timingEntries().front(),
                        discards ? CaptureDroppedFrameReason::frameWasLate : CaptureDroppedFrameReason::outOfBuffers);
    case CaptureHandover::Entry::granted: break;
  }
  auto turned = source.turned(sample, *connection);
  if (!turned) return reportDrop(sample->timingEntries().front(), CaptureDroppedFrameReason::outOfBuffers);
  output.handover->send(std::move(ticket),
                        [self = shared_from_this(), turned = std::move(turned), connection = std::move(connection),
                         wait = QueueWait(FrameTrace::arriving())] {
                          const FrameTrace::Scope frame = wait.end(TraceNames::shared().captureQueue);
                          ++self->implementation_->delivered;
                          if (const auto delegate = self->implementation_->delegate())
                            delegate->didOutputSampleBuffer(*self, turned, connection);
                        });
}

void CaptureVideoDataOutput::deliverDrop(const SampleTiming& timing) {
  reportDrop(timing, CaptureDroppedFrameReason::discontinuity);
}

void CaptureVideoDataOutput::reportDrop(const SampleTiming& timing, CaptureDroppedFrameReason reason) {
  ++implementation_->dropped;
  if (Tracer::isOn()) {
    const TraceNames& names = TraceNames::shared();
    Tracer::count(names.framesIn);
    Tracer::drop(names.cameraStage, nameOf(reason));
  }
  auto connection = connectionWithMediaType(MediaType::video);
  implementation_->handover->sendAnyway(
      [self = shared_from_this(), timing, reason, connection = std::move(connection)] {
        if (const auto delegate = self->implementation_->delegate()) {
          delegate->didDropSampleBuffer(*self, timing, reason, connection);
        }
      });
}

void CaptureVideoDataOutput::deliveryEnded() { implementation_->handover->callOff(); }

}  // namespace tavrel
