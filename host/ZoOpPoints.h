#pragma once
// ZoOpPoints: point operations of the host.
#include <cstddef>

#include "host/HostExport.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"

namespace ZOC {

using LUMA::LumaArray;
using LUMA::LumaPoint2D;

class SA_HOST_API ZoOpPoints {
 public:
  // Euclidean distance.
  static double Distance(const LumaPoint2D& a, const LumaPoint2D& b);

  // Convex hull as a closed ring, counter-clockwise, first point repeated
  // last, without collinear vertices. Degenerate inputs:
  // - all points coincident: one point;
  // - all points collinear: a three-point ring: the two extreme points and the
  //   first again.
  // False only when there are no points.
  static bool Flange(const LumaPoint2D* points, std::size_t count, LumaArray<LumaPoint2D>& hull);
  static bool Flange(const LumaArray<LumaPoint2D>& points, LumaArray<LumaPoint2D>& hull) {
    return Flange(points.data(), points.size(), hull);
  }

  // The straight-line (chord) distance in metres between two points given as
  // (longitude, latitude) in degrees on the ellipsoid with semi-major axis a
  // (metres) and flattening f: both points are placed in Earth-centred
  // Cartesian coordinates at height 0.
  static double GetSpheroidChordalDistance(const LumaPoint2D& p1, const LumaPoint2D& p2, double a, double f);
};

}  // namespace ZOC
