#include "host/LumaUnicodeString.h"

#include <algorithm>

namespace LUMA {

namespace {
constexpr char32_t kReplacement = 0xFFFD;

void AppendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

// Decodes one code point starting at text[i]; advances i. Malformed input
// yields U+FFFD and consumes one byte, so decoding always makes progress.
char32_t DecodeUtf8(std::string_view text, std::size_t& i) {
  const auto b0 = static_cast<unsigned char>(text[i]);
  int extra = 0;
  char32_t c = 0;
  if (b0 < 0x80) {
    ++i;
    return b0;
  }
  if ((b0 & 0xE0) == 0xC0) {
    extra = 1;
    c = b0 & 0x1F;
  } else if ((b0 & 0xF0) == 0xE0) {
    extra = 2;
    c = b0 & 0x0F;
  } else if ((b0 & 0xF8) == 0xF0) {
    extra = 3;
    c = b0 & 0x07;
  } else {
    ++i;
    return kReplacement;
  }
  if (i + extra >= text.size()) {
    ++i;
    return kReplacement;
  }
  for (int k = 1; k <= extra; ++k) {
    const auto b = static_cast<unsigned char>(text[i + k]);
    if ((b & 0xC0) != 0x80) {
      ++i;
      return kReplacement;
    }
    c = (c << 6) | (b & 0x3F);
  }
  static constexpr char32_t kMin[] = {0, 0x80, 0x800, 0x10000};
  if (c < kMin[extra] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
    ++i;
    return kReplacement;
  }
  i += extra + 1;
  return c;
}
}  // namespace

LumaUnicodeString LumaUnicodeString::FromUtf16(std::u16string_view utf16) {
  std::string out;
  out.reserve(utf16.size());
  for (std::size_t i = 0; i < utf16.size(); ++i) {
    char32_t c = utf16[i];
    if (c >= 0xD800 && c <= 0xDBFF) {
      if (i + 1 < utf16.size() && utf16[i + 1] >= 0xDC00 && utf16[i + 1] <= 0xDFFF) {
        c = 0x10000 + ((c - 0xD800) << 10) + (utf16[i + 1] - 0xDC00);
        ++i;
      } else {
        c = kReplacement;
      }
    } else if (c >= 0xDC00 && c <= 0xDFFF) {
      c = kReplacement;
    }
    AppendUtf8(out, c);
  }
  return LumaUnicodeString(std::move(out));
}

std::u16string LumaUnicodeString::ToUtf16() const {
  std::u16string out;
  out.reserve(m_text.size());
  std::size_t i = 0;
  while (i < m_text.size()) {
    const char32_t c = DecodeUtf8(m_text, i);
    if (c >= 0x10000) {
      out += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
      out += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
      out += static_cast<char16_t>(c);
    }
  }
  return out;
}

bool LumaUnicodeString::EqualsNoCase(std::string_view other) const {
  return std::equal(m_text.begin(), m_text.end(), other.begin(), other.end(), [](char a, char b) {
    auto up = [](char ch) { return (ch >= 'a' && ch <= 'z') ? static_cast<char>(ch - 32) : ch; };
    return up(a) == up(b);
  });
}

LumaUnicodeString LumaUnicodeString::Upper() const {
  std::string out = m_text;
  for (char& ch : out)
    if (ch >= 'a' && ch <= 'z') ch = static_cast<char>(ch - 32);
  return out;
}

LumaUnicodeString LumaUnicodeString::Trimmed() const {
  const auto first = m_text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return LumaUnicodeString();
  const auto last = m_text.find_last_not_of(" \t\r\n");
  return LumaUnicodeString(m_text.substr(first, last - first + 1));
}

}  // namespace LUMA
