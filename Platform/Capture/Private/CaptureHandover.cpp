#include <utility>

#include "Platform/Capture/Private/CaptureHandover.h"

namespace tavrel {

void CaptureHandover::setQueue(std::shared_ptr<DispatchQueue> queue) {
  const std::lock_guard lock(mutex_);
  queue_.swap(queue);
  ++generation_;
  changed_.notify_all();
}

void CaptureHandover::callOff() {
  const std::lock_guard lock(mutex_);
  ++generation_;
  changed_.notify_all();
}

CaptureHandover::Entry CaptureHandover::enter(unsigned limit, bool waits, const std::stop_token& cancelled,
                                              Ticket& ticket) {
  std::unique_lock lock(mutex_);
  if (!queue_) return Entry::closed;
  if (underWay_ >= limit) {
    if (!waits) return Entry::full;
    const bool isFree = changed_.wait(lock, cancelled, [&] { return underWay_ < limit || !queue_; });
    if (!isFree || !queue_) return Entry::closed;
  }
  ++underWay_;
  ticket.place = {this, [self = shared_from_this()](void*) { self->giveBack(); }};
  ticket.queue = queue_;
  ticket.generation = generation_;
  return Entry::granted;
}

void CaptureHandover::giveBack() {
  const std::lock_guard lock(mutex_);
  --underWay_;
  changed_.notify_all();
}

bool CaptureHandover::isCurrent(unsigned generation) const {
  const std::lock_guard lock(mutex_);
  return generation == generation_;
}

void CaptureHandover::send(Ticket ticket, std::function<void()> delivery) {
  const auto queue = ticket.queue;
  queue->async([self = shared_from_this(), ticket = std::move(ticket), delivery = std::move(delivery)] {
    if (self->isCurrent(ticket.generation)) delivery();
  });
}

void CaptureHandover::sendAnyway(std::function<void()> delivery) {
  Ticket ticket;
  {
    const std::lock_guard lock(mutex_);
    if (!queue_) return;
    ticket.queue = queue_;
    ticket.generation = generation_;
  }
  send(std::move(ticket), std::move(delivery));
}

}  // namespace tavrel
