#include "StatisticsAnalyst/detail/geodetector/Strata.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <unordered_map>

#include "StatisticsAnalyst/detail/geodetector/Discretization.h"
#include "host/LumaFieldInfo.h"
#include "host/LumaVariant.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::geodetector {

namespace {

bool Named(const std::vector<LUMA::LumaUnicodeString>& names, const LUMA::LumaUnicodeString& name) {
  return std::any_of(names.begin(), names.end(), [&](const auto& n) { return n.EqualsNoCase(name.Str()); });
}

bool IsIntegerType(int type) {
  return type == LUMA::FieldByte || type == LUMA::FieldInt16 || type == LUMA::FieldInt32 || type == LUMA::FieldInt64 ||
         type == LUMA::FieldBoolean;
}

Status CheckFactor(ZoDatasetVector* dataset, const ZoGeoDetectorInformation& info, std::size_t f, FactorSpec& spec) {
  const LUMA::LumaUnicodeString& name = info.FactorFields[f];
  LUMA::LumaFieldInfo field;
  if (name.IsEmpty() || !dataset->GetFieldInfo(name, field)) return Status::Fail(msg::ECd001);
  const std::vector<LUMA::LumaUnicodeString> earlier(info.FactorFields.begin(),
                                                     info.FactorFields.begin() + static_cast<std::ptrdiff_t>(f));
  if (name.EqualsNoCase(info.DependentField.Str()) || Named(earlier, name)) return Status::Fail(msg::ESa097, {name});
  const int type = field.GetType();
  if (type != LUMA::FieldText && type != LUMA::FieldBoolean && !LUMA::IsNumericFieldType(type))
    return Status::Fail(msg::ESa098, {name});
  spec.field = name;
  spec.text = type == LUMA::FieldText;
  spec.categorical = spec.text || IsIntegerType(type) || Named(info.CategoricalFields, name);
  return Status::Ok();
}

}  // namespace

Status CheckParameters(ZoDatasetVector* dataset, const ZoGeoDetectorInformation& info, std::vector<FactorSpec>& specs) {
  if (info.DependentField.IsEmpty()) return Status::Fail(msg::ESa005);
  LUMA::LumaFieldInfo field;
  if (!dataset->GetFieldInfo(info.DependentField, field)) return Status::Fail(msg::ECd001);
  if (!LUMA::IsNumericFieldType(field.GetType())) return Status::Fail(msg::ESa006);
  if (info.FactorFields.empty()) return Status::Fail(msg::ESa096);
  specs.assign(info.FactorFields.size(), {});
  for (std::size_t f = 0; f < specs.size(); ++f)
    if (Status s = CheckFactor(dataset, info, f, specs[f]); !s) return s;
  for (const auto& name : info.CategoricalFields)
    if (!Named(info.FactorFields, name)) return Status::Fail(msg::ESa097, {name});
  if (info.Classes < 2 || info.Classes > 30) return Status::Fail(msg::ESa099);
  if (!(info.Alpha > 0.0 && info.Alpha < 1.0)) return Status::Fail(msg::ESa100);
  if (info.Discretization < DiscretizeQuantile || info.Discretization > DiscretizeStandardDeviation ||
      info.Detectors <= 0 || info.Detectors > DetectAll)
    return Status::Fail(msg::ESa101);
  return Status::Ok();
}

namespace {

// One field's values as read: numbers or words, and where they are NULL.
struct FieldValues {
  LUMA::LumaUnicodeString name;
  bool text = false;
  std::vector<double>* numbers = nullptr;
  std::vector<std::string>* texts = nullptr;
  std::vector<std::uint8_t> nulls;
};

void ReadRecordByRecord(ZoRecordset* records, std::vector<FieldValues*>& fields, CallProgress& progress,
                        Status& status) {
  const std::int64_t n = records->GetRecordCount();
  const LUMA::LumaUnicodeString format = progress ? ZoStringEx::LoadResString(msg::IMb399) : LUMA::LumaUnicodeString();
  LUMA::LumaVariant value;
  std::int64_t k = 0;
  for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext(), ++k) {
    if (!progress.Step(format, k, n)) {
      status = Status::Fail(msg::IMb030);
      return;
    }
    for (FieldValues* f : fields) {
      if (!records->GetFieldValue(f->name, value)) value = LUMA::LumaVariant();
      f->nulls.push_back(value.IsNull() ? 1 : 0);
      if (f->text)
        f->texts->push_back(value.IsNull() ? std::string() : value.ToString().Str());
      else
        f->numbers->push_back(value.ToDouble());
    }
  }
}

}  // namespace

