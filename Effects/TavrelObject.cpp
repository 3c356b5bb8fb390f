#include "Effects/TavrelObject.h"

#include <utility>

namespace tavrel {

struct TavrelObject::Implementation {
  Attachments attachments;
};

TavrelObject::TavrelObject() : implementation_(std::make_unique<Implementation>()) {}
TavrelObject::TavrelObject(const TavrelObject& other)
    : KeyValueObserving(other), implementation_(std::make_unique<Implementation>(*other.implementation_)) {}
TavrelObject::~TavrelObject() = default;

const TavrelObject::Attachments& TavrelObject::attachments() const { return implementation_->attachments; }

void TavrelObject::setAttachment(std::any value, std::string_view forKey) {
  if (!value.has_value()) return removeAttachmentForKey(forKey);
  implementation_->attachments.insert_or_assign(std::string(forKey), std::move(value));
}

void TavrelObject::removeAttachmentForKey(std::string_view key) {
  Attachments& own = implementation_->attachments;
  if (const auto attachment = own.find(key); attachment != own.end()) own.erase(attachment);
}

void TavrelObject::removeAllAttachments() { implementation_->attachments.clear(); }

std::any TavrelObject::getAttachmentForKey(std::string_view key) const {
  const auto attachment = attachments().find(key);
  return attachment == attachments().end() ? std::any() : attachment->second;
}

}  // namespace tavrel
