#include "Model/Messages.h"

#include <utility>

namespace tavrel::studio {

void Messages::note(std::string text, std::filesystem::path file) {
  note_ = Message{Message::Kind::note, std::move(text), std::move(file)};
  noteSince_.reset();
}

void Messages::fault(std::string text) { fault_ = Message{Message::Kind::fault, std::move(text)}; }

void Messages::dismiss() {
  if (fault_) return fault_.reset();
  note_.reset();
}

const Message* Messages::current(double now) {
  if (fault_) return &*fault_;
  if (!note_) return nullptr;
  if (!noteSince_) noteSince_ = now;  // counts from when it can be read
  if (now - *noteSince_ > kSecondsOfNote) note_.reset();
  return note_ ? &*note_ : nullptr;
}

}  // namespace tavrel::studio
