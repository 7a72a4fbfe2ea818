// The standard distance: how far the features spread around their weighted
// mean centre, as a circle per group; and the flow it shares with the ellipse.
#include <cmath>

#include "StatisticsAnalyst/detail/centrography/Measures.h"
#include "StatisticsAnalyst/detail/centrography/MeasuringFrame.h"
#include "host/ZoMessageIds.h"

namespace ZOC::centrography {

namespace {
bool WithinZero(double v) { return v > -1e-20 && v < 1e-20; }
}  // namespace

bool GetStandardDist(const LumaArray<LumaPoint2D>& points, const LumaArray<double>& weights, double factor,
                     LumaPoint2D& centre, double& distance, ZoStatisticsUtilities& utilities, MessageLog& log) {
  const std::size_t n = points.size();
  if (n == 0 || weights.empty()) return true;
  if (n < 3) {
    log.Add(msg::ESa013);
    return false;
  }
  if (weights.size() != n) {
    log.Add(msg::ESa019);
    return false;
  }
  LumaPoint2D mean;
  if (!utilities.GetMeanCenter(points, weights, mean)) {
    log.Append(utilities.GetStrErrorMes());
    return false;
  }
  double w = 0.0, sx = 0.0, sy = 0.0;
  for (std::size_t i = 0; i < n; ++i) {
    const double dx = points[i].x - mean.x, dy = points[i].y - mean.y;
    w += weights[i], sx += weights[i] * dx * dx, sy += weights[i] * dy * dy;
  }
  if (WithinZero(w)) {
    log.Add(msg::ESa018);
    return false;
  }
  // Divided by the weight sum itself: no small-sample correction.
  distance = std::sqrt((sx + sy) / w) * factor;
  centre = mean;
  return true;
}

bool RunRegions(MeasureCall& call, const char* titleId, const char* stepId, const std::vector<const char*>& ownFields,
                const RegionFunction& region) {
  MeasuringFrame frame(call.input, call.output, *call.info, *call.log);
  LumaFieldInfos own, none;
  for (const char* name : ownFields) own.emplace_back(name, LUMA::FieldDouble);
  if (!frame.Validate() || !frame.CreateFields(own, none)) return false;
  ZoCallProgress progress(call.callerProgress, call.showProgress);
  StartProgress(progress, titleId);
  if (!frame.Open()) return false;
  if (frame.RecordCount() < 3) {
    call.log->Add(msg::ESa013);
    return false;
  }
  const auto write = [&](FeatureGroup& group, GroupKind kind) {
    // A small group ends the whole run; the groups before it stay written.
    if (group.count < 3) {
      call.log->Replace(msg::ESa012);
      return false;
    }
    ZoGeometry geometry;
    std::vector<LumaVariant> values;
    if (!region(group, geometry, values)) return false;
    std::vector<std::pair<LumaUnicodeString, LumaVariant>> fields;
    for (std::size_t i = 0; i < own.size() && i < values.size(); ++i) fields.emplace_back(own[i].GetName(), values[i]);
    return frame.Write(geometry, fields, group.caseValue, frame.GroupValues(kind, group.count));
  };
  return frame.Pass(progress, stepId, CollectOptions{}, write) && frame.Finish();
}

bool StandardDistance(MeasureCall& call) {
  const double factor = EllipseFactor(call.info->EllipseSize);
  const auto circle = [&](const FeatureGroup& group, ZoGeometry& geometry, std::vector<LumaVariant>& values) {
    LumaPoint2D centre;
    double distance = 0.0;
    if (!GetStandardDist(group.points, group.weights, factor, centre, distance, *call.utilities, *call.log)) {
      call.log->Replace(msg::ESa073);
      return false;
    }
    geometry = ZoGeoCircle(centre, distance).ConvertToRegion();
    if (geometry.IsEmpty()) {
      call.log->Replace(msg::ESa015);
      return false;
    }
    values = {LumaVariant(centre.x), LumaVariant(centre.y), LumaVariant(distance)};
    return true;
  };
  return RunRegions(call, msg::IMb357, msg::IMb358, {"CircleCenterX", "CircleCenterY", "StandardDistance"}, circle);
}

}  // namespace ZOC::centrography
