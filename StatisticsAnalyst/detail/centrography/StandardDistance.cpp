// The standard distance: how far the features spread around their weighted
// mean centre, as a circle per group; and what it shares with the ellipse:
// the weighted spread of a group and the per-group flow that turns each
// group into a region.
#include <cmath>

#include "StatisticsAnalyst/detail/centrography/Measures.h"
#include "StatisticsAnalyst/detail/centrography/MeasuringFrame.h"
#include "StatisticsAnalyst/detail/centrography/MeasuringPlane.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::centrography {

Status GetWeightedSpread(const LumaArray<LumaPoint2D>& points, const LumaArray<double>& weights,
                         WeightedSpread& spread) {
  const std::size_t n = points.size();
  spread = WeightedSpread();
  if (n == 0 || weights.empty()) return {};
  if (n < 3) return Status::Fail(msg::ESa013);
  if (weights.size() != n) return Status::Fail(msg::ESa019);
  spread.weights = RelativeWeights(weights);
  const LumaArray<double>& w = spread.weights;
  if (Status s = spatial::MeanCentre(points, w, spread.mean); !s) return s;
  for (std::size_t i = 0; i < n; ++i) {
    const double dx = points[i].x - spread.mean.x, dy = points[i].y - spread.mean.y;
    spread.weight += w[i];
    spread.xx += w[i] * dx * dx, spread.yy += w[i] * dy * dy, spread.xy += w[i] * dx * dy;
  }
  if (limits::IsZero(spread.weight)) return Status::Fail(msg::ESa018);
  spread.empty = false;
  return {};
}

Status GetStandardDist(const LumaArray<LumaPoint2D>& points, const LumaArray<double>& weights, double factor,
                       LumaPoint2D& centre, double& distance) {
  WeightedSpread spread;
  if (Status status = GetWeightedSpread(points, weights, spread); !status || spread.empty) return status;
  // Divided by the weight sum itself: no small-sample correction.
  distance = std::sqrt((spread.xx + spread.yy) / spread.weight) * factor;
  centre = spread.mean;
  return {};
}

Status RunRegions(MeasureCall& call, const char* titleId, const char* stepId, const std::vector<const char*>& ownFields,
                  const RegionFunction& region) {
  MeasuringFrame frame(call.input, call.output, *call.info);
  LumaFieldInfos own, none;
  for (const char* name : ownFields) own.emplace_back(name, LUMA::FieldDouble);
  if (Status status = frame.Validate(); !status) return status;
  if (Status status = frame.CreateFields(own, none); !status) return status;
  detail::CallProgress progress(call.callerProgress, call.showProgress);
  StartProgress(progress, titleId);
  if (Status status = frame.Open(); !status) return status;
  if (frame.RecordCount() < 3) return Status::Fail(msg::ESa013);
  const auto write = [&](FeatureGroup& group, GroupKind kind) {
    // A small group ends the whole run; the groups before it stay written.
    if (group.count < 3) return Status::Fail(msg::ESa012);
    ZoGeometry geometry;
    std::vector<LumaVariant> values;
    if (Status status = region(group, geometry, values); !status) return status;
    std::vector<std::pair<LumaUnicodeString, LumaVariant>> fields;
    for (std::size_t i = 0; i < own.size() && i < values.size(); ++i) fields.emplace_back(own[i].GetName(), values[i]);
    return frame.Write(geometry, fields, group.caseValue, frame.GroupValues(kind, group.count));
  };
  if (Status status = frame.Pass(progress, stepId, CollectOptions{}, write); !status) return status;
  return frame.Finish();
}

Status StandardDistance(MeasureCall& call) {
  const double factor = EllipseFactor(call.info->EllipseSize);
  MeasuringPlane plane(call.input->GetPrjCoordSys());
  const auto circle = [&](const FeatureGroup& group, ZoGeometry& geometry, std::vector<LumaVariant>& values) {
    LumaArray<LumaPoint2D> points = group.points;
    if (Status status = plane.Enter(points); !status) return status;
    LumaPoint2D centre;
    double distance = 0.0;
    // The group's failure stands in for its cause.
    if (!GetStandardDist(points, group.weights, factor, centre, distance)) return Status::Fail(msg::ESa073);
    geometry = ZoGeoCircle(centre, distance).ConvertToRegion();
    if (geometry.IsEmpty()) return Status::Fail(msg::ESa015);
    if (Status status = plane.Back(geometry); !status) return status;
    if (Status status = plane.Back(centre); !status) return status;
    values = {LumaVariant(centre.x), LumaVariant(centre.y), LumaVariant(plane.Length(distance))};
    return Status();
  };
  return RunRegions(call, msg::IMb357, msg::IMb358, {"CircleCenterX", "CircleCenterY", "StandardDistance"}, circle);
}

}  // namespace ZOC::detail::centrography
