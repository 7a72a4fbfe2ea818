#pragma once
// The message of one measure call, built the way every analysis builds it:
// each failure appends the catalogue text of one identifier (one per line);
// some failures replace what was there, so the caller sees the failure that
// ended the call rather than its inner causes.
#include <string>

#include "host/LumaUnicodeString.h"
#include "host/ZoStringEx.h"

namespace ZOC::centrography {

class MessageLog {
 public:
  void Add(const char* id) { Append(ZoStringEx::LoadResString(id)); }
  // An identifier whose text holds %1.
  void Add(const char* id, long long arg) {
    Append(ZoStringEx::Format(ZoStringEx::LoadResString(id), {LumaUnicodeString(std::to_string(arg))}));
  }
  void Replace(const char* id) { m_text = ZoStringEx::LoadResString(id); }
  void Replace(const char* id, long long arg) {
    m_text.Empty();
    Add(id, arg);
  }
  void Append(const LumaUnicodeString& text) {
    if (text.IsEmpty()) return;
    if (!m_text.IsEmpty()) m_text += "\n";
    m_text += text;
  }
  const LumaUnicodeString& Text() const { return m_text; }

 private:
  LumaUnicodeString m_text;
};

}  // namespace ZOC::centrography
