#pragma once
// Host-internal: the GDAL spatial reference behind a ZoPrjCoordSys. Not
// installed, so the public header names no GDAL type.
class OGRSpatialReference;

namespace ZOC {
class ZoPrjCoordSys;
}

namespace ZOC::detail {

struct PrjAccess {
  // Adopts a copy of a GDAL spatial reference (null or undefined = undefined).
  static void Set(ZoPrjCoordSys& cs, const OGRSpatialReference* srs);
  // The GDAL spatial reference, or null when undefined.
  static const OGRSpatialReference* Get(const ZoPrjCoordSys& cs);
};

}  // namespace ZOC::detail