Status ReadTable(ZoRecordset* records, const LUMA::LumaUnicodeString& dependent, const std::vector<FactorSpec>& specs,
                 CallProgress& progress, DetectorTable& table) {
  table = DetectorTable();
  table.numbers.resize(specs.size());
  table.texts.resize(specs.size());
  std::vector<FieldValues> all(specs.size() + 1);
  all[0].name = dependent, all[0].numbers = &table.y;
  for (std::size_t f = 0; f < specs.size(); ++f) {
    FieldValues& v = all[f + 1];
    v.name = specs[f].field, v.text = specs[f].text;
    v.numbers = &table.numbers[f], v.texts = &table.texts[f];
  }
  // The numbers by columns when the layer streams them; the words (and the
  // numbers otherwise) in one pass over the records.
  std::vector<LUMA::LumaUnicodeString> numeric;
  for (const FieldValues& v : all)
    if (!v.text) numeric.push_back(v.name);
  ZoRecordset::Columns columns;
  const bool byColumns = records->ReadColumns(numeric, false, columns);
  std::vector<FieldValues*> pass;
  std::size_t c = 0;
  for (FieldValues& v : all) {
    if (v.text || !byColumns) {
      pass.push_back(&v);
    } else {
      *v.numbers = std::move(columns.values[c]);
      v.nulls = std::move(columns.nulls[c]);
      ++c;
    }
  }
  Status status;
  if (!pass.empty()) ReadRecordByRecord(records, pass, progress, status);
  if (!status) return status;
  const std::size_t n = table.y.size();
  for (const FieldValues& v : all)
    if (v.nulls.size() != n) return Status::Fail(msg::EKa013);
  for (std::size_t k = 0; k < n; ++k) {
    for (const FieldValues& v : all) {
      const auto id = [&] {
        return LUMA::LumaUnicodeString(std::to_string(records->GetIDAt(static_cast<std::int64_t>(k))));
      };
      if (v.nulls[k]) return Status::Fail(msg::ESa103, {id(), v.name});
      if (!v.text && !std::isfinite((*v.numbers)[k])) return Status::Fail(msg::EUc001, {id(), v.name});
    }
  }
  return Status::Ok();
}

namespace {

// A category or class limit for people: ten significant digits (the exact
// limits are in the breaks).
LUMA::LumaUnicodeString NumberText(double x) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.10g", x);
  return LUMA::LumaUnicodeString(buffer);
}

// Numbers each record by the rank of its key among the distinct keys.
template <class Key>
std::vector<Key> RankDistinct(const std::vector<Key>& keys, Stratification& strata) {
  std::vector<Key> distinct;
  std::unordered_map<Key, std::int32_t> seen;
  for (const Key& key : keys)
    if (seen.emplace(key, 0).second) distinct.push_back(key);
  std::sort(distinct.begin(), distinct.end());
  for (std::size_t h = 0; h < distinct.size(); ++h) seen[distinct[h]] = static_cast<std::int32_t>(h);
  strata.count = static_cast<std::int32_t>(distinct.size());
  strata.of.resize(keys.size());
  for (std::size_t k = 0; k < keys.size(); ++k) strata.of[k] = seen[keys[k]];
  return distinct;
}

Discretization MethodOf(ZoDiscretization method) {
  switch (method) {
    case DiscretizeEqualInterval: return Discretization::EqualInterval;
    case DiscretizeNaturalBreaks: return Discretization::NaturalBreaks;
    case DiscretizeStandardDeviation: return Discretization::StandardDeviation;
    default: return Discretization::Quantile;
  }
}

}  // namespace

FactorStrata StratifyNumbers(const std::vector<double>& values, bool categorical, ZoDiscretization method,
                             int classes) {
  FactorStrata out;
  if (categorical) {
    // -0 and 0 are one category.
    std::vector<double> keys(values);
    for (double& k : keys) k = k == 0.0 ? 0.0 : k;
    for (double v : RankDistinct(keys, out.strata)) out.labels.push_back(NumberText(v));
    return out;
  }
  out.discretized = true;
  out.breaks = ClassBreaks(values, MethodOf(method), classes);
  std::vector<std::int32_t> classOf(values.size());
  for (std::size_t k = 0; k < values.size(); ++k) classOf[k] = ClassOf(out.breaks, values[k]);
  // Classes that hold no record are not strata.
  for (std::int32_t h : RankDistinct(classOf, out.strata)) {
    const auto at = static_cast<std::size_t>(h);
    out.labels.push_back((h == 0 ? "[" : "(") + NumberText(out.breaks[at]).Str() + ", " +
                         NumberText(out.breaks[at + 1]).Str() + "]");
  }
  return out;
}

FactorStrata StratifyTexts(const std::vector<std::string>& values) {
  FactorStrata out;
  for (const std::string& v : RankDistinct(values, out.strata)) out.labels.push_back(LUMA::LumaUnicodeString(v));
  return out;
}

}  // namespace ZOC::detail::geodetector
