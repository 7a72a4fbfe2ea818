#pragma once
// A minimal JSON writer for zostat's machine-readable output.
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include "common/ReportValues.h"

namespace zostat {

class JsonWriter {
 public:
  JsonWriter& BeginObject();
  JsonWriter& EndObject();
  JsonWriter& BeginArray();
  JsonWriter& EndArray();
  JsonWriter& Key(std::string_view key);
  JsonWriter& String(std::string_view value);
  // Shortest text that reads back to the same double; NaN and infinities as null.
  JsonWriter& Number(double value);
  JsonWriter& Integer(long long value);
  JsonWriter& Bool(bool value);
  JsonWriter& Null();
  // The named values as the members of the object being written.
  JsonWriter& Values(const ZOC::front::ReportValues& values);
  // One object of named numbers, in the order given.
  JsonWriter& NumberObject(std::initializer_list<std::pair<std::string_view, double>> fields);
  const std::string& str() const { return m_out; }

 private:
  void Separate();
  std::string m_out;
  bool m_needComma = false;
};

}  // namespace zostat
