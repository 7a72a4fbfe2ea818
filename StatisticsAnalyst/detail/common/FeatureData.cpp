#include "StatisticsAnalyst/detail/common/FeatureData.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "StatisticsAnalyst/ZoStatisticsUtilities.h"
#include "host/LumaVariant.h"
#include "host/ZoGeometry.h"
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"

namespace ZOC::detail {

namespace {
LUMA::LumaUnicodeString QlIdText(ZoRecordset* records) { return std::to_string(records->GetID()).c_str(); }
}  // namespace

Status ReadFieldValues(ZoRecordset* records, const LUMA::LumaUnicodeString& field, bool nonNegative,
                       LUMA::LumaArray<double>& values) {
  values.clear();
  values.reserve(static_cast<std::size_t>(std::max<std::int64_t>(records->GetRecordCount(), 0)));
  LUMA::LumaVariant value;
  for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext()) {
    records->GetFieldValue(field, value);
    const double x = value.ToDouble();
    if (!std::isfinite(x)) return Status::Fail(msg::EUc001, {QlIdText(records), field});
    if (nonNegative && x < 0.0) return Status::Fail(msg::ESa022);
    values.push_back(x);
  }
  return Status::Ok();
}

Status ReadFeaturePoints(ZoRecordset* records, LUMA::LumaArray<LUMA::LumaPoint2D>& points) {
  points.clear();
  points.reserve(static_cast<std::size_t>(std::max<std::int64_t>(records->GetRecordCount(), 0)));
  ZoGeometry geometry;
  LUMA::LumaPoint2D p;
  for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext()) {
    if (!records->GetGeometry(geometry) || geometry.IsEmpty() || !ZoStatisticsUtilities::GetBaryCenter(&geometry, p))
      return Status::Fail(msg::EUc002, {QlIdText(records)});
    points.push_back(p);
  }
  return Status::Ok();
}

Status ReadFeatures(ZoRecordset* records, const LUMA::LumaUnicodeString& field, bool nonNegative,
                    LUMA::LumaArray<double>& values, const LUMA::LumaUnicodeString& extraField,
                    LUMA::LumaArray<double>& extra, LUMA::LumaArray<LUMA::LumaPoint2D>* points, Status& pointsStatus) {
  const auto n = static_cast<std::size_t>(std::max<std::int64_t>(records->GetRecordCount(), 0));
  values.clear(), extra.clear();
  values.reserve(n);
  if (!extraField.IsEmpty()) extra.reserve(n);
  if (points) points->clear(), points->reserve(n);
  pointsStatus = Status::Ok();
  Status extraStatus;
  LUMA::LumaVariant value;
  ZoGeometry geometry;
  LUMA::LumaPoint2D p;
  for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext()) {
    records->GetFieldValue(field, value);
    const double x = value.ToDouble();
    if (!std::isfinite(x)) return Status::Fail(msg::EUc001, {QlIdText(records), field});
    if (nonNegative && x < 0.0) return Status::Fail(msg::ESa022);
    values.push_back(x);
    if (!extraField.IsEmpty() && extraStatus) {
      records->GetFieldValue(extraField, value);
      const double e = value.ToDouble();
      if (std::isfinite(e))
        extra.push_back(e);
      else
        extraStatus = Status::Fail(msg::EUc001, {QlIdText(records), extraField});
    }
    if (points && pointsStatus) {
      if (!records->GetGeometry(geometry) || geometry.IsEmpty() || !ZoStatisticsUtilities::GetBaryCenter(&geometry, p))
        pointsStatus = Status::Fail(msg::EUc002, {QlIdText(records)}), points->clear();
      else
        points->push_back(p);
    }
  }
  return extraStatus;
}

double ScaleToUnitRange(LUMA::LumaArray<double>& values) {
  double largest = 0.0;
  for (double v : values) largest = std::max(largest, std::fabs(v));
  if (!(largest > 0.0) || !std::isfinite(largest)) return 1.0;
  int exponent = 0;
  std::frexp(largest, &exponent);
  if (exponent >= -200 && exponent <= 200) return 1.0;
  for (double& v : values) v = std::ldexp(v, -exponent);
  return std::ldexp(1.0, exponent);
}

double ClampedPvalue(double z) {
  const double p = ZoStatisticsUtilities::GetPvalue(z);
  return std::isnan(p) ? p : std::clamp(p, 0.0, 1.0);
}

}  // namespace ZOC::detail
