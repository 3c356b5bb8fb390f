#include "Effects/TavrelObject.h"

#include <utility>

namespace tavrel {

TavrelObject::TavrelObject() = default;
TavrelObject::TavrelObject(const TavrelObject& other) = default;
TavrelObject::~TavrelObject() = default;

void TavrelObject::setAttachment(std::any value, std::string_view forKey) {
  if (!value.has_value()) return removeAttachmentForKey(forKey);
  attachments_.insert_or_assign(std::string(forKey), std::move(value));
}

void TavrelObject::removeAttachmentForKey(std::string_view key) {
  if (const auto attachment = attachments_.find(key); attachment != attachments_.end()) attachments_.erase(attachment);
}

void TavrelObject::removeAllAttachments() { attachments_.clear(); }

std::any TavrelObject::getAttachmentForKey(std::string_view key) const {
  const auto attachment = attachments_.find(key);
  return attachment == attachments_.end() ? std::any() : attachment->second;
}

}  // namespace tavrel
