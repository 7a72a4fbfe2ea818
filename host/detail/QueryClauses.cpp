#include "host/detail/QueryClauses.h"

#include <algorithm>
#include <cctype>
#include <string_view>

#include "host/LumaUnicodeString.h"

namespace ZOC::detail {

namespace {

bool IsSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

// Takes a keyword (case-insensitive) followed by whitespace or the end.
bool TakeKeyword(std::string_view& s, std::string_view word) {
  if (s.size() < word.size() || !LUMA::LumaUnicodeString(s.substr(0, word.size())).EqualsNoCase(word)) return false;
  if (s.size() > word.size() && !IsSpace(s[word.size()])) return false;
  s.remove_prefix(word.size());
  while (!s.empty() && IsSpace(s.front())) s.remove_prefix(1);
  return true;
}

std::string_view Trim(std::string_view s) {
  while (!s.empty() && IsSpace(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsSpace(s.back())) s.remove_suffix(1);
  return s;
}

}  // namespace

bool ParseOrder(const std::string& clause, LayerState& state, std::vector<OrderKey>& keys) {
  keys.clear();
  std::string_view s = Trim(clause);
  if (s.empty()) return true;
  if (!TakeKeyword(s, "ORDER") || !TakeKeyword(s, "BY")) return false;
  if (s.empty()) return false;
  // Split on commas outside double-quoted names.
  std::vector<std::string_view> items;
  bool quoted = false;
  std::size_t start = 0;
  for (std::size_t i = 0; i <= s.size(); ++i) {
    if (i < s.size() && s[i] == '"') quoted = !quoted;
    if (i == s.size() || (s[i] == ',' && !quoted)) {
      items.push_back(s.substr(start, i - start));
      start = i + 1;
    }
  }
  if (quoted) return false;
  for (std::string_view item : items) {
    item = Trim(item);
    if (item.empty()) return false;
    std::string name;
    std::string_view rest;
    if (item.front() == '"') {
      std::size_t i = 1;
      for (; i < item.size(); ++i) {
        if (item[i] == '"') {
          if (i + 1 < item.size() && item[i + 1] == '"') {
            name += '"';
            ++i;
          } else {
            break;
          }
        } else {
          name += item[i];
        }
      }
      if (i >= item.size()) return false;
      rest = item.substr(i + 1);
      if (!rest.empty() && !IsSpace(rest.front())) return false;
    } else {
      std::size_t i = 0;
      while (i < item.size() && !IsSpace(item[i])) ++i;
      name.assign(item.substr(0, i));
      rest = item.substr(i);
    }
    rest = Trim(rest);
    OrderKey key;
    if (rest.empty() || LUMA::LumaUnicodeString(rest).EqualsNoCase("ASC"))
      key.desc = false;
    else if (LUMA::LumaUnicodeString(rest).EqualsNoCase("DESC"))
      key.desc = true;
    else
      return false;
    key.field = state.FindField(name);
    if (key.field == kFieldUnknown || name.empty()) return false;
    keys.push_back(key);
  }
  return true;
}

std::string TranslateFilter(const std::string& filter, LayerState& state) {
  std::string_view s = Trim(filter);
  if (s.empty()) return {};
  std::string fidName = "FID";
  const char* driver = state.gdal && state.gdal->GetDriver() ? state.gdal->GetDriver()->GetDescription() : "";
  const char* fidColumn = state.layer->GetFIDColumn();
  if ((EQUAL(driver, "GPKG") || EQUAL(driver, "SQLite")) && fidColumn && *fidColumn) {
    fidName = "\"";
    for (const char* p = fidColumn; *p; ++p) {
      fidName += *p;
      if (*p == '"') fidName += '"';
    }
    fidName += '"';
  }
  std::string out;
  std::size_t i = 0;
  while (i < s.size()) {
    const char c = s[i];
    if (c == '\'') {  // string literal, '' escapes
      std::size_t j = i + 1;
      while (j < s.size()) {
        if (s[j] == '\'') {
          if (j + 1 < s.size() && s[j + 1] == '\'') {
            j += 2;
            continue;
          }
          break;
        }
        ++j;
      }
      j = std::min(j + 1, s.size());
      out.append(s.substr(i, j - i));
      i = j;
    } else if (c == '"') {  // quoted identifier
      std::size_t j = s.find('"', i + 1);
      j = (j == std::string_view::npos) ? s.size() : j + 1;
      std::string_view ident = s.substr(i, j - i);
      if (ident.size() >= 2 && LUMA::LumaUnicodeString(ident.substr(1, ident.size() - 2)).EqualsNoCase(kSystemIdField))
        out += fidName;
      else
        out.append(ident);
      i = j;
    } else if (std::isalpha(static_cast<unsigned char>(c)) || c == '_') {
      std::size_t j = i + 1;
      while (j < s.size() && (std::isalnum(static_cast<unsigned char>(s[j])) || s[j] == '_')) ++j;
      std::string_view ident = s.substr(i, j - i);
      if (LUMA::LumaUnicodeString(ident).EqualsNoCase(kSystemIdField))
        out += fidName;
      else
        out.append(ident);
      i = j;
    } else {
      out += c;
      ++i;
    }
  }
  return out;
}

}  // namespace ZOC::detail
