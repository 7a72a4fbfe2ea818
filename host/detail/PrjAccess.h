#pragma once
// Host-internal: the GDAL spatial reference behind a ZoPrjCoordSys, and an
// owner for such references. Not installed, so the public header names no
// GDAL type.
#include <memory>

#include <ogr_spatialref.h>

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

// Owns one reference to a GDAL spatial reference, which GDAL counts: it is
// released, not deleted.
struct SrsRelease {
  void operator()(OGRSpatialReference* srs) const {
    if (srs) srs->Release();
  }
};
using SrsPtr = std::unique_ptr<OGRSpatialReference, SrsRelease>;

}  // namespace ZOC::detail
