#include "host/detail/FieldConversion.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include <cpl_string.h>

namespace ZOC::detail {

using LUMA::LumaDateTime;
using LUMA::LumaVariant;

// Host codes and their OGR representation:
//   1 boolean  OFTInteger + OFSTBoolean
//   2 byte     OFTInteger, width 3, plus a range domain [0, 255] where the
//              format has field domains. GeoPackage keeps neither widths nor
//              an 8-bit type that GDAL reports (a TINYINT column reads back as
//              a plain OFTInteger, exactly like MEDIUMINT), so the domain is
//              what tells a byte field there. Read rule: an OFTInteger without
//              subtype is a byte when its width is 1..3 (Shapefile N(3,0),
//              memory layers) or when its domain is the range [0, 255].
//   3 int16    OFTInteger + OFSTInt16
//   4 int32    OFTInteger
//   6 single   OFTReal + OFSTFloat32
//   7 double   OFTReal
//  10 text     OFTString (width = the field size)
//  16 int64    OFTInteger64
//  18 binary   OFTBinary
//  22, 23      OFTDateTime, OFTDate
//  24 time     OFTTime where the driver has it; otherwise text "HH:MM:SS[.sss]"
//              tagged with the glob domain kTimeDomain (GeoPackage) so that it
//              reads back as a time.
// 127 other    OFTStringList where the driver has lists; otherwise text tagged
//              with the domain kOtherDomain. Values are read as text.
// A type the driver cannot create falls back to text.

namespace {

constexpr const char* kByteDomain = "byte_0_255";
constexpr const char* kTimeDomain = "time_of_day";
constexpr const char* kOtherDomain = "other_as_text";
constexpr const char* kTimeGlob = "[0-2][0-9]:[0-5][0-9]:[0-5][0-9]*";

bool IsByteRange(const OGRFieldDomain* domain) {
  if (!domain || domain->GetDomainType() != OFDT_RANGE) return false;
  const auto* range = static_cast<const OGRRangeFieldDomain*>(domain);
  bool minIncl = false, maxIncl = false;
  const OGRField& mn = range->GetMin(minIncl);
  const OGRField& mx = range->GetMax(maxIncl);
  if (range->GetFieldType() != OFTInteger || OGR_RawField_IsUnset(&mn) || OGR_RawField_IsUnset(&mx)) return false;
  return minIncl && maxIncl && mn.Integer == 0 && mx.Integer == 255;
}

bool DriverListsWord(GDALDataset* dataset, const char* item, const char* word) {
  GDALDriver* driver = dataset ? dataset->GetDriver() : nullptr;
  const char* list = driver ? driver->GetMetadataItem(item) : nullptr;
  if (!list) return false;
  const CPLStringList words(CSLTokenizeString2(list, " ", 0));
  return words.FindString(word) >= 0;
}

bool DriverCreates(GDALDataset* dataset, OGRFieldType type) {
  GDALDriver* driver = dataset ? dataset->GetDriver() : nullptr;
  if (!driver || !driver->GetMetadataItem(GDAL_DMD_CREATIONFIELDDATATYPES)) return true;  // not declared: try
  return DriverListsWord(dataset, GDAL_DMD_CREATIONFIELDDATATYPES, OGRFieldDefn::GetFieldTypeName(type));
}

// Makes sure the named marker domain exists in the dataset; false when the
// format has no field domains.
bool EnsureDomain(GDALDataset* dataset, const char* name) {
  if (!dataset) return false;
  if (dataset->GetFieldDomain(name)) return true;
  if (!dataset->TestCapability(ODsCAddFieldDomain)) return false;
  std::unique_ptr<OGRFieldDomain> domain;
  if (std::strcmp(name, kByteDomain) == 0) {
    if (!DriverListsWord(dataset, GDAL_DMD_CREATION_FIELD_DOMAIN_TYPES, "Range")) return false;
    OGRField mn, mx;
    mn.Integer = 0;
    mx.Integer = 255;
    domain =
        std::make_unique<OGRRangeFieldDomain>(name, "unsigned 8-bit integer", OFTInteger, OFSTNone, mn, true, mx, true);
  } else {
    if (!DriverListsWord(dataset, GDAL_DMD_CREATION_FIELD_DOMAIN_TYPES, "Glob")) return false;
    const bool time = std::strcmp(name, kTimeDomain) == 0;
    domain = std::make_unique<OGRGlobFieldDomain>(name, time ? "time of day HH:MM:SS" : "value kept as text", OFTString,
                                                  OFSTNone, time ? kTimeGlob : "*");
  }
  std::string reason;
  return dataset->AddFieldDomain(std::move(domain), reason);
}

bool ParseTime(const char* text, LumaDateTime& out) {
  int h = 0, m = 0;
  double s = 0.0;
  int used = 0;
  const int n = std::sscanf(text, "%d:%d:%lf%n", &h, &m, &s, &used);
  if (n < 3) {
    if (std::sscanf(text, "%d:%d%n", &h, &m, &used) < 2) return false;
    s = 0.0;
  }
  if (h < 0 || h > 24 || m < 0 || m > 59 || s < 0.0 || s >= 61.0) return false;
  out = LumaDateTime{};
  out.hour = h;
  out.minute = m;
  out.second = s;
  return true;
}

std::string FormatTime(const LumaDateTime& t) {
  char buf[48];
  const double whole = std::floor(t.second);
  if (t.second == whole)
    std::snprintf(buf, sizeof buf, "%02d:%02d:%02d", t.hour, t.minute, static_cast<int>(whole));
  else
    std::snprintf(buf, sizeof buf, "%02d:%02d:%06.3f", t.hour, t.minute, t.second);
  return buf;
}

// Parses a whole text as a number.
bool ParseNumber(const std::string& text, double& out) {
  const char* s = text.c_str();
  while (*s == ' ' || *s == '\t') ++s;
  if (!*s) return false;
  char* end = nullptr;
  out = std::strtod(s, &end);
  while (end && (*end == ' ' || *end == '\t')) ++end;
  return end && *end == '\0';
}

// A value as an integer: booleans, integers, finite doubles (truncated) and numeric text.
bool IntegerOf(const LumaVariant& v, std::int64_t& out) {
  switch (v.GetType()) {
    case LumaVariant::Boolean: out = v.GetBool() ? 1 : 0; return true;
    case LumaVariant::Integer: out = v.GetInteger(); return true;
    case LumaVariant::Double:
    case LumaVariant::Text: {
      double d = 0.0;
      if (v.GetType() == LumaVariant::Double)
        d = v.GetDouble();
      else if (!ParseNumber(v.GetText().Str(), d))
        return false;
      if (!std::isfinite(d) || d >= 9.2233720368547758e18 || d < -9.2233720368547758e18) return false;
      out = static_cast<std::int64_t>(d);
      return true;
    }
    default: return false;
  }
}

bool RealOf(const LumaVariant& v, double& out) {
  switch (v.GetType()) {
    case LumaVariant::Boolean:
    case LumaVariant::Integer:
    case LumaVariant::Double: out = v.ToDouble(); return true;
    case LumaVariant::Text: return ParseNumber(v.GetText().Str(), out);
    default: return false;
  }
}

}  // namespace

int HostFieldType(const OGRFieldDefn& field, const GDALDataset* dataset) {
  const std::string& domainName = field.GetDomainName();
  const OGRFieldDomain* domain = (!domainName.empty() && dataset) ? dataset->GetFieldDomain(domainName) : nullptr;
  switch (field.GetType()) {
    case OFTInteger:
      if (field.GetSubType() == OFSTBoolean) return LUMA::FieldBoolean;
      if (field.GetSubType() == OFSTInt16) return LUMA::FieldInt16;
      if ((field.GetWidth() >= 1 && field.GetWidth() <= 3) || IsByteRange(domain)) return LUMA::FieldByte;
      return LUMA::FieldInt32;
    case OFTInteger64: return LUMA::FieldInt64;
    case OFTReal: return field.GetSubType() == OFSTFloat32 ? LUMA::FieldSingle : LUMA::FieldDouble;
    case OFTString:
      if (domainName == kTimeDomain) return LUMA::FieldTime;
      if (domainName == kOtherDomain) return LUMA::FieldOther;
      return LUMA::FieldText;
    case OFTBinary: return LUMA::FieldBinary;
    case OFTDateTime: return LUMA::FieldDateTime;
    case OFTDate: return LUMA::FieldDate;
    case OFTTime: return LUMA::FieldTime;
    default: return LUMA::FieldOther;
  }
}

std::unique_ptr<OGRFieldDefn> MakeFieldDefn(const LUMA::LumaFieldInfo& info, GDALDataset* dataset) {
  OGRFieldType type = OFTString;
  OGRFieldSubType subType = OFSTNone;
  int width = 0;
  const char* domain = nullptr;
  switch (info.GetType()) {
    case LUMA::FieldBoolean:
      type = OFTInteger;
      subType = OFSTBoolean;
      break;
    case LUMA::FieldByte:
      type = OFTInteger;
      width = 3;
      domain = kByteDomain;
      break;
    case LUMA::FieldInt16:
      type = OFTInteger;
      subType = OFSTInt16;
      break;
    case LUMA::FieldInt32: type = OFTInteger; break;
    case LUMA::FieldSingle:
      type = OFTReal;
      subType = OFSTFloat32;
      break;
    case LUMA::FieldDouble: type = OFTReal; break;
    case LUMA::FieldText:
      type = OFTString;
      width = info.GetSize() > 0 ? info.GetSize() : 0;
      break;
    case LUMA::FieldInt64: type = OFTInteger64; break;
    case LUMA::FieldBinary: type = OFTBinary; break;
    case LUMA::FieldDateTime: type = OFTDateTime; break;
    case LUMA::FieldDate: type = OFTDate; break;
    case LUMA::FieldTime:
      type = OFTTime;
      if (!DriverCreates(dataset, OFTTime)) {
        type = OFTString;
        domain = kTimeDomain;
      }
      break;
    case LUMA::FieldOther:
      type = OFTStringList;
      if (!DriverCreates(dataset, OFTStringList)) {
        type = OFTString;
        domain = kOtherDomain;
      }
      break;
    default: return nullptr;
  }
  if (!DriverCreates(dataset, type)) {
    type = OFTString;
    subType = OFSTNone;
    width = 0;
    domain = nullptr;
  }
  auto defn = std::make_unique<OGRFieldDefn>(info.GetName().c_str(), type);
  defn->SetSubType(subType);
  if (width > 0) defn->SetWidth(width);
  if (domain && EnsureDomain(dataset, domain)) defn->SetDomainName(domain);
  return defn;
}

void ReadFieldValue(const OGRFeature& feature, int index, int hostType, LumaVariant& value) {
  if (!feature.IsFieldSetAndNotNull(index)) {
    value = LumaVariant();
    return;
  }
  const OGRFieldDefn* defn = feature.GetFieldDefnRef(index);
  switch (defn->GetType()) {
    case OFTInteger:
      if (defn->GetSubType() == OFSTBoolean)
        value = LumaVariant(feature.GetFieldAsInteger(index) != 0);
      else
        value = LumaVariant(static_cast<std::int64_t>(feature.GetFieldAsInteger(index)));
      return;
    case OFTInteger64: value = LumaVariant(static_cast<std::int64_t>(feature.GetFieldAsInteger64(index))); return;
    case OFTReal: value = LumaVariant(feature.GetFieldAsDouble(index)); return;
    case OFTString: {
      const char* text = feature.GetFieldAsString(index);
      LumaDateTime t;
      if (hostType == LUMA::FieldTime && ParseTime(text, t))
        value = LumaVariant(t);
      else
        value = LumaVariant(text);
      return;
    }
    case OFTDate:
    case OFTDateTime:
    case OFTTime: {
      int y = 0, mo = 0, d = 0, h = 0, mi = 0, tz = 0;
      float s = 0.0f;
      feature.GetFieldAsDateTime(index, &y, &mo, &d, &h, &mi, &s, &tz);
      LumaDateTime t;
      if (defn->GetType() != OFTTime) {
        t.year = y;
        t.month = mo;
        t.day = d;
      }
      if (defn->GetType() != OFTDate) {
        t.hour = h;
        t.minute = mi;
        // GDAL keeps milliseconds in a float; round off the float noise.
        t.second = std::round(static_cast<double>(s) * 1000.0) / 1000.0;
        t.tzFlag = tz;
      }
      value = LumaVariant(t);
      return;
    }
    case OFTBinary: {
      int n = 0;
      const GByte* bytes = feature.GetFieldAsBinary(index, &n);
      value = LumaVariant(std::vector<unsigned char>(bytes, bytes + (bytes && n > 0 ? n : 0)));
      return;
    }
    default: value = LumaVariant(feature.GetFieldAsString(index)); return;
  }
}

namespace {

// An integer into an OGR integer field, within the range of its subtype (or
// of a byte for host byte fields); booleans become 0 or 1.
bool WriteInteger(OGRFeature& feature, int index, int hostType, const LumaVariant& value) {
  const OGRFieldDefn* defn = feature.GetFieldDefnRef(index);
  std::int64_t v = 0;
  if (!IntegerOf(value, v)) return false;
  std::int64_t lo = std::numeric_limits<int>::min(), hi = std::numeric_limits<int>::max();
  if (defn->GetSubType() == OFSTBoolean) {
    v = v != 0;
  } else if (defn->GetSubType() == OFSTInt16) {
    lo = -32768;
    hi = 32767;
  } else if (hostType == LUMA::FieldByte) {
    lo = 0;
    hi = 255;
  }
  if (v < lo || v > hi) return false;
  feature.SetField(index, static_cast<int>(v));
  return true;
}

void WriteText(OGRFeature& feature, int index, int hostType, const LumaVariant& value) {
  if (hostType == LUMA::FieldTime && value.GetType() == LumaVariant::DateTime) {
    feature.SetField(index, FormatTime(value.GetDateTime()).c_str());
  } else if (value.GetType() == LumaVariant::Binary) {
    const auto& b = value.GetBinary();
    feature.SetField(index, std::string(b.begin(), b.end()).c_str());
  } else {
    feature.SetField(index, value.ToString().c_str());
  }
}

bool WriteDateTime(OGRFeature& feature, int index, const LumaVariant& value) {
  if (value.GetType() == LumaVariant::DateTime) {
    const LumaDateTime& t = value.GetDateTime();
    if (feature.GetFieldDefnRef(index)->GetType() == OFTDate)
      feature.SetField(index, t.year, t.month, t.day, 0, 0, 0.0f, 0);
    else
      feature.SetField(index, t.year, t.month, t.day, t.hour, t.minute, static_cast<float>(t.second), t.tzFlag);
    return true;
  }
  if (value.GetType() != LumaVariant::Text) return false;
  OGRField parsed;
  if (!OGRParseDate(value.GetText().c_str(), &parsed, 0)) return false;
  feature.SetField(index, &parsed);
  return true;
}

bool WriteBinary(OGRFeature& feature, int index, const LumaVariant& value) {
  if (value.GetType() == LumaVariant::Binary) {
    const auto& b = value.GetBinary();
    feature.SetField(index, static_cast<int>(b.size()), b.data());
    return true;
  }
  if (value.GetType() != LumaVariant::Text) return false;
  const std::string& s = value.GetText().Str();
  feature.SetField(index, static_cast<int>(s.size()), s.data());
  return true;
}

// Text in OGR's list form "(n:a,b,...)" (what reading gives) becomes the
// list again; any other text is a one-element list.
void WriteStringList(OGRFeature& feature, int index, const LumaVariant& value) {
  const std::string text = value.ToString().Str();
  int count = -1, used = 0;
  if (text.size() >= 4 && text.front() == '(' && text.back() == ')' &&
      std::sscanf(text.c_str(), "(%d:%n", &count, &used) == 1 && count >= 0 && used > 0) {
    const std::string body = text.substr(static_cast<std::size_t>(used), text.size() - 1 - used);
    CPLStringList items;
    if (count > 0) {
      std::size_t start = 0;
      for (;;) {
        const std::size_t comma = body.find(',', start);
        items.AddString(body.substr(start, comma == std::string::npos ? std::string::npos : comma - start).c_str());
        if (comma == std::string::npos) break;
        start = comma + 1;
      }
    }
    if (items.Count() == count) {
      feature.SetField(index, items.List());
      return;
    }
  }
  const char* const single[] = {text.c_str(), nullptr};
  feature.SetField(index, single);
}

}  // namespace

bool WriteFieldValue(OGRFeature& feature, int index, int hostType, const LumaVariant& value) {
  if (value.IsNull()) {
    feature.SetFieldNull(index);
    return true;
  }
  switch (feature.GetFieldDefnRef(index)->GetType()) {
    case OFTInteger: return WriteInteger(feature, index, hostType, value);
    case OFTInteger64: {
      std::int64_t v = 0;
      if (!IntegerOf(value, v)) return false;
      feature.SetField(index, static_cast<GIntBig>(v));
      return true;
    }
    case OFTReal: {
      double v = 0.0;
      if (!RealOf(value, v)) return false;
      feature.SetField(index, v);
      return true;
    }
    case OFTString: WriteText(feature, index, hostType, value); return true;
    case OFTDate:
    case OFTDateTime:
    case OFTTime: return WriteDateTime(feature, index, value);
    case OFTBinary: return WriteBinary(feature, index, value);
    case OFTStringList: WriteStringList(feature, index, value); return true;
    default: feature.SetField(index, value.ToString().c_str()); return true;
  }
}

double DateTimeKey(int year, int month, int day, int hour, int minute, double second) {
  // Days from the civil calendar (proleptic Gregorian), so that any two
  // dates compare in calendar order.
  const int y = year - (month <= 2 ? 1 : 0);
  const int era = (y >= 0 ? y : y - 399) / 400;
  const int yoe = y - era * 400;
  const int mp = (month + 9) % 12;
  const int doy = (153 * mp + 2) / 5 + day - 1;
  const int doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  const double days = static_cast<double>(era) * 146097.0 + doe;
  return days * 86400.0 + hour * 3600.0 + minute * 60.0 + second;
}

}  // namespace ZOC::detail
