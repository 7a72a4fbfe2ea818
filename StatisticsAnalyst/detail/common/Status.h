#pragma once
// The outcome of an internal step: ok, or the catalogue text of the message
// identifiers that explain the failure, in order. A failure carries its text
// already formatted, so a step can name the feature or value it failed on
// (identifiers whose text holds %1, %2 ...) and callers only pass it on.
#include <initializer_list>

#include "host/LumaUnicodeString.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail {

class Status {
 public:
  Status() = default;  // ok
  static Status Ok() { return {}; }
  // A failure with the text of `id`, its placeholders filled from `args`.
  static Status Fail(const char* id, std::initializer_list<LUMA::LumaUnicodeString> args = {}) {
    Status s;
    s.m_failed = true;
    s.m_id = id;
    s.Append(args.size() ? ZoStringEx::Format(ZoStringEx::LoadResString(id), args) : ZoStringEx::LoadResString(id));
    return s;
  }
  // A failure whose text a subordinate object has already composed.
  static Status FromText(const LUMA::LumaUnicodeString& text, const char* id = nullptr) {
    Status s;
    s.m_failed = true;
    s.m_id = id;
    s.Append(text);
    if (id) s.Append(ZoStringEx::LoadResString(id));
    return s;
  }

  bool ok() const { return !m_failed; }
  explicit operator bool() const { return !m_failed; }
  // The first identifier of the failure, when one was given.
  const char* id() const { return m_id; }
  const LUMA::LumaUnicodeString& Text() const { return m_text; }

  // Adds the text of a further identifier (the caller's summary of what
  // failed); a no-op on success.
  Status& Then(const char* id) {
    if (m_failed) Append(ZoStringEx::LoadResString(id));
    return *this;
  }

 private:
  void Append(const LUMA::LumaUnicodeString& text) {
    if (text.IsEmpty()) return;
    if (!m_text.IsEmpty()) m_text += "\n";
    m_text += text;
  }

  bool m_failed = false;
  const char* m_id = nullptr;
  LUMA::LumaUnicodeString m_text;
};

}  // namespace ZOC::detail
