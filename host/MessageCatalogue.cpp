// The host's message resources: the list in ZoMessages.def turned into one
// sorted lookup table of (identifier, text) pairs.
#include "host/detail/MessageCatalogue.h"

#include <algorithm>
#include <iterator>

namespace ZOC::detail {

namespace {

// The identifier is repeated at the head of its text ("[ESa014] ...").
#define SA_MESSAGE(id, text) {#id, "[" #id "] " text},
constexpr MessageEntry kMessages[] = {
#include "host/ZoMessages.def"
};
#undef SA_MESSAGE

// Lookups binary-search this table, so an out-of-order or repeated entry would
// make identifiers silently unreachable. Catch that when the table is compiled.
constexpr bool StrictlyAscending() {
  return std::adjacent_find(std::begin(kMessages), std::end(kMessages),
                            [](const MessageEntry& a, const MessageEntry& b) { return !(a.id < b.id); }) ==
         std::end(kMessages);
}
static_assert(StrictlyAscending(), "message identifiers must be sorted and unique");

}  // namespace

std::span<const MessageEntry> MessageCatalogue() noexcept { return kMessages; }

}  // namespace ZOC::detail
