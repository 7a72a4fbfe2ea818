#include "common/Errors.h"

#include <cctype>

#include "host/ZoStringEx.h"

namespace ZOC::front {

std::string MessageText(const char* id, const std::string& detail) {
  std::string text = ZOC::ZoStringEx::LoadResString(id).Str();
  if (!detail.empty()) text += " (" + detail + ")";
  return text;
}

UsageError::UsageError(const char* id, const std::string& detail) : std::runtime_error(MessageText(id, detail)) {}

bool HasIdentifier(const std::string& text) {
  auto is = [&](std::size_t i, int (*test)(int)) { return test(static_cast<unsigned char>(text[i])) != 0; };
  // "[" two upper-case letters, one lower-case letter, three digits.
  for (std::size_t i = 0; i + 7 <= text.size(); ++i) {
    if (text[i] == '[' && is(i + 1, std::isupper) && is(i + 2, std::isupper) && is(i + 3, std::islower) &&
        is(i + 4, std::isdigit) && is(i + 5, std::isdigit) && is(i + 6, std::isdigit))
      return true;
  }
  return false;
}

}  // namespace ZOC::front
