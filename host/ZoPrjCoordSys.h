#pragma once
// ZoPrjCoordSys: a dataset's coordinate system, over PROJ (through GDAL's
// spatial references, which host code reaches through detail::PrjAccess).
//
// Type codes (GetTypeID): 0 planar without a known definition (no coordinate
// system, or an "undefined" one such as the undefined geographic or Cartesian
// SRS a GeoPackage carries for data written without one), 1 geographic
// (longitude/latitude), 2 projected.
//
// Forward projection makes coordinates planar for distance measurement:
// identity for types 0 and 2; for geographic data an azimuthal equidistant
// projection in metres on the system's own ellipsoid, centred on the extent
// the system was given with SetExtent (the dataset's extent), or on the
// centre of the points projected when no extent was given. Points that
// straddle the antimeridian (±180°) are the exception: a longitude extent
// then spans nearly the whole circle and its middle lies on the far side of
// the earth, so the centre's longitude is taken on the circle instead: the
// middle of the arc the points cover, found by removing the largest gap
// between their longitudes.
#include <cstddef>
#include <memory>

#include "host/HostExport.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"
#include "host/LumaUnicodeString.h"

namespace ZOC {

namespace detail {
struct PrjAccess;
}

using LUMA::LumaArray;
using LUMA::LumaPoint2D;
using LUMA::LumaUnicodeString;

class SA_HOST_API ZoPrjCoordSys {
 public:
  enum TypeID { Planar = 0, Geographic = 1, Projected = 2 };

  ZoPrjCoordSys();  // planar, undefined
  ZoPrjCoordSys(const ZoPrjCoordSys&);
  ZoPrjCoordSys& operator=(const ZoPrjCoordSys&);
  ~ZoPrjCoordSys();

  // From "EPSG:4326", WKT or a PROJ string; false (and unchanged) when PROJ
  // cannot read it.
  bool SetFromUserInput(const LumaUnicodeString& definition);

  int GetTypeID() const;
  bool IsUndefined() const;
  LumaUnicodeString GetName() const;  // "" when undefined
  LumaUnicodeString GetWKT() const;   // WKT2; "" when undefined
  // The ellipsoid of geographic and projected systems; WGS 84's values when the
  // system has none (planar, undefined).
  double GetSemiMajorAxis() const;
  double GetFlattening() const;
  // Metres per unit of a projected system's coordinates; 0 when the system
  // has no known linear unit (planar, undefined, geographic).
  double GetLinearUnits() const;
  bool IsSame(const ZoPrjCoordSys& other) const;

  // The extent (in this system's units) that centres the forward projection.
  void SetExtent(double minX, double minY, double maxX, double maxY);

  // Projects in place (see the header comment). False when PROJ fails for any
  // point; the points are then unspecified.
  bool Forward(LumaPoint2D* points, std::size_t count) const;
  bool Forward(LumaArray<LumaPoint2D>& points) const { return Forward(points.data(), points.size()); }
  // Geographic data only: the centre of the points on the globe, the
  // direction of the mean of their unit vectors (in this system's units).
  // Unlike a mean of longitudes it is found alike on either side of ±180°
  // and around a pole. False for other systems, a coordinate that is not
  // finite, or points spread so evenly over the globe that their vectors
  // cancel (no centre to measure around).
  bool SphericalCentre(const LumaArray<LumaPoint2D>& points, LumaPoint2D& centre) const;
  // Forward as above, but centred on `centre` (this system's units) instead
  // of the extent; and its inverse, from metres back to this system's
  // coordinates (longitudes in the system's ±half-turn range). Identity for
  // systems that are not geographic. False when PROJ fails for any point.
  bool ForwardAbout(const LumaPoint2D& centre, LumaPoint2D* points, std::size_t count) const;
  bool InverseAbout(const LumaPoint2D& centre, LumaPoint2D* points, std::size_t count) const;
  // Geographic data only: shifts longitudes by whole turns so that points
  // straddling the antimeridian read as one continuous patch (e.g. 179.9 and
  // -179.9 become 179.9 and 180.1); other data is left as it is. Planar
  // geometry on the result (hulls, rectangles) is then meaningful.
  void UnwrapLongitudes(LumaArray<LumaPoint2D>& points) const;
  // The PROJ definition Forward uses for geographic data centred at (lon, lat).
  LumaUnicodeString ForwardDefinition(double lon0, double lat0) const;

 private:
  friend struct detail::PrjAccess;
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace ZOC
