#pragma once
// The outcome of an internal step: ok, or the message identifiers that
// explain the failure, in order, each with the arguments of its
// placeholders (%1, %2 ...), so a step can name the feature or value it
// failed on and callers only pass it on. The catalogue text is looked up
// only when a public member reports the failure (Text()).
#include <initializer_list>
#include <utility>
#include <vector>

#include "host/LumaUnicodeString.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail {

class Status {
 public:
  Status() = default;  // ok
  static Status Ok() { return {}; }
  // A failure with `id`, its placeholders to be filled from `args`.
  static Status Fail(const char* id, std::initializer_list<LUMA::LumaUnicodeString> args = {}) {
    Status s;
    s.m_entries.push_back({id, std::vector<LUMA::LumaUnicodeString>(args), {}});
    return s;
  }
  // A failure whose text comes from outside the catalogue (a library's or
  // the system's own words), optionally followed by `id`.
  static Status FromText(const LUMA::LumaUnicodeString& text, const char* id = nullptr) {
    Status s;
    s.m_entries.push_back({nullptr, {}, text});
    if (id) s.m_entries.push_back({id, {}, {}});
    return s;
  }

  bool ok() const { return m_entries.empty(); }
  explicit operator bool() const { return ok(); }
  // The first identifier of the failure, when it has one.
  const char* id() const {
    for (const Entry& e : m_entries)
      if (e.id) return e.id;
    return nullptr;
  }
  // Every identifier of the failure, in order.
  std::vector<const char*> ids() const {
    std::vector<const char*> out;
    for (const Entry& e : m_entries)
      if (e.id) out.push_back(e.id);
    return out;
  }
  // The catalogue texts of the identifiers, placeholders filled, one per line.
  LUMA::LumaUnicodeString Text() const {
    LUMA::LumaUnicodeString text;
    for (const Entry& e : m_entries) {
      LUMA::LumaUnicodeString line = e.text;
      if (e.id) {
        line = ZoStringEx::LoadResString(e.id);
        if (!e.args.empty()) line = ZoStringEx::Format(line, e.args);
      }
      if (line.IsEmpty()) continue;
      if (!text.IsEmpty()) text += "\n";
      text += line;
    }
    return text;
  }

  // Adds a further identifier (the caller's summary of what failed); a
  // no-op on success.
  Status& Then(const char* id) {
    if (!ok()) m_entries.push_back({id, {}, {}});
    return *this;
  }

 private:
  struct Entry {
    const char* id = nullptr;
    std::vector<LUMA::LumaUnicodeString> args;
    LUMA::LumaUnicodeString text;  // for failures from outside the catalogue
  };
  std::vector<Entry> m_entries;
};

}  // namespace ZOC::detail
