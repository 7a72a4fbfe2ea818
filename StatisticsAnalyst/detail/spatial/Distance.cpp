#include "StatisticsAnalyst/detail/spatial/Distance.h"

#include <cmath>

namespace ZOC::detail::spatial {

double EuclideanDistance(const LumaPoint2D& a, const LumaPoint2D& b) {
  const double dx = a.x - b.x, dy = a.y - b.y;
  return std::sqrt(dx * dx + dy * dy);
}

double ManhattanDistance(const LumaPoint2D& a, const LumaPoint2D& b) {
  return std::fabs(a.x - b.x) + std::fabs(a.y - b.y);
}

void DistancesTo(const LUMA::LumaArray<LumaPoint2D>& points, const LumaPoint2D& point, ZoDistanceMethod method,
                 LUMA::LumaArray<double>& distances) {
  distances.resize(points.size());
  if (method == Euclidean) {
    for (std::size_t j = 0; j < points.size(); ++j) distances[j] = EuclideanDistance(points[j], point);
  } else {
    for (std::size_t j = 0; j < points.size(); ++j) distances[j] = ManhattanDistance(points[j], point);
  }
}

ZoDistanceMethod EffectiveMethod(ZoDistanceMethod method, const ZoPrjCoordSys& cs) {
  return cs.GetTypeID() == ZoPrjCoordSys::Geographic ? Euclidean : method;
}

}  // namespace ZOC::detail::spatial
