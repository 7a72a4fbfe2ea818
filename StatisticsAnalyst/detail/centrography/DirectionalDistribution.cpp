// The standard deviational ellipse: the spread of the features along their
// principal direction and across it, as an ellipse per group.
#include <algorithm>
#include <cmath>

#include "StatisticsAnalyst/detail/centrography/Measures.h"
#include "StatisticsAnalyst/detail/centrography/MeasuringFrame.h"
#include "host/ZoMessageIds.h"

namespace ZOC::centrography {

namespace {
bool WithinZero(double v) { return v > -1e-20 && v < 1e-20; }
constexpr double kPi = 3.14159265358979323846;
}  // namespace

bool GetDirection(const LumaArray<LumaPoint2D>& points, const LumaArray<double>& weights, double factor,
                  LumaPoint2D& centre, double& axisX, double& axisY, double& angle, ZoStatisticsUtilities& utilities,
                  MessageLog& log) {
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
  double a = 0.0, b = 0.0, c = 0.0, w = 0.0;
  for (std::size_t i = 0; i < n; ++i) {
    const double dx = points[i].x - mean.x, dy = points[i].y - mean.y;
    a += weights[i] * dx * dx, b += weights[i] * dy * dy, c += weights[i] * dx * dy, w += weights[i];
  }
  if (WithinZero(w)) {
    log.Add(msg::ESa018);
    return false;
  }
  const double d = a - b, r = std::sqrt(d * d + 4.0 * c * c), e = 2.0 * c;
  const double theta = WithinZero(e) ? 0.0 : std::atan((d - r) / e);
  const double cosT = std::cos(theta), sinT = std::sin(theta);
  double u2 = 0.0, v2 = 0.0;
  for (std::size_t i = 0; i < n; ++i) {
    const double dx = points[i].x - mean.x, dy = points[i].y - mean.y;
    const double u = dx * cosT - dy * sinT, v = dx * sinT + dy * cosT;
    u2 += weights[i] * u * u, v2 += weights[i] * v * v;
  }
  // The factor 2 belongs to the ellipse's definition here.
  const double sigmaX = std::sqrt(2.0 * u2 / w), sigmaY = std::sqrt(2.0 * v2 / w);
  axisX = sigmaX * factor;
  axisY = sigmaY * factor;
  double degrees = theta * 180.0 / kPi;
  if (sigmaY > sigmaX) degrees += 90.0;
  // The written angle turns the other way from the rotation used above.
  angle = -degrees;
  centre = mean;
  return true;
}

bool DirectionalDistribution(MeasureCall& call) {
  const double factor = EllipseFactor(call.info->EllipseSize);
  const auto ellipse = [&](const FeatureGroup& group, ZoGeometry& geometry, std::vector<LumaVariant>& values) {
    LumaPoint2D centre;
    double axisX = 0.0, axisY = 0.0, angle = 0.0;
    if (!GetDirection(group.points, group.weights, factor, centre, axisX, axisY, angle, *call.utilities, *call.log)) {
      call.log->Replace(msg::ESa072);
      return false;
    }
    // The written angle is the direction of the longer axis, counter-clockwise
    // from east (the 90° added when the rotated y spread is larger makes it
    // so); the fields keep the rotated-x / rotated-y naming.
    geometry = ZoGeoEllipse::Make(centre, std::max(axisX, axisY), std::min(axisX, axisY), angle).ConvertToRegion();
    if (geometry.IsEmpty()) {
      call.log->Replace(msg::ESa015);
      return false;
    }
    values = {LumaVariant(centre.x), LumaVariant(centre.y), LumaVariant(axisX), LumaVariant(axisY), LumaVariant(angle)};
    return true;
  };
  return RunRegions(call, msg::IMb326, msg::IMb327,
                    {"CircleCenterX", "CircleCenterY", "SemiMajorAxis", "SemiMinorAxis", "RotationAngle"}, ellipse);
}

}  // namespace ZOC::centrography
