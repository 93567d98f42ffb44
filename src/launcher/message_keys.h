#pragma once
// Every message and window text the launcher looks up in a bundle's Localizable.strings,
// with what its "%@" inserts stand for, in order.
#include <span>
#include <string_view>

namespace bwk {

struct MessageKey {
  const char* name;
  // What the first and the second "%@" receive; null when the message has fewer inserts.
  const char* inserts[2];
  int insertCount() const { return (inserts[0] ? 1 : 0) + (inserts[1] ? 1 : 0); }
};

std::span<const MessageKey> messageKeys();
const MessageKey* findMessageKey(std::string_view name);

}  // namespace bwk
