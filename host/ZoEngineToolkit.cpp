#include "host/ZoEngineToolkit.h"

#include <string>
#include <vector>

#include <ogrsf_frmts.h>

#include "host/ZoDataSource.h"
#include "host/ZoDatasetVector.h"
#include "host/detail/DatasetInternals.h"

namespace ZOC {

namespace {

struct NameRules {
  std::size_t maxBytes = 0;    // 0: no limit
  bool asciiWordOnly = false;  // only [A-Za-z0-9_]
};

NameRules RulesFor(const std::string& driver) {
  NameRules rules;
  if (driver == "ESRI Shapefile") {
    rules.maxBytes = 10;  // dBASE field names
    rules.asciiWordOnly = true;
  }
  return rules;
}

bool IsWordChar(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

// Replaces every character outside [A-Za-z0-9_] (a whole UTF-8 sequence
// counting as one character) by '_'.
std::string ToWordChars(const std::string& name) {
  std::string out;
  for (std::size_t i = 0; i < name.size();) {
    const auto c = static_cast<unsigned char>(name[i]);
    if (IsWordChar(c)) {
      out += static_cast<char>(c);
      ++i;
      continue;
    }
    out += '_';
    ++i;
    if (c >= 0xC0)
      while (i < name.size() && (static_cast<unsigned char>(name[i]) & 0xC0) == 0x80) ++i;
  }
  return out;
}

// Cuts to at most n bytes without splitting a UTF-8 sequence.
std::string CutBytes(const std::string& s, std::size_t n) {
  if (n == 0 || s.size() <= n) return s;
  std::size_t end = n;
  while (end > 0 && (static_cast<unsigned char>(s[end]) & 0xC0) == 0x80) --end;
  return s.substr(0, end);
}

bool Taken(const std::vector<std::string>& names, const std::string& name) {
  for (const std::string& n : names)
    if (LumaUnicodeString(n).EqualsNoCase(name)) return true;
  return false;
}

}  // namespace

bool ZoEngineToolkit::CreateValidFields(ZoDatasetVector* target, LumaFieldInfos& fields) {
  try {
    if (!target || !target->GetDataSource()) return false;
    const NameRules rules = RulesFor(target->GetDataSource()->GetDriverName().Str());

    std::vector<std::string> taken;
    for (const LumaFieldInfo& f : target->GetFieldInfos()) taken.push_back(f.GetName().Str());
    // Columns the format keeps for itself.
    if (OGRLayer* layer = detail::HostAccess::Layer(*target)) {
      if (const char* fid = layer->GetFIDColumn(); fid && *fid) taken.emplace_back(fid);
      if (const char* geom = layer->GetGeometryColumn(); geom && *geom) taken.emplace_back(geom);
    }

    for (LumaFieldInfo& info : fields) {
      std::string base = info.GetName().Str();
      if (rules.asciiWordOnly) base = ToWordChars(base);
      if (base.empty()) base = "Field";
      base = CutBytes(base, rules.maxBytes);
      std::string name = base;
      for (int k = 1; Taken(taken, name); ++k) {
        const std::string suffix = "_" + std::to_string(k);
        std::string stem = base;
        if (rules.maxBytes > 0 && stem.size() + suffix.size() > rules.maxBytes)
          stem = CutBytes(stem, rules.maxBytes > suffix.size() ? rules.maxBytes - suffix.size() : 0);
        name = stem + suffix;
      }
      LumaFieldInfo created = info;
      created.SetName(name);
      created.SetSystemField(false);
      if (!target->CreateField(created)) return false;
      info.SetName(name);
      taken.push_back(name);
    }
    return true;
  } catch (...) {
    return false;
  }
}

}  // namespace ZOC
