#pragma once
// ZoGeometry: the host geometry the library reads and writes: a point, a
// line (one or more parts) or a region (one or more polygons, each a shell
// ring followed by its hole rings). Coordinates are 2-D.
//
// Storage: all vertices in one array, part after part (GetPoints), with the
// vertex count of each part (GetPolyCounts). For regions every ring is a part,
// stored closed (first vertex repeated last), and GetRingCounts gives the
// number of rings of each polygon.
//
// ZoGeoCircle and ZoGeoEllipse are parametric shapes that become regions by
// segmentation: the boundary is sampled at `segments` equally spaced
// parameter angles (72 by default, one vertex every 5°), starting on the
// first axis and turning counter-clockwise.
#include <cstddef>
#include <vector>

#include "host/HostExport.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"

namespace ZOC {

using LUMA::LumaArray;
using LUMA::LumaPoint2D;

class ZoPrjCoordSys;

enum ZoGeometryType : int { GeoNone = 0, GeoPoint = 1, GeoLine = 3, GeoRegion = 5, GeoCircle = 15, GeoEllipse = 20 };

class SA_HOST_API ZoGeometry {
 public:
  ZoGeometry() = default;  // empty, type GeoNone

  static ZoGeometry MakePoint(const LumaPoint2D& p);
  // partCounts: vertices of each part, summing to points.size().
  static ZoGeometry MakeLine(LumaArray<LumaPoint2D> points, LumaArray<int> partCounts);
  // ringCounts: vertices of each ring; rings are closed here when they are not.
  // ringsPerPolygon: rings of each polygon (shell first); empty means every
  // ring is a polygon of its own.
  static ZoGeometry MakeRegion(LumaArray<LumaPoint2D> points, LumaArray<int> ringCounts,
                               LumaArray<int> ringsPerPolygon = {});

  int GetType() const { return m_type; }
  bool IsEmpty() const { return m_points.empty(); }
  const LumaArray<LumaPoint2D>& GetPoints() const { return m_points; }
  const LumaArray<int>& GetPolyCounts() const { return m_partCounts; }
  const LumaArray<int>& GetRingCounts() const { return m_ringCounts; }
  std::size_t GetPartCount() const { return m_partCounts.size(); }

  // The representative point: a point's own location; the length-weighted
  // centroid of a line; the area-weighted centroid of a region (holes
  // subtracted). A region of zero area falls back to the centroid of its
  // boundary and a line of zero length to the mean of its vertices. False only
  // for an empty geometry.
  bool GetBaryCenter(LumaPoint2D& centre) const;
  // Length of a line, or perimeter of a region, in the coordinate system's
  // units; geodesic metres on the ellipsoid when cs is geographic.
  double GetLength(const ZoPrjCoordSys* cs = nullptr) const;
  // Area of a region (0 for other types): planar in squared units, or the
  // true surface area on the ellipsoid in square metres when cs is geographic.
  double GetArea(const ZoPrjCoordSys* cs = nullptr) const;
  bool GetBounds(double& minX, double& minY, double& maxX, double& maxY) const;
  // For a region: true when `p` lies inside it by the even-odd rule over all
  // its rings (so a point in a hole is outside) or exactly on the boundary
  // of any ring, vertices included. The test is exact: no tolerance, and
  // orientations are decided on the exact products of the coordinates, so a
  // point counts as on an edge only when it truly lies on it. False for
  // other geometry types, empty geometries and a non-finite `p`.
  bool ContainsPoint(const LumaPoint2D& p) const;

 private:
  int m_type = GeoNone;
  LumaArray<LumaPoint2D> m_points;
  LumaArray<int> m_partCounts;
  LumaArray<int> m_ringCounts;
};

// A region prepared for many point-in-polygon tests: its edges are listed
// by horizontal strips, so a test reads only the edges of the point's strip
// instead of every edge. Contains(p) always equals region.ContainsPoint(p).
// The region must outlive this object. Construction may throw
// std::bad_alloc.
class SA_HOST_API ZoPreparedRegion {
 public:
  explicit ZoPreparedRegion(const ZoGeometry& region);
  bool Contains(const LumaPoint2D& p) const;

 private:
  std::size_t Strip(double y) const;

  const ZoGeometry* m_region;
  double m_minY = 0.0, m_maxY = 0.0, m_height = 0.0;
  std::size_t m_strips = 1;
  std::vector<std::size_t> m_offsets;  // strip s lists m_edges[m_offsets[s] .. m_offsets[s + 1])
  std::vector<std::size_t> m_edges;    // each edge by the index of its first vertex
};

class SA_HOST_API ZoGeoCircle {
 public:
  ZoGeoCircle(const LumaPoint2D& centre, double radius) : m_centre(centre), m_radius(radius) {}
  // A one-ring region; an empty geometry when the radius is not positive and finite.
  ZoGeometry ConvertToRegion(int segments = 72) const;

 private:
  LumaPoint2D m_centre;
  double m_radius;
};

class SA_HOST_API ZoGeoEllipse {
 public:
  // semiAxis1 lies along the direction `angleDegrees` counter-clockwise from
  // the x axis; semiAxis2 is perpendicular to it. Either may be the longer.
  static ZoGeoEllipse Make(const LumaPoint2D& centre, double semiAxis1, double semiAxis2, double angleDegrees);
  // A one-ring region; an empty geometry when an axis is not positive and finite.
  ZoGeometry ConvertToRegion(int segments = 72) const;

 private:
  LumaPoint2D m_centre;
  double m_axis1 = 0.0, m_axis2 = 0.0, m_angle = 0.0;
};

}  // namespace ZOC
