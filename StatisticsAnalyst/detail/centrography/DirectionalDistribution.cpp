// The standard deviational ellipse: the spread of the features along their
// principal direction and across it, as an ellipse per group.
#include <algorithm>
#include <cmath>

#include "StatisticsAnalyst/detail/centrography/Measures.h"
#include "StatisticsAnalyst/detail/centrography/MeasuringFrame.h"
#include "StatisticsAnalyst/detail/centrography/MeasuringPlane.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::centrography {

namespace {
constexpr double kPi = 3.14159265358979323846;
}  // namespace

Status GetDirection(const LumaArray<LumaPoint2D>& points, const LumaArray<double>& weights, double factor,
                    LumaPoint2D& centre, double& axisX, double& axisY, double& angle) {
  WeightedSpread spread;
  if (Status status = GetWeightedSpread(points, weights, spread); !status || spread.empty) return status;
  const LumaPoint2D& mean = spread.mean;
  const double d = spread.xx - spread.yy, r = std::sqrt(d * d + 4.0 * spread.xy * spread.xy), e = 2.0 * spread.xy;
  const double theta = limits::IsZero(e) ? 0.0 : std::atan((d - r) / e);
  const double cosT = std::cos(theta), sinT = std::sin(theta);
  double u2 = 0.0, v2 = 0.0;
  const LumaArray<double>& w = spread.weights;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const double dx = points[i].x - mean.x, dy = points[i].y - mean.y;
    const double u = dx * cosT - dy * sinT, v = dx * sinT + dy * cosT;
    u2 += w[i] * u * u, v2 += w[i] * v * v;
  }
  // The factor 2 belongs to the ellipse's definition here.
  const double sigmaX = std::sqrt(2.0 * u2 / spread.weight), sigmaY = std::sqrt(2.0 * v2 / spread.weight);
  axisX = sigmaX * factor;
  axisY = sigmaY * factor;
  double degrees = theta * 180.0 / kPi;
  if (sigmaY > sigmaX) degrees += 90.0;
  // The written angle turns the other way from the rotation used above.
  angle = -degrees;
  centre = mean;
  return {};
}

Status DirectionalDistribution(MeasureCall& call) {
  const double factor = EllipseFactor(call.info->EllipseSize);
  MeasuringPlane plane(call.input->GetPrjCoordSys());
  const auto ellipse = [&](const FeatureGroup& group, ZoGeometry& geometry, std::vector<LumaVariant>& values) {
    LumaArray<LumaPoint2D> points = group.points;
    if (Status status = plane.Enter(points); !status) return status;
    LumaPoint2D centre;
    double axisX = 0.0, axisY = 0.0, angle = 0.0;
    if (!GetDirection(points, group.weights, factor, centre, axisX, axisY, angle)) return Status::Fail(msg::ESa072);
    // The written angle is the direction of the longer axis, counter-clockwise
    // from east (the 90° added when the rotated y spread is larger makes it
    // so); the fields keep the rotated-x / rotated-y naming. On geographic
    // data east is that of the projection, the true east at the centre.
    geometry = ZoGeoEllipse::Make(centre, std::max(axisX, axisY), std::min(axisX, axisY), angle).ConvertToRegion();
    if (geometry.IsEmpty()) return Status::Fail(msg::ESa015);
    if (Status status = plane.Back(geometry); !status) return status;
    if (Status status = plane.Back(centre); !status) return status;
    values = {LumaVariant(centre.x), LumaVariant(centre.y), LumaVariant(plane.Length(axisX)),
              LumaVariant(plane.Length(axisY)), LumaVariant(angle)};
    return Status();
  };
  return RunRegions(call, msg::IMb326, msg::IMb327,
                    {"CircleCenterX", "CircleCenterY", "SemiMajorAxis", "SemiMinorAxis", "RotationAngle"}, ellipse);
}

}  // namespace ZOC::detail::centrography
