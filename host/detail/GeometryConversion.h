#pragma once
// Host-internal: geometries between OGR and the host: the dataset type code
// of a layer geometry type and back, and conversion of the geometries
// themselves in both directions. Not installed.
#include <memory>

#include <ogr_geometry.h>

#include "host/ZoGeometry.h"

namespace ZOC::detail {

// Dataset type code (0, 1, 3, 5) of a layer geometry type.
int DatasetTypeFromOGR(OGRwkbGeometryType type);
// The layer geometry type a new dataset of a host type code is created with;
// wkbUnknown for codes that are not dataset types.
OGRwkbGeometryType OGRTypeForDataset(int datasetType);

// OGR geometry -> host geometry (2-D, curves linearised). Null and empty
// geometries, and kinds the host has no counterpart for, give an empty geometry.
ZoGeometry GeometryFromOGR(const OGRGeometry* geometry);
// Host geometry -> OGR geometry shaped for a layer of `layerType` (single
// parts promoted to the layer's multi type and back). Null for an empty or
// malformed geometry.
std::unique_ptr<OGRGeometry> GeometryToOGR(const ZoGeometry& geometry, OGRwkbGeometryType layerType);

// A copy of `geometry` for a layer of `layerType`: as it is (multi parts, Z
// and M kept) unless the layer's kind differs, then converted to that kind
// (single parts promoted to multi and back), keeping its own dimensions.
// Null for a null input.
OGRGeometry* GeometryForLayer(const OGRGeometry& geometry, OGRwkbGeometryType layerType);

}  // namespace ZOC::detail
