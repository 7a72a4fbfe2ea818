#include "StatisticsAnalyst/detail/common/FeatureData.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "StatisticsAnalyst/detail/probability/Distributions.h"
#include "host/LumaVariant.h"
#include "host/ZoGeometry.h"
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"

namespace ZOC::detail {

namespace {
LUMA::LumaUnicodeString QlIdText(ZoRecordset* records) { return std::to_string(records->GetID()).c_str(); }
}  // namespace

bool RecordPoint(ZoRecordset* records, ZoGeometry& geometry, LUMA::LumaPoint2D& point) {
  return records->GetGeometry(geometry) && !geometry.IsEmpty() && geometry.GetBaryCenter(point);
}

Status ReadFeaturePoints(ZoRecordset* records, LUMA::LumaArray<LUMA::LumaPoint2D>& points) {
  points.clear();
  points.reserve(static_cast<std::size_t>(std::max<std::int64_t>(records->GetRecordCount(), 0)));
  ZoGeometry geometry;
  LUMA::LumaPoint2D p;
  for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext()) {
    if (!RecordPoint(records, geometry, p)) return Status::Fail(msg::EUc002, {QlIdText(records)});
    points.push_back(p);
  }
  return Status::Ok();
}

namespace {

// Takes one record at a time, in order, and applies the checks of
// ReadFeatures; both ways of reading feed it, so they fail alike.
struct FeatureCollector {
  const LUMA::LumaUnicodeString& field;
  const LUMA::LumaUnicodeString& extraField;
  bool nonNegative;
  LUMA::LumaArray<double>& values;
  LUMA::LumaArray<double>& extra;
  LUMA::LumaArray<LUMA::LumaPoint2D>* points;
  Status& pointsStatus;
  Status extraStatus;

  bool WantsExtra() const { return !extraField.IsEmpty() && extraStatus; }
  bool WantsPoint() const { return points && pointsStatus; }

  // `point` is null when the record has no usable point.
  Status Take(std::int64_t id, double x, double e, const LUMA::LumaPoint2D* point) {
    if (!std::isfinite(x)) return Status::Fail(msg::EUc001, {std::to_string(id).c_str(), field});
    if (nonNegative && x < 0.0) return Status::Fail(msg::ESa022);
    values.push_back(x);
    if (WantsExtra()) {
      if (std::isfinite(e))
        extra.push_back(e);
      else
        extraStatus = Status::Fail(msg::EUc001, {std::to_string(id).c_str(), extraField});
    }
    if (WantsPoint()) {
      if (point)
        points->push_back(*point);
      else
        pointsStatus = Status::Fail(msg::EUc002, {std::to_string(id).c_str()}), points->clear();
    }
    return Status::Ok();
  }
};

// The column-wise read; false when the records cannot be read that way.
bool ReadByColumns(ZoRecordset* records, FeatureCollector& c, Status& status) {
  std::vector<LUMA::LumaUnicodeString> fields{c.field};
  if (!c.extraField.IsEmpty()) fields.push_back(c.extraField);
  ZoRecordset::Columns columns;
  if (!records->ReadColumns(fields, c.points != nullptr, columns)) return false;
  const std::size_t n = columns.values[0].size();
  for (std::size_t k = 0; k < n; ++k) {
    const double e = fields.size() > 1 ? columns.values[1][k] : 0.0;
    const bool hasPoint = c.points && columns.hasPoint[k];
    status = c.Take(records->GetIDAt(static_cast<std::int64_t>(k)), columns.values[0][k], e,
                    hasPoint ? &columns.points[k] : nullptr);
    if (!status) return true;
  }
  status = c.extraStatus;
  return true;
}

}  // namespace

Status ReadFeatures(ZoRecordset* records, const LUMA::LumaUnicodeString& field, bool nonNegative,
                    LUMA::LumaArray<double>& values, const LUMA::LumaUnicodeString& extraField,
                    LUMA::LumaArray<double>& extra, LUMA::LumaArray<LUMA::LumaPoint2D>* points, Status& pointsStatus) {
  const auto n = static_cast<std::size_t>(std::max<std::int64_t>(records->GetRecordCount(), 0));
  values.clear(), extra.clear();
  values.reserve(n);
  if (!extraField.IsEmpty()) extra.reserve(n);
  if (points) points->clear(), points->reserve(n);
  pointsStatus = Status::Ok();
  FeatureCollector c{field, extraField, nonNegative, values, extra, points, pointsStatus, Status::Ok()};
  Status status;
  if (ReadByColumns(records, c, status)) return status;

  LUMA::LumaVariant value;
  ZoGeometry geometry;
  LUMA::LumaPoint2D p;
  for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext()) {
    records->GetFieldValue(field, value);
    const double x = value.ToDouble();
    double e = 0.0;
    if (c.WantsExtra()) records->GetFieldValue(extraField, value), e = value.ToDouble();
    bool hasPoint = false;
    if (c.WantsPoint()) hasPoint = RecordPoint(records, geometry, p);
    if (Status taken = c.Take(records->GetID(), x, e, hasPoint ? &p : nullptr); !taken) return taken;
  }
  return c.extraStatus;
}

Status ReadFieldValues(ZoRecordset* records, const LUMA::LumaUnicodeString& field, bool nonNegative,
                       LUMA::LumaArray<double>& values) {
  LUMA::LumaArray<double> none;
  Status noPoints;
  return ReadFeatures(records, field, nonNegative, values, {}, none, nullptr, noPoints);
}

namespace {

// The binary exponent that brings `largest` near 1, or 0 when it is within
// 2^±200 already (or is 0 or not finite).
int UnitRangeExponent(double largest) {
  if (!(largest > 0.0) || !std::isfinite(largest)) return 0;
  int exponent = 0;
  std::frexp(largest, &exponent);
  return exponent >= -200 && exponent <= 200 ? 0 : exponent;
}

}  // namespace

double ScaleToUnitRange(LUMA::LumaArray<double>& values) {
  double largest = 0.0;
  for (double v : values) largest = std::max(largest, std::fabs(v));
  const int exponent = UnitRangeExponent(largest);
  if (exponent == 0) return 1.0;
  for (double& v : values) v = std::ldexp(v, -exponent);
  return std::ldexp(1.0, exponent);
}

double ScaleToUnitRange(LUMA::LumaArray<LUMA::LumaPoint2D>& points) {
  double largest = 0.0;
  for (const auto& p : points) largest = std::max({largest, std::fabs(p.x), std::fabs(p.y)});
  const int exponent = UnitRangeExponent(largest);
  if (exponent == 0) return 1.0;
  for (auto& p : points) p = {std::ldexp(p.x, -exponent), std::ldexp(p.y, -exponent)};
  return std::ldexp(1.0, exponent);
}

double ClampedPvalue(double z) {
  const double p = probability::NormalTwoSided(z);
  return std::isnan(p) ? p : std::clamp(p, 0.0, 1.0);
}

}  // namespace ZOC::detail
