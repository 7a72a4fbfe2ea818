#include "StatisticsAnalyst/detail/centrography/MeasuringPlane.h"

#include <algorithm>
#include <cmath>

#include "StatisticsAnalyst/detail/common/FeatureData.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::centrography {

MeasuringPlane::MeasuringPlane(const ZoPrjCoordSys& cs)
    : m_cs(cs), m_geographic(cs.GetTypeID() == ZoPrjCoordSys::Geographic) {}

Status MeasuringPlane::Enter(LumaArray<LumaPoint2D>& points) {
  m_scale = 1.0;
  if (points.empty()) return {};
  if (m_geographic) {
    if (!m_cs.SphericalCentre(points, m_centre) || !m_cs.ForwardAbout(m_centre, points.data(), points.size()))
      return Status::Fail(msg::ESa060);
  }
  m_scale = detail::ScaleToUnitRange(points);
  return {};
}

Status MeasuringPlane::Back(LumaPoint2D& point) const {
  point = {point.x * m_scale, point.y * m_scale};
  if (m_geographic && !m_cs.InverseAbout(m_centre, &point, 1)) return Status::Fail(msg::ESa060);
  return {};
}

Status MeasuringPlane::Back(ZoGeometry& geometry) const {
  if (!m_geographic && m_scale == 1.0) return {};
  LumaArray<LumaPoint2D> points = geometry.GetPoints();
  for (LumaPoint2D& p : points) p = {p.x * m_scale, p.y * m_scale};
  if (m_geographic) {
    if (!m_cs.InverseAbout(m_centre, points.data(), points.size())) return Status::Fail(msg::ESa060);
    m_cs.UnwrapLongitudes(points);
  }
  switch (geometry.GetType()) {
    case GeoPoint: geometry = ZoGeometry::MakePoint(points.front()); break;
    case GeoLine: geometry = ZoGeometry::MakeLine(std::move(points), geometry.GetPolyCounts()); break;
    case GeoRegion:
      geometry = ZoGeometry::MakeRegion(std::move(points), geometry.GetPolyCounts(), geometry.GetRingCounts());
      break;
    default: return Status::Fail(msg::ESa060);
  }
  return {};
}

LumaArray<double> RelativeWeights(const LumaArray<double>& weights) {
  LumaArray<double> relative = weights;
  double largest = 0.0;
  for (const double w : weights) largest = std::max(largest, w);
  if (largest > 1.0 && std::isfinite(largest))
    for (double& w : relative) w /= largest;
  return relative;
}

}  // namespace ZOC::detail::centrography
