#pragma once
// LumaUnicodeString: the host's string type for every name, path and message.
// Text is held as UTF-8; file formats that store UTF-16 convert at the edge
// with ToUtf16 / FromUtf16.
#include <cstddef>
#include <string>
#include <string_view>

#include "host/HostExport.h"

namespace LUMA {

class SA_HOST_API LumaUnicodeString {
 public:
  LumaUnicodeString() = default;
  LumaUnicodeString(const char* utf8) : m_text(utf8 ? utf8 : "") {}
  LumaUnicodeString(std::string utf8) : m_text(std::move(utf8)) {}
  LumaUnicodeString(std::string_view utf8) : m_text(utf8) {}

  // Decodes UTF-16 (native order code units). Unpaired surrogates become U+FFFD.
  static LumaUnicodeString FromUtf16(std::u16string_view utf16);
  // Encodes as UTF-16 code units. Invalid UTF-8 bytes become U+FFFD.
  std::u16string ToUtf16() const;

  const std::string& Str() const { return m_text; }
  const char* c_str() const { return m_text.c_str(); }
  bool IsEmpty() const { return m_text.empty(); }
  // Length in bytes of the UTF-8 text.
  std::size_t GetLength() const { return m_text.size(); }
  void Empty() { m_text.clear(); }

  // Case-insensitive comparison for ASCII letters (field names, keywords).
  bool EqualsNoCase(std::string_view other) const;
  LumaUnicodeString Upper() const;  // ASCII letters only
  LumaUnicodeString Trimmed() const;

  LumaUnicodeString& operator+=(const LumaUnicodeString& s) {
    m_text += s.m_text;
    return *this;
  }
  LumaUnicodeString& operator+=(const char* s) {
    m_text += s;
    return *this;
  }
  friend LumaUnicodeString operator+(LumaUnicodeString a, const LumaUnicodeString& b) { return a += b; }
  friend LumaUnicodeString operator+(LumaUnicodeString a, const char* b) { return a += b; }
  friend LumaUnicodeString operator+(const char* a, const LumaUnicodeString& b) { return LumaUnicodeString(a) += b; }
  friend bool operator==(const LumaUnicodeString& a, const LumaUnicodeString& b) { return a.m_text == b.m_text; }
  friend bool operator==(const LumaUnicodeString& a, const char* b) { return a.m_text == b; }
  friend auto operator<=>(const LumaUnicodeString& a, const LumaUnicodeString& b) { return a.m_text <=> b.m_text; }

 private:
  std::string m_text;
};

}  // namespace LUMA
