#pragma once
// LumaVariant: one field value. Null, boolean, integer, double, text, date
// and time, or binary. Numbers convert with ToDouble / ToInt; text converts
// when it holds a number.
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "host/HostExport.h"
#include "host/LumaUnicodeString.h"

namespace LUMA {

// A calendar date and time of day. Fields that hold only a date leave the
// time at midnight; fields that hold only a time leave the date at zero.
struct LumaDateTime {
  int year = 0, month = 0, day = 0;
  int hour = 0, minute = 0;
  double second = 0.0;
  int tzFlag = 0;  // GDAL convention: 0 unknown, 1 local, 100 UTC, 100±4·hours
  friend bool operator==(const LumaDateTime&, const LumaDateTime&) = default;
};

class SA_HOST_API LumaVariant {
 public:
  enum Type { Null, Boolean, Integer, Double, Text, DateTime, Binary };

  LumaVariant() = default;
  LumaVariant(bool v) : m_value(v) {}
  LumaVariant(int v) : m_value(static_cast<std::int64_t>(v)) {}
  LumaVariant(std::int64_t v) : m_value(v) {}
  LumaVariant(double v) : m_value(v) {}
  LumaVariant(const char* v) : m_value(LumaUnicodeString(v)) {}
  LumaVariant(LumaUnicodeString v) : m_value(std::move(v)) {}
  LumaVariant(const LumaDateTime& v) : m_value(v) {}
  LumaVariant(std::vector<unsigned char> v) : m_value(std::move(v)) {}

  Type GetType() const { return static_cast<Type>(m_value.index()); }
  bool IsNull() const { return GetType() == Null; }
  bool IsNumeric() const { return GetType() == Integer || GetType() == Double || GetType() == Boolean; }

  // Null gives 0; text is parsed as a number (0 when it is not one); a date gives 0.
  double ToDouble() const;
  // As ToDouble, truncated toward zero and clamped to the 32-bit range.
  int ToInt() const;
  std::int64_t ToInt64() const;
  // Text form: numbers as the shortest decimal that reads back exactly,
  // dates as ISO 8601, null as "".
  LumaUnicodeString ToString() const;

  bool GetBool() const { return std::get<bool>(m_value); }
  std::int64_t GetInteger() const { return std::get<std::int64_t>(m_value); }
  double GetDouble() const { return std::get<double>(m_value); }
  const LumaUnicodeString& GetText() const { return std::get<LumaUnicodeString>(m_value); }
  const LumaDateTime& GetDateTime() const { return std::get<LumaDateTime>(m_value); }
  const std::vector<unsigned char>& GetBinary() const { return std::get<std::vector<unsigned char>>(m_value); }

  friend bool operator==(const LumaVariant&, const LumaVariant&) = default;

 private:
  std::variant<std::monostate, bool, std::int64_t, double, LumaUnicodeString, LumaDateTime, std::vector<unsigned char>>
      m_value;
};

}  // namespace LUMA
