#pragma once
// Where a group's points are measured. Centres, distances, spreads and angles
// mean something only in a plane with one length unit, and degrees are not
// one: a degree of longitude shrinks towards the poles, and longitudes jump
// at ±180°, so a group of points on both sides of the antimeridian would get
// its mean centre on the far side of the earth. Geographic coordinates are
// therefore projected to metres (an azimuthal equidistant projection, the
// one the central feature and the clustering measure in) centred on the
// group's own centre: the mean of the points' unit vectors, which lies among
// the points on either side of ±180° and around a pole alike. Coordinates so
// large that their squares overflow (near 1e300) are divided by a power of
// two instead, which changes no ratio. Results go back the same way:
// positions and geometries in the dataset's coordinates, lengths in metres
// for geographic data and in the dataset's unit otherwise.
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"
#include "host/ZoGeometry.h"
#include "host/ZoPrjCoordSys.h"

namespace ZOC::detail::centrography {

using detail::Status;

class MeasuringPlane {
 public:
  explicit MeasuringPlane(const ZoPrjCoordSys& cs);

  // Whether the dataset's coordinates are projected for measuring.
  bool Geographic() const { return m_geographic; }

  // Takes one group's points into the plane, in place. "ESa060" when they
  // cannot be projected, or are spread so evenly over the globe that they
  // have no centre to project about.
  Status Enter(LumaArray<LumaPoint2D>& points);
  // A position in the plane, in the dataset's coordinates ("ESa060").
  Status Back(LumaPoint2D& point) const;
  // A geometry in the plane, vertex by vertex, in the dataset's coordinates
  // ("ESa060"). A ring that crosses ±180° keeps its longitudes continuous
  // (179.9 and 180.1, not 179.9 and -179.9), so it stays one ring.
  Status Back(ZoGeometry& geometry) const;
  // A length in the plane in metres (geographic) or the dataset's unit.
  double Length(double planeLength) const { return planeLength * m_scale; }
  // The factor from the plane's unit to that of Length.
  double Scale() const { return m_scale; }

 private:
  const ZoPrjCoordSys& m_cs;
  bool m_geographic;
  LumaPoint2D m_centre;  // of the projection, in the dataset's coordinates
  double m_scale = 1.0;
};

// The weights relative to the largest one when that exceeds 1. Every measure
// is unchanged by a common factor of the weights, and weights near 1e300
// would otherwise overflow Σw·dx² (uniform weights of 1e200 become exactly
// 1, so they give the unweighted result to the last bit).
LumaArray<double> RelativeWeights(const LumaArray<double>& weights);

}  // namespace ZOC::detail::centrography
