#include "host/ZoStringEx.h"

#include <algorithm>
#include <string_view>

#include "host/detail/MessageCatalogue.h"

namespace ZOC {

namespace {

const detail::MessageEntry* FindEntry(std::string_view id) noexcept {
  const auto catalogue = detail::MessageCatalogue();
  const auto it = std::lower_bound(catalogue.begin(), catalogue.end(), id,
                                   [](const detail::MessageEntry& e, std::string_view key) { return e.id < key; });
  return (it != catalogue.end() && it->id == id) ? &*it : nullptr;
}

}  // namespace

LumaUnicodeString ZoStringEx::LoadResString(const char* id) {
  const std::string_view key = id ? std::string_view(id) : std::string_view();
  try {
    if (const detail::MessageEntry* entry = FindEntry(key)) return LumaUnicodeString(entry->text);
    // A caller that raises an identifier missing from the catalogue still
    // leaves a message that names it, so the failure can be traced.
    std::string text = "[";
    text.append(key);
    text += "] Unknown message identifier.";
    return LumaUnicodeString(std::move(text));
  } catch (...) {
    return {};
  }
}

bool ZoStringEx::HasResString(const char* id) { return id != nullptr && FindEntry(id) != nullptr; }

std::vector<std::string> ZoStringEx::ListIdentifiers() {
  std::vector<std::string> ids;
  try {
    const auto catalogue = detail::MessageCatalogue();
    ids.reserve(catalogue.size());
    for (const detail::MessageEntry& e : catalogue) ids.emplace_back(e.id);
  } catch (...) {
    ids.clear();
  }
  return ids;
}

namespace {
LumaUnicodeString FormatArgs(const LumaUnicodeString& pattern, const LumaUnicodeString* args, std::size_t count);
}  // namespace

LumaUnicodeString ZoStringEx::Format(const LumaUnicodeString& pattern, std::initializer_list<LumaUnicodeString> args) {
  return FormatArgs(pattern, args.begin(), args.size());
}

LumaUnicodeString ZoStringEx::Format(const LumaUnicodeString& pattern, const std::vector<LumaUnicodeString>& args) {
  return FormatArgs(pattern, args.data(), args.size());
}

namespace {
LumaUnicodeString FormatArgs(const LumaUnicodeString& pattern, const LumaUnicodeString* args, std::size_t count) {
  try {
    const std::string& in = pattern.Str();
    std::string out;
    out.reserve(in.size() + 16);
    // One left-to-right pass: an argument's own text is copied as it stands and
    // never scanned for placeholders, so "%1" inside an argument stays literal.
    for (std::size_t i = 0; i < in.size(); ++i) {
      const char c = in[i];
      if (c != '%' || i + 1 == in.size()) {
        out += c;
        continue;
      }
      const char next = in[i + 1];
      if (next == '%') {
        out += '%';
        ++i;
      } else if (next >= '1' && next <= '9' && static_cast<std::size_t>(next - '0') <= count) {
        out += args[next - '1'].Str();
        ++i;
      } else {
        out += c;  // a placeholder without an argument, or a lone '%', is kept
      }
    }
    return LumaUnicodeString(std::move(out));
  } catch (...) {
    return {};
  }
}
}  // namespace

LumaUnicodeString ZoStringEx::Format(const LumaUnicodeString& pattern, long long item, long long count) {
  try {
    return Format(pattern, {LumaUnicodeString(std::to_string(item)), LumaUnicodeString(std::to_string(count))});
  } catch (...) {
    return {};
  }
}

}  // namespace ZOC
