#pragma once
// ZoStringEx: the host's message resources. Every message identifier the
// library raises has a plain-English text in the catalogue, and every text
// begins with its identifier in brackets, for example
//   "[ESa014] At least 4 records are needed; the dataset has fewer."
#include <initializer_list>
#include <string>
#include <vector>

#include "host/HostExport.h"
#include "host/LumaUnicodeString.h"

namespace ZOC {

using LUMA::LumaUnicodeString;

class SA_HOST_API ZoStringEx {
 public:
  // The catalogue text of an identifier. An identifier missing from the
  // catalogue still yields a text that names it, never an empty string.
  static LumaUnicodeString LoadResString(const char* id);
  static bool HasResString(const char* id);
  // Every identifier in the catalogue, in ascending order.
  static std::vector<std::string> ListIdentifiers();

  // Replaces %1, %2, ... %9 in the pattern with the arguments' text; "%%"
  // stands for one "%". Placeholders without an argument are left as they are.
  static LumaUnicodeString Format(const LumaUnicodeString& pattern, std::initializer_list<LumaUnicodeString> args);
  static LumaUnicodeString Format(const LumaUnicodeString& pattern, const std::vector<LumaUnicodeString>& args);
  // The progress form: a pattern with %1 = item number and %2 = item count.
  static LumaUnicodeString Format(const LumaUnicodeString& pattern, long long item, long long count);
};

}  // namespace ZOC
