#pragma once
// Distances between feature points, and the distance method a coordinate
// system allows.
#include <vector>

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"
#include "host/ZoPrjCoordSys.h"

namespace ZOC::detail::spatial {

using LUMA::LumaPoint2D;

double EuclideanDistance(const LumaPoint2D& a, const LumaPoint2D& b);
double ManhattanDistance(const LumaPoint2D& a, const LumaPoint2D& b);
inline double Distance(const LumaPoint2D& a, const LumaPoint2D& b, ZoDistanceMethod method) {
  return method == Euclidean ? EuclideanDistance(a, b) : ManhattanDistance(a, b);
}

// Distance from `point` to every element of `points` (Euclidean for method 1,
// Manhattan for any other value). May throw std::bad_alloc.
void DistancesTo(const LUMA::LumaArray<LumaPoint2D>& points, const LumaPoint2D& point, ZoDistanceMethod method,
                 LUMA::LumaArray<double>& distances);

// Geographic data is measured after projection to metres about the data,
// where only Euclidean distance means anything; planar data keeps `method`.
ZoDistanceMethod EffectiveMethod(ZoDistanceMethod method, const ZoPrjCoordSys& cs);

}  // namespace ZOC::detail::spatial
