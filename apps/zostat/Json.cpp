#include "Json.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <type_traits>
#include <variant>

namespace zostat {

void JsonWriter::Separate() {
  if (m_needComma) m_out += ", ";
  m_needComma = false;
}

JsonWriter& JsonWriter::BeginObject() {
  Separate();
  m_out += '{';
  return *this;
}
JsonWriter& JsonWriter::EndObject() {
  m_out += '}';
  m_needComma = true;
  return *this;
}
JsonWriter& JsonWriter::BeginArray() {
  Separate();
  m_out += '[';
  return *this;
}
JsonWriter& JsonWriter::EndArray() {
  m_out += ']';
  m_needComma = true;
  return *this;
}

JsonWriter& JsonWriter::Key(std::string_view key) {
  String(key);
  m_out += ": ";
  m_needComma = false;
  return *this;
}

JsonWriter& JsonWriter::String(std::string_view value) {
  Separate();
  m_out += '"';
  for (const char ch : value) {
    const auto c = static_cast<unsigned char>(ch);
    switch (ch) {
      case '"': m_out += "\\\""; break;
      case '\\': m_out += "\\\\"; break;
      case '\n': m_out += "\\n"; break;
      case '\r': m_out += "\\r"; break;
      case '\t': m_out += "\\t"; break;
      default:
        if (c < 0x20) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          m_out += buf;
        } else {
          m_out += ch;
        }
    }
  }
  m_out += '"';
  m_needComma = true;
  return *this;
}

JsonWriter& JsonWriter::Values(const ZOC::front::ReportValues& values) {
  for (const auto& [key, value] : values) {
    Key(key);
    std::visit(
        [this](const auto& v) {
          using T = std::decay_t<decltype(v)>;
          if constexpr (std::is_same_v<T, std::monostate>)
            Null();
          else if constexpr (std::is_same_v<T, bool>)
            Bool(v);
          else if constexpr (std::is_same_v<T, long long>)
            Integer(v);
          else if constexpr (std::is_same_v<T, double>)
            Number(v);
          else
            String(v);
        },
        value);
  }
  return *this;
}

JsonWriter& JsonWriter::Number(double value) {
  if (!std::isfinite(value)) return Null();
  Separate();
  char buf[64];
  const auto [ptr, ec] = std::to_chars(buf, buf + sizeof buf, value);
  m_out.append(buf, ec == std::errc() ? ptr : buf);
  m_needComma = true;
  return *this;
}

JsonWriter& JsonWriter::Integer(long long value) {
  Separate();
  m_out += std::to_string(value);
  m_needComma = true;
  return *this;
}

JsonWriter& JsonWriter::Bool(bool value) {
  Separate();
  m_out += value ? "true" : "false";
  m_needComma = true;
  return *this;
}

JsonWriter& JsonWriter::Null() {
  Separate();
  m_out += "null";
  m_needComma = true;
  return *this;
}

JsonWriter& JsonWriter::NumberObject(std::initializer_list<std::pair<std::string_view, double>> fields) {
  BeginObject();
  for (const auto& [key, value] : fields) Key(key).Number(value);
  return EndObject();
}

}  // namespace zostat
