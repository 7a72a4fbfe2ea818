#pragma once
// The message catalogue behind ZoStringEx: a sorted table of (identifier,
// text) pairs. Internal to the host layer; callers go through ZoStringEx.
#include <span>
#include <string_view>

namespace ZOC::detail {

struct MessageEntry {
  std::string_view id;
  std::string_view text;
};

// Every entry, in strictly ascending identifier order (plain byte order).
std::span<const MessageEntry> MessageCatalogue() noexcept;

}  // namespace ZOC::detail
