#pragma once

#include <any>
#include <map>
#include <string>
#include <string_view>

#include "Platform/Foundation/KeyValueObserving.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// Base of the effects: attachments for application data, and observable properties. One thread at a time.
class TAVREL_API TavrelObject : public KeyValueObserving {
 public:
  using Attachments = std::map<std::string, std::any, std::less<>>;

  TavrelObject();
  /// Copies the attachments; pointers among them are shared.
  TavrelObject(const TavrelObject& other);
  TavrelObject& operator=(const TavrelObject&) = delete;
  virtual ~TavrelObject();

  const Attachments& attachments() const;
  /// An empty value removes the key.
  void setAttachment(std::any value, std::string_view forKey);
  void removeAttachmentForKey(std::string_view key);
  void removeAllAttachments();
  /// Empty if there is no such key.
  std::any getAttachmentForKey(std::string_view key) const;

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
