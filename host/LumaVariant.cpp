#include "host/LumaVariant.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>

namespace LUMA {

double LumaVariant::ToDouble() const {
  switch (GetType()) {
    case Boolean: return GetBool() ? 1.0 : 0.0;
    case Integer: return static_cast<double>(GetInteger());
    case Double: return GetDouble();
    case Text: {
      const std::string s = GetText().Trimmed().Str();
      double v = 0.0;
      const auto [ptr, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
      return (ec == std::errc() && ptr == s.data() + s.size()) ? v : 0.0;
    }
    default: return 0.0;
  }
}

std::int64_t LumaVariant::ToInt64() const {
  if (GetType() == Integer) return GetInteger();
  const double v = ToDouble();
  if (std::isnan(v)) return 0;
  if (v >= 9.2233720368547758e18) return std::numeric_limits<std::int64_t>::max();
  if (v <= -9.2233720368547758e18) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(v);
}

int LumaVariant::ToInt() const {
  const std::int64_t v = ToInt64();
  if (v > std::numeric_limits<int>::max()) return std::numeric_limits<int>::max();
  if (v < std::numeric_limits<int>::min()) return std::numeric_limits<int>::min();
  return static_cast<int>(v);
}

LumaUnicodeString LumaVariant::ToString() const {
  switch (GetType()) {
    case Null: return LumaUnicodeString();
    case Boolean: return GetBool() ? "true" : "false";
    case Integer: return std::to_string(GetInteger());
    case Double: {
      char buf[64];
      const auto [ptr, ec] = std::to_chars(buf, buf + sizeof buf, GetDouble());
      return std::string(buf, ec == std::errc() ? ptr : buf);
    }
    case Text: return GetText();
    case DateTime: {
      const LumaDateTime& d = GetDateTime();
      char buf[64];
      std::snprintf(buf, sizeof buf, "%04d-%02d-%02dT%02d:%02d:%06.3f", d.year, d.month, d.day, d.hour, d.minute,
                    d.second);
      return LumaUnicodeString(buf);
    }
    case Binary: return std::to_string(GetBinary().size()) + " bytes";
  }
  return LumaUnicodeString();
}

}  // namespace LUMA
